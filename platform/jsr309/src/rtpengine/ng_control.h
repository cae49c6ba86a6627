/// The control channel to one rtpengine daemon.
///
/// A daemon is asked over UDP: requests and replies may be lost, doubled, late and out of order, and the daemon may be
/// gone. Hundreds of legs ask at the same time, each for its own call, and none may wait for another's reply or for a
/// daemon longer than its own time. NgControl carries them all over one socket with one thread.
///
/// - A request is sent again under the same cookie, after 200 ms, then after twice as long each time, up to 1.6 s,
/// until
///   its reply is there or its time is over. A daemon answers a repeated cookie with the reply that it gave before, so
///   a request that is repeated is not carried out twice.
/// - A request whose time is over, or that was stopped, may have been carried out all the same, or still be.
/// - Order. Requests with the same "call-id", asked or posted, form a line: each is sent only when the one before has
///   been answered or its time is over, in the order in which they were handed over. So a posted "delete" is never
///   overtaken by a later "offer" of that call, not even when the network loses it; and who asks behind others waits
///   for them too, within its own time. Lines of different calls do not wait for each other, but for the daemon: at
///   most kNgUnderWay are sent and unanswered at a time, so that a burst does not run over its socket. A request
///   without "call-id" ("ping", "statistics") passes all of that.
/// - Replies that nobody waits for, malformed and oversized ones and wrong cookies are dropped and counted; the last
/// three
///   are logged at WARN, one record a second at most, with the daemon's address and MAC.
/// - A daemon whose host says that nobody listens there (ECONNREFUSED) is asked on: it may come back in time. The
///   listener hears of it at once.
///
/// What counts as an answer is any reply; whether it says "error" is for the caller (RefusalOf).
///
/// Ownership: the listener outlives Stop. No reference to a request is kept: it is encoded before anything waits.
/// Threads: Ask, Post, Stop and Counters from any thread, several at the same time; Ask not on the control thread, from
/// callbacks that is, where it fails at once. Callbacks run on the control thread with no lock held, must return soon
/// and may call Post, but not Stop. Errors: texts that name the daemon; nothing is thrown.
#pragma once

#include "kelvaro/jsr309/guarded_logger.h"
#include "rtpengine/bencode.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvaro::jsr309::rtpengine {

using NgTime = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

/// Requests sent and unanswered at a time; the next ones wait.
constexpr std::size_t kNgUnderWay = 64;
/// Requests under way and waiting; further ones are refused.
constexpr std::size_t kNgMostRequests = 10000;
/// No request takes longer, whatever its limit.
constexpr milliseconds kNgLongestLimit = std::chrono::hours(1);

struct NgControlSettings {
  std::string address;  ///< numeric, IPv4 or IPv6 without brackets
  uint16_t port = 0;
  std::string mac;  ///< the server's name in log lines
};

/// What became of a request: a reply, or none and why.
struct NgResult {
  std::optional<Dictionary> reply;
  std::string error;
};
using NgDone = std::function<void(const NgResult&)>;
/// Whether a request is still wanted, asked at the moment when it takes its place in line: false refuses it. An "offer"
/// that comes behind the "delete" of its call would make the call anew, and nobody would end it. Who marks a call as
/// ended, then posts its "delete", and gives every other request of the call a condition that looks at the mark, has no
/// request behind the "delete". Called with the channel's lock held: it must not call the channel.
using NgCondition = std::function<bool()>;

/// Hears how the daemon does. Called on the control thread.
class NgListener {
 public:
  virtual ~NgListener() = default;
  /// A reply to one of our requests came, late ones included.
  virtual void OnAnswer(NgTime now) = 0;
  /// The daemon's host said that nobody listens there.
  virtual void OnRefused(NgTime now) = 0;
  /// Called at the start and whenever the time that it gave last has come, or earlier; gives the next.
  virtual NgTime OnTime(NgTime now) = 0;
};

struct NgCounters {
  uint64_t requests = 0;
  uint64_t retransmissions = 0;
  uint64_t replies = 0;     ///< that somebody waited for
  uint64_t timeouts = 0;    ///< requests whose time was over
  uint64_t duplicates = 0;  ///< further replies to a request that was answered
  uint64_t late = 0;        ///< replies to requests whose time was over
  uint64_t malformed = 0;
  uint64_t oversized = 0;
  uint64_t wrong_cookies = 0;  ///< well-formed, but to no request of ours
  uint64_t refused = 0;        ///< ECONNREFUSED
};

class NgControl {
 public:
  NgControl(const NgControlSettings& settings, std::shared_ptr<GuardedLogger> logger);
  /// Stops.
  ~NgControl();
  NgControl(const NgControl&) = delete;
  NgControl& operator=(const NgControl&) = delete;

  /// Opens the socket and starts the thread; asks nothing by itself. A daemon that is not there is no error. False, and
  /// why, when the address is none or the system gives no socket or thread. Once; listener may be null.
  bool Start(NgListener* listener, std::string& error);

  /// The reply, when it comes within the limit; else none, and error says why. A request that does not fit into a
  /// datagram is refused.
  std::optional<Dictionary> Ask(const Dictionary& request, milliseconds limit, std::string& error,
                                const NgCondition& wanted = nullptr);

  /// Does not wait. False when the request is refused at once, and why at WARN, unless it is not wanted or comes after
  /// the stop; done is not called then. Else done, if there is one, is called once: with the reply, or when the limit
  /// is over, or by Stop.
  bool Post(const Dictionary& request, milliseconds limit, NgDone done = nullptr, const NgCondition& wanted = nullptr);

  /// Has OnTime called soon, from any thread.
  void WakeListener();

  /// Whoever waits returns at once, with an error; what was posted and not yet answered is given up. Neither listener
  /// nor done is called after the return. Again does nothing.
  void Stop();

  NgCounters Counters() const;
  /// "rtpengine 192.0.2.1:2223 (00:1A:...)"; for messages.
  const std::string& Name() const;

 private:
  class Channel;
  const std::unique_ptr<Channel> channel_;
};

}  // namespace kelvaro::jsr309::rtpengine
