#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

/// An address:port of IPv4, or of IPv6; the address without brackets.
struct UdpAddress {
  std::string address;
  std::uint16_t port = 0;

  bool IsIpv6() const { return address.find(':') != std::string::npos; }
  std::string ToString() const { return (IsIpv6() ? "[" + address + "]" : address) + ":" + std::to_string(port); }
};

/// "127.0.0.1:5060" or "[::1]:5060" taken apart; empty when it is no such thing.
std::optional<UdpAddress> parse_udp_address(const std::string& text);

struct UdpDatagram {
  std::vector<std::uint8_t> data;
  UdpAddress from;
};

/// A non-blocking UDP socket on loopback, closed with its owner. Not for use from two threads.
class UdpSocket {
 public:
  /// Binds 127.0.0.1, or ::1; port 0 lets the system choose. Throws std::system_error naming the port.
  explicit UdpSocket(std::uint16_t port = 0, bool ipv6 = false);
  /// Binds another address of loopback.
  explicit UdpSocket(const UdpAddress& at);
  ~UdpSocket();
  UdpSocket(UdpSocket&& other) noexcept;
  UdpSocket& operator=(UdpSocket&& other) noexcept;
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  std::uint16_t Port() const { return port_; }
  int Descriptor() const { return descriptor_; }

  /// False when the system refused; an earlier refusal by the far end's host (ICMP) is not one.
  bool SendTo(const UdpAddress& to, const std::vector<std::uint8_t>& data);
  /// Empty when nothing is waiting.
  std::optional<UdpDatagram> Receive();

 private:
  int descriptor_ = -1;
  std::uint16_t port_ = 0;
};

}  // namespace test_support
