#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace kvx_switch {

/// How a test's phone is reached.
struct SipPeerTransport {
  bool tcp = false;
  bool ipv6 = false;
};

/// What a test's phone speaks through: on loopback, over UDP, or over TCP, where it takes connections and makes one to
/// whom it sends first. Whole messages go in and come out. Not for use from two threads.
class SipPeerSocket {
 public:
  static std::unique_ptr<SipPeerSocket> Open(SipPeerTransport transport);
  virtual ~SipPeerSocket() = default;

  /// "127.0.0.1:40000" or "[::1]:40000", where it waits.
  virtual std::string Address() const = 0;
  /// To "address:port"; over TCP, through the connection that there is, whoever made it.
  virtual void Send(const std::string& to, const std::string& message) = 0;
  /// Empty when nothing has come by then.
  virtual std::optional<std::string> Receive(std::chrono::steady_clock::time_point deadline) = 0;
};

/// Takes the first whole message (RFC 3261, 18.3) off `stream`; empty when there is none yet. Line ends between
/// messages are keep-alives and passed over.
std::optional<std::string> TakeSipMessage(std::string& stream);

}  // namespace kvx_switch
