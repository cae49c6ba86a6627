/// A UDP socket towards one daemon, and a bell to wake whoever waits for it.
#pragma once

#include "rtpengine/ng_frame.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

/// Non-blocking and connected: only the daemon's datagrams come in, and it is told when nobody listens there.
/// Threads: Send and Ring from any; the rest from one. Errors of the system are texts.
class NgSocket {
 public:
  enum class Received { kDatagram, kNothing, kRefused, kOversized, kFailed };
  enum class Sent { kYes, kRefused, kFailed };

  NgSocket() = default;
  ~NgSocket();
  NgSocket(const NgSocket&) = delete;
  NgSocket& operator=(const NgSocket&) = delete;

  /// A numeric address, IPv4 or IPv6 without brackets. False, and why, when it is none or the system refuses.
  bool Open(const std::string& address, uint16_t port, std::string& error);

  /// A refusal is what became of an earlier datagram: this one is on its way all the same. A full buffer of the system
  /// counts as sent: datagrams may be lost.
  Sent Send(const std::string& datagram, std::string& error);
  /// The datagram lies in the socket's memory until the next call.
  Received Receive(std::string_view& datagram, std::string& error);
  /// Of the datagram that came last: there may be keys in it.
  void WipeReceived();
  /// Until something comes, Ring is called, or the time is over.
  void Wait(std::chrono::milliseconds time);
  void Ring();

 private:
  int socket_ = -1, bell_ = -1;
  std::vector<char> room_;
  std::size_t taken_ = 0;  // octets of room_
};

}  // namespace kelvaro::jsr309::rtpengine
