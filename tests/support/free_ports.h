#pragma once

#include <cstdint>

namespace test_support {

/// A port of 127.0.0.1 that nobody had a moment ago, for programs that must be told one before they start. Somebody
/// may take it in between; whoever uses it tries again with another when the program says so.
std::uint16_t free_udp_port();

/// Whether the UDP port of 127.0.0.1 can be bound now.
bool udp_port_is_free(std::uint16_t port);

/// Listens on a TCP port of 127.0.0.1 that the system chose: a port in use, for as long as it lives.
class OccupiedTcpPort {
 public:
  OccupiedTcpPort();
  ~OccupiedTcpPort();
  OccupiedTcpPort(const OccupiedTcpPort&) = delete;
  OccupiedTcpPort& operator=(const OccupiedTcpPort&) = delete;

  std::uint16_t Port() const { return port_; }

 private:
  int descriptor_ = -1;
  std::uint16_t port_ = 0;
};

}  // namespace test_support
