/// Asks an rtpengine daemon over its "ng" protocol.
///
/// Requests and replies are single UDP datagrams, so either may be lost. A request carries a cookie and is sent again
/// under the same cookie until its reply comes; the daemon answers a repeated cookie with the reply it gave before, so
/// that a repeated request is never carried out twice. Replies to cookies that nobody waits for any more are dropped.
///
/// Ownership: the socket is the client's. Threads: one at a time; a program that wants several requests under way has
/// several clients. Errors: the text names the server and what happened; nothing is thrown but by the constructor.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "rtpengine/bencode.h"
#include "rtpengine/ng_frame.h"

namespace rtpengine_ng {

using kelvaro::jsr309::rtpengine::Bencode;
using kelvaro::jsr309::rtpengine::Dictionary;
using kelvaro::jsr309::rtpengine::FrameNg;
using kelvaro::jsr309::rtpengine::kLongestNgDatagram;
using kelvaro::jsr309::rtpengine::NgFrame;
using kelvaro::jsr309::rtpengine::ParseNg;
using kelvaro::jsr309::rtpengine::TextOf;

struct NgSettings {
  std::string address = "127.0.0.1";  ///< numeric IPv4
  uint16_t port = 22222;
  std::chrono::milliseconds first_wait{200};  ///< before a request is sent again; each further wait is twice as long
  std::chrono::milliseconds limit{2000};      ///< for the whole request
};

class NgClient {
 public:
  /// Throws std::runtime_error when the address is none or there is no socket.
  explicit NgClient(const NgSettings& settings);
  ~NgClient();
  NgClient(const NgClient&) = delete;
  NgClient& operator=(const NgClient&) = delete;

  /// The reply, whose "result" may say "error": what the daemon refuses is an answer, too. None when there was no
  /// answer in time, or nothing but malformed ones; error then says so.
  std::optional<Dictionary> Ask(const Dictionary& request, std::string& error);

  uint64_t retransmissions() const { return retransmissions_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool Send(const std::string& datagram, std::string& error);
  /// The reply to that cookie, if it comes before then.
  std::optional<Dictionary> AwaitReply(const std::string& cookie, Clock::time_point until, std::string& error);
  /// Refused by the operating system on behalf of the server: nothing listens there, or no longer.
  std::string Where() const;

  const NgSettings settings_;
  int socket_ = -1;
  const std::string cookie_prefix_;
  uint64_t last_cookie_ = 0;
  uint64_t retransmissions_ = 0;
};

}  // namespace rtpengine_ng
