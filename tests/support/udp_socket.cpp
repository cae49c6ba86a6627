#include "support/udp_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace test_support {
namespace {

struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = sizeof(sockaddr_storage);

  sockaddr* Raw() { return reinterpret_cast<sockaddr*>(&storage); }
  const sockaddr* Raw() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

// False when the text is no numeric address.
bool fill_socket_address(const UdpAddress& from, SocketAddress& out) {
  if (from.IsIpv6()) {
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&out.storage);
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(from.port);
    out.length = sizeof(*v6);
    return inet_pton(AF_INET6, from.address.c_str(), &v6->sin6_addr) == 1;
  }
  auto* v4 = reinterpret_cast<sockaddr_in*>(&out.storage);
  v4->sin_family = AF_INET;
  v4->sin_port = htons(from.port);
  out.length = sizeof(*v4);
  return inet_pton(AF_INET, from.address.c_str(), &v4->sin_addr) == 1;
}

SocketAddress socket_address(const UdpAddress& from) {
  SocketAddress out;
  if (!fill_socket_address(from, out)) {
    throw std::system_error(EINVAL, std::generic_category(), "not a numeric address: " + from.address);
  }
  return out;
}

UdpAddress udp_address(const SocketAddress& from) {
  char text[INET6_ADDRSTRLEN] = "";
  if (from.storage.ss_family == AF_INET6) {
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&from.storage);
    inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof(text));
    return {text, ntohs(v6->sin6_port)};
  }
  const auto* v4 = reinterpret_cast<const sockaddr_in*>(&from.storage);
  inet_ntop(AF_INET, &v4->sin_addr, text, sizeof(text));
  return {text, ntohs(v4->sin_port)};
}

}  // namespace

std::optional<UdpAddress> parse_udp_address(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  UdpAddress parsed;
  parsed.address = text.substr(0, colon);
  const bool bracketed = colon > 1 && text[0] == '[' && text[colon - 1] == ']';
  if (bracketed) parsed.address = text.substr(1, colon - 2);
  SocketAddress ignored;
  if (parsed.IsIpv6() != bracketed || !fill_socket_address(parsed, ignored)) return std::nullopt;
  char* end = nullptr;
  const unsigned long port = std::strtoul(text.c_str() + colon + 1, &end, 10);
  if (end == text.c_str() + colon + 1 || *end != '\0' || port == 0 || port > 65535) return std::nullopt;
  parsed.port = static_cast<std::uint16_t>(port);
  return parsed;
}

UdpSocket::UdpSocket(std::uint16_t port, bool ipv6) : UdpSocket(UdpAddress{ipv6 ? "::1" : "127.0.0.1", port}) {}

UdpSocket::UdpSocket(const UdpAddress& wanted) {
  descriptor_ = socket(wanted.IsIpv6() ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "no UDP socket");
  SocketAddress address = socket_address(wanted);
  if (bind(descriptor_, address.Raw(), address.length) != 0 ||
      getsockname(descriptor_, address.Raw(), &address.length) != 0) {
    const int error = errno;
    close(descriptor_);
    throw std::system_error(error, std::generic_category(), "UDP port " + wanted.ToString());
  }
  port_ = udp_address(address).port;
}

UdpSocket::~UdpSocket() {
  if (descriptor_ >= 0) close(descriptor_);
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), port_(std::exchange(other.port_, 0)) {}

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  std::swap(port_, other.port_);
  return *this;
}

bool UdpSocket::SendTo(const UdpAddress& to, const std::vector<std::uint8_t>& data) {
  const SocketAddress address = socket_address(to);
  for (int attempt = 0; attempt < 3; ++attempt) {
    const ssize_t sent = sendto(descriptor_, data.data(), data.size(), 0, address.Raw(), address.length);
    if (sent == static_cast<ssize_t>(data.size())) return true;
    if (errno != ECONNREFUSED && errno != EINTR) return false;
  }
  return false;
}

std::optional<UdpDatagram> UdpSocket::Receive() {
  // Asked many times for each packet that is there: one buffer for all, copied from.
  thread_local std::array<std::uint8_t, 65536> buffer;
  UdpDatagram datagram;
  SocketAddress from;
  while (true) {
    from.length = sizeof(from.storage);
    const ssize_t size = recvfrom(descriptor_, buffer.data(), buffer.size(), 0, from.Raw(), &from.length);
    if (size >= 0) {
      datagram.data.assign(buffer.begin(), buffer.begin() + size);
      break;
    }
    if (errno != EINTR && errno != ECONNREFUSED) return std::nullopt;
  }
  datagram.from = udp_address(from);
  return datagram;
}

}  // namespace test_support
