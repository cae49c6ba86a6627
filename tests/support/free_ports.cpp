#include "support/free_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "support/udp_socket.h"

namespace test_support {

std::uint16_t free_udp_port() {
  return UdpSocket().Port();
}

bool udp_port_is_free(std::uint16_t port) {
  try {
    UdpSocket socket(port);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

OccupiedTcpPort::OccupiedTcpPort() {
  descriptor_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (descriptor_ < 0 || bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(descriptor_, 1) != 0 || getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    const int error = errno;
    if (descriptor_ >= 0) close(descriptor_);
    throw std::system_error(error, std::generic_category(), "no TCP port on 127.0.0.1");
  }
  port_ = ntohs(address.sin_port);
}

OccupiedTcpPort::~OccupiedTcpPort() {
  close(descriptor_);
}

}  // namespace test_support
