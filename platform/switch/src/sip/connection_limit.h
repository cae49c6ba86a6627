#pragma once

#include <dirent.h>
#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "console/file_descriptor.h"

/// Whoever connects over TCP and says nothing holds one of our file descriptors. The SIP stack takes every connection;
/// when a stranger has made enough of them, no call finds a descriptor for its media any more, and nobody else can
/// connect. This closes what is too much.
///
/// Once the system counts more TCP sockets than are allowed here, whosever they are, it looks through the process's own
/// descriptors for connections that were made to one address, and shuts down those beyond the limit: of the far end
/// that has the most of them, the one that has been silent longest. The stack then closes it as after any far end's
/// hang-up. To be used on the thread of the stack that serves the address, since only there a descriptor cannot become
/// another's between the look and the shutdown.
namespace kvx_switch {

class ConnectionLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// `address` is numeric, IPv4 or IPv6 without brackets. No more than `most` connections, and never more than a
  /// quarter of the descriptors that the process may have.
  ConnectionLimit(const std::string& profile, const std::string& address, uint16_t port, uint32_t most);

  /// Looks, unless it has just looked and hardly a connection was made since. Returns how long the stack may wait
  /// for something to happen before this is to be called again.
  std::chrono::milliseconds Look(Clock::time_point now);

 private:
  using Address = std::vector<uint8_t>;
  struct Connection {
    int descriptor = -1;
    uint32_t silent_ms = 0;
  };
  using Connections = std::map<Address, std::vector<Connection>>;

  size_t Find(Connections& connections);
  bool IsOurs(const sockaddr_storage& local) const;
  void ShutDown(Connections& connections, size_t excess, size_t most, Clock::time_point now);

  const std::string profile_;
  const uint32_t most_;
  const uint16_t port_;
  Address address_;
  std::unique_ptr<DIR, int (*)(DIR*)> descriptors_;  // kept open: when it is needed most, there is none left to open it
  FileDescriptor sockets_;                           // what the system counts, kept open for the same reason
  size_t in_use_at_last_look_ = 0;
  Clock::time_point next_glance_{};
  Clock::time_point next_look_{};
  Clock::time_point next_warning_{};
  size_t closed_ = 0;  // since the last warning
};

}  // namespace kvx_switch
