#include "socket_address.h"

#include <arpa/inet.h>

namespace media_engine {

std::optional<SocketAddress> SocketAddress::Parse(const std::string& text, uint16_t port) {
  SocketAddress address;
  std::string literal = text;
  if (literal.size() > 2 && literal.front() == '[' && literal.back() == ']') {
    literal = literal.substr(1, literal.size() - 2);
    if (literal.find(':') == std::string::npos) return std::nullopt;
  }
  if (inet_pton(AF_INET, literal.c_str(), &address.native_.v4.sin_addr) == 1) {
    address.native_.v4.sin_family = AF_INET;
    address.native_.v4.sin_port = htons(port);
    return address;
  }
  address = SocketAddress();
  if (inet_pton(AF_INET6, literal.c_str(), &address.native_.v6.sin6_addr) == 1) {
    address.native_.v6.sin6_family = AF_INET6;
    address.native_.v6.sin6_port = htons(port);
    return address;
  }
  return std::nullopt;
}

std::optional<SocketAddress> SocketAddress::OfSocket(int fd) {
  SocketAddress address;
  socklen_t length = kRoom;
  if (getsockname(fd, address.native(), &length) != 0) return std::nullopt;
  return address;
}

SocketAddress SocketAddress::WithPort(uint16_t port) const {
  SocketAddress address = *this;
  (family() == AF_INET6 ? address.native_.v6.sin6_port : address.native_.v4.sin_port) = htons(port);
  return address;
}

bool SocketAddress::IsWildcard() const {
  if (family() == AF_INET6) return IN6_IS_ADDR_UNSPECIFIED(&native_.v6.sin6_addr);
  return native_.v4.sin_addr.s_addr == INADDR_ANY;
}

std::string SocketAddress::Host() const {
  char text[INET6_ADDRSTRLEN] = "";
  if (family() == AF_INET6) {
    inet_ntop(AF_INET6, &native_.v6.sin6_addr, text, sizeof text);
  } else if (family() == AF_INET) {
    inet_ntop(AF_INET, &native_.v4.sin_addr, text, sizeof text);
  }
  return text;
}

std::string SocketAddress::Text() const {
  const std::string host = family() == AF_INET6 ? "[" + Host() + "]" : Host();
  return host + ":" + std::to_string(port());
}

}  // namespace media_engine
