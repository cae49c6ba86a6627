#include "udp_socket.h"

#include <netinet/in.h>
#include <netinet/ip.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace media_engine {

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

int UdpSocket::Open(int family) {
  Close();
  fd_ = socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return errno;
  const int on = 1;
  // IPv4 peers must not appear as mapped IPv6 addresses: they would not compare equal to what the SDP said.
  if (family == AF_INET6) setsockopt(fd_, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  return 0;
}

int UdpSocket::Bind(const SocketAddress& address) {
  if (const int error = Open(address.family()); error != 0) return error;
  if (bind(fd_, address.native(), address.length()) == 0) return 0;
  const int error = errno;
  Close();
  return error;
}

int UdpSocket::ConnectBeside(const UdpSocket& first, const SocketAddress& local, const SocketAddress& peer) {
  if (const int error = Open(local.family()); error != 0) return error;
  const int on = 1, off = 0;
  // Of all ways to share a port this one is open to programs of the same user only, and only for this moment.
  for (const int fd : {first.fd_, fd_}) setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
  const bool connected =
      bind(fd_, local.native(), local.length()) == 0 && connect(fd_, peer.native(), peer.length()) == 0;
  const int error = connected ? 0 : errno;
  for (const int fd : {first.fd_, fd_}) setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &off, sizeof off);
  if (!connected) Close();
  return error;
}

void UdpSocket::Close() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

namespace {

void SetOption(int fd, int level, int option, const std::optional<uint8_t>& value, const char* name,
               std::string& refused) {
  if (!value) return;
  const int number = *value;
  if (setsockopt(fd, level, option, &number, sizeof number) == 0) return;
  if (!refused.empty()) refused += ", ";
  refused += std::string(name) + " " + std::to_string(number) + " (" + std::strerror(errno) + ")";
}

/// A packet must be able to leave: 0 stands for the system's default, which -1 restores.
void SetHops(int fd, int level, int option, const std::optional<uint8_t>& value, const char* name,
             std::string& refused) {
  if (!value) return;
  if (*value != 0) return SetOption(fd, level, option, value, name, refused);
  const int system_default = -1;
  setsockopt(fd, level, option, &system_default, sizeof system_default);
}

}  // namespace

std::string UdpSocket::ApplyIpHeader(int family, const IpHeaderSettings& settings) const {
  std::string refused;
  if (family == AF_INET6) {
    SetOption(fd_, IPPROTO_IPV6, IPV6_TCLASS, settings.ipv6_traffic_class, "traffic class", refused);
    SetHops(fd_, IPPROTO_IPV6, IPV6_UNICAST_HOPS, settings.ipv6_hop_limit, "hop limit", refused);
  } else {
    SetOption(fd_, IPPROTO_IP, IP_TOS, settings.ipv4_tos, "type of service", refused);
    SetHops(fd_, IPPROTO_IP, IP_TTL, settings.ipv4_time_to_live, "time to live", refused);
  }
  return refused;
}

}  // namespace media_engine
