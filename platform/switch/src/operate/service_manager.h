#pragma once

#include <chrono>
#include <string>

namespace kvx_switch {

/// A service manager that starts the switch wants to know when it serves, when it is about to end, and that it has not
/// hung. This tells it, by the protocol of sd_notify(3): datagrams to the socket that NOTIFY_SOCKET names, a path or,
/// with
/// "@", an abstract name. Without one it does nothing. The environment is read once, when it is made; one thread at a
/// time.
class ServiceManager {
 public:
  ServiceManager();
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// "READY=1" and the like, one a line. False when nobody was told. Never waits for the manager to read.
  bool Notify(const std::string& state);

  /// How often to say "WATCHDOG=1": half of what the manager waits (WATCHDOG_USEC); 0: it does not wait for that.
  std::chrono::milliseconds watchdog_pause() const { return watchdog_pause_; }

 private:
  int socket_ = -1;
  std::string address_;  // with a 0 in front when it is abstract
  std::chrono::milliseconds watchdog_pause_{0};
};

}  // namespace kvx_switch
