/// The requests to one daemon that are under way or waiting: which is sent when, how often, and for how long.
///
/// The rules are those of NgControl: a line for each call-id, a bound on what is under way, repetition under the same
/// cookie, an end in time. There is neither socket nor clock nor lock here: what is to be sent and told comes out as a
/// batch, and the time is handed in.
///
/// Threads: one at a time.
#pragma once

#include "rtpengine/ng_control.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

constexpr milliseconds kNgFirstWait{200};
constexpr milliseconds kNgLongestWait{1600};

/// One request, encoded.
struct NgRequest {
  uint64_t number = 0;  ///< in its cookie; rises
  std::string command;  ///< for messages
  std::string call_id;  ///< empty: neither line nor bounds
  std::shared_ptr<const std::string> datagram;
  milliseconds limit{0};
  bool asked = false;  ///< whoever asked waits, and abandons it when its time is over
  NgDone done;
};

/// What is left to do, outside of any lock.
struct NgBatch {
  std::vector<std::shared_ptr<const std::string>> to_send;
  std::vector<std::pair<NgDone, NgResult>> ended;
};

class NgRequests {
 public:
  enum class Reply { kAwaited, kDuplicate, kLate, kUnknown };

  explicit NgRequests(std::string name) : name_(std::move(name)) {}

  /// False when there are too many already; the request is as it was then.
  bool Add(NgRequest& request, NgTime now, NgBatch& batch);
  /// Awaited only when a request of that number was sent and not answered; it ends then.
  Reply TakeReply(uint64_t number, Dictionary message, NgTime now, NgBatch& batch);
  /// Repeats what is due and ends what was posted and has had its time.
  void TakeTime(NgTime now, NgBatch& batch);
  /// Ends one whose time is over, and gives the text to tell. Empty when there is no such request any more.
  std::string Abandon(uint64_t number, NgTime now, NgBatch& batch);
  void EndAll(const std::string& error, NgBatch& batch);

  /// When TakeTime has something to do; NgTime::max() when there is nothing.
  NgTime Next() const;
  /// What stands in the way, for error texts, until the next reply; empty for nothing.
  void SetTrouble(const std::string& trouble) { trouble_ = trouble; }

  uint64_t sent() const { return sent_; }
  uint64_t repeated() const { return repeated_; }
  uint64_t timeouts() const { return timeouts_; }

 private:
  struct Entry {
    NgRequest request;
    NgTime end;
    bool sent = false;
    milliseconds wait = kNgFirstWait;
    NgTime again;  // when sent
  };
  using Entries = std::unordered_map<uint64_t, Entry>;

  void Send(Entry& entry, NgTime now, NgBatch& batch);
  /// Sends the first of a line, or has it wait until there is room.
  void Begin(Entry& entry, NgTime now, NgBatch& batch);
  void Remove(Entries::iterator at, NgTime now, NgBatch& batch);
  /// Hands the line on to the next.
  void LeaveLine(const NgRequest& request, NgTime now, NgBatch& batch);
  void FillRoom(NgTime now, NgBatch& batch);
  std::string Overdue(const Entry& entry) const;
  void RememberOverdue(uint64_t number);

  const std::string name_;
  Entries entries_;
  std::unordered_map<std::string, std::deque<uint64_t>> lines_;  // by call-id; the first is sent or in ready_
  std::set<uint64_t> ready_;                                     // first of their lines, not sent for want of room
  std::size_t under_way_ = 0;                                    // sent ones that have a line
  std::set<std::pair<NgTime, uint64_t>> ends_, repetitions_;
  std::set<uint64_t> overdue_;  // the last ones that were given up after having been sent
  uint64_t last_number_ = 0;
  std::string trouble_;
  uint64_t sent_ = 0, repeated_ = 0, timeouts_ = 0;
};

}  // namespace kelvaro::jsr309::rtpengine
