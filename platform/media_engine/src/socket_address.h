/// An IPv4 or IPv6 address with a port, as sockets take it and as people write it.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace media_engine {

class SocketAddress {
 public:
  SocketAddress() : native_{} {}

  /// Numeric addresses only; brackets around an IPv6 literal are taken off.
  static std::optional<SocketAddress> Parse(const std::string& text, uint16_t port);
  /// What a socket is bound to; none when the system does not say.
  static std::optional<SocketAddress> OfSocket(int fd);

  int family() const { return native_.base.sa_family; }
  bool empty() const { return family() == AF_UNSPEC; }
  uint16_t port() const { return ntohs(family() == AF_INET6 ? native_.v6.sin6_port : native_.v4.sin_port); }
  SocketAddress WithPort(uint16_t port) const;
  /// All zero: no particular address.
  bool IsWildcard() const;
  /// The address without the port.
  std::string Host() const;
  /// "192.0.2.1:5004" or "[2001:db8::1]:5004"
  std::string Text() const;
  bool SameHost(const SocketAddress& other) const {
    if (family() != other.family()) return false;
    if (family() != AF_INET6) return native_.v4.sin_addr.s_addr == other.native_.v4.sin_addr.s_addr;
    return std::memcmp(&native_.v6.sin6_addr, &other.native_.v6.sin6_addr, sizeof native_.v6.sin6_addr) == 0;
  }
  bool operator==(const SocketAddress& other) const { return SameHost(other) && port() == other.port(); }
  bool operator!=(const SocketAddress& other) const { return !(*this == other); }

  const sockaddr* native() const { return &native_.base; }
  sockaddr* native() { return &native_.base; }
  /// The length of the address at hand, and of the room for any.
  socklen_t length() const { return family() == AF_INET6 ? sizeof native_.v6 : sizeof native_.v4; }
  static constexpr socklen_t kRoom = sizeof(sockaddr_in6);

 private:
  union Native {
    sockaddr_in6 v6;
    sockaddr_in v4;
    sockaddr base;
  } native_;
};

}  // namespace media_engine
