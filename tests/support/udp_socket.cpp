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

sockaddr_in socket_address(const std::string& address, std::uint16_t port) {
  sockaddr_in out{};
  out.sin_family = AF_INET;
  out.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &out.sin_addr) != 1) {
    throw std::system_error(EINVAL, std::generic_category(), "not an IPv4 address: " + address);
  }
  return out;
}

}  // namespace

std::optional<UdpAddress> parse_udp_address(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  UdpAddress parsed;
  parsed.address = text.substr(0, colon);
  in_addr ignored{};
  if (inet_pton(AF_INET, parsed.address.c_str(), &ignored) != 1) return std::nullopt;
  char* end = nullptr;
  const unsigned long port = std::strtoul(text.c_str() + colon + 1, &end, 10);
  if (end == text.c_str() + colon + 1 || *end != '\0' || port == 0 || port > 65535) return std::nullopt;
  parsed.port = static_cast<std::uint16_t>(port);
  return parsed;
}

UdpSocket::UdpSocket(std::uint16_t port) {
  descriptor_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "no UDP socket");
  sockaddr_in address = socket_address("127.0.0.1", port);
  socklen_t length = sizeof(address);
  if (bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    const int error = errno;
    close(descriptor_);
    throw std::system_error(error, std::generic_category(), "UDP port 127.0.0.1:" + std::to_string(port));
  }
  port_ = ntohs(address.sin_port);
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
  const sockaddr_in address = socket_address(to.address, to.port);
  for (int attempt = 0; attempt < 3; ++attempt) {
    const ssize_t sent =
        sendto(descriptor_, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    if (sent == static_cast<ssize_t>(data.size())) return true;
    if (errno != ECONNREFUSED && errno != EINTR) return false;
  }
  return false;
}

std::optional<UdpDatagram> UdpSocket::Receive() {
  // Asked many times for each packet that is there: one buffer for all, copied from.
  thread_local std::array<std::uint8_t, 65536> buffer;
  UdpDatagram datagram;
  sockaddr_in from{};
  while (true) {
    socklen_t length = sizeof(from);
    const ssize_t size =
        recvfrom(descriptor_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (size >= 0) {
      datagram.data.assign(buffer.begin(), buffer.begin() + size);
      break;
    }
    if (errno != EINTR && errno != ECONNREFUSED) return std::nullopt;
  }
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &from.sin_addr, text, sizeof(text));
  datagram.from = {text, ntohs(from.sin_port)};
  return datagram;
}

}  // namespace test_support
