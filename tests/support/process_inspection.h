#pragma once

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace test_support {

/// What a process holds of the system, as its directory in /proc tells: compared before and after a call to see
/// whether everything came back.
struct ProcessHoldings {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  std::set<std::uint16_t> udp_ports;  // local ports of its UDP sockets, IPv4

  std::string ToString() const;  // "14 file descriptors, 9 threads, UDP ports: 5060"
};

/// Throws std::runtime_error when the process is gone: no data must not look like nothing held.
ProcessHoldings inspect_process(pid_t pid);

/// Whether the process has a TCP socket, of whatever state, with that local port.
bool tcp_port_is_bound(pid_t pid, std::uint16_t port);

/// Whether any process of this machine has a UDP socket of IPv4 on the port.
bool udp_port_is_open_anywhere(std::uint16_t port);

bool operator==(const ProcessHoldings& left, const ProcessHoldings& right);
inline bool operator!=(const ProcessHoldings& left, const ProcessHoldings& right) {
  return !(left == right);
}

/// What `now` holds more or less than `before`, in words; empty when nothing.
std::string describe_difference(const ProcessHoldings& before, const ProcessHoldings& now);

}  // namespace test_support
