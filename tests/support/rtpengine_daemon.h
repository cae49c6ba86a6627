#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/process_child.h"

namespace test_support {

/// A real rtpengine (Debian's rtpengine-daemon), without kernel module and configuration file, on a loopback address
/// that is nobody else's, so that its ports are free whatever else runs. It ends with its owner.
class RtpengineDaemon {
 public:
  struct Options {
    /// Empty: an address of 127.0.0.0/8 that no other daemon of this machine's tests has.
    std::string address;
    std::uint16_t port_min = 30000, port_max = 30999;
    /// Options of the program, beside those that are needed anyway.
    std::vector<std::string> more = {};
    /// As the user "nobody"; only root can.
    bool as_nobody = false;
  };

  /// Starts it and waits until it answers. Throws std::runtime_error with its last lines when it does not.
  RtpengineDaemon();
  explicit RtpengineDaemon(Options options);
  ~RtpengineDaemon();
  RtpengineDaemon(const RtpengineDaemon&) = delete;
  RtpengineDaemon& operator=(const RtpengineDaemon&) = delete;

  /// Where its media ports and its control port are.
  const std::string& Address() const { return options_.address; }
  std::uint16_t ControlPort() const { return control_port_; }
  pid_t Pid() const { return child_->Pid(); }
  /// What it has written since it was started last.
  std::string Log() const { return child_->Output(); }

  /// How many calls it has; throws std::runtime_error when it does not say.
  std::size_t Calls() const;

  /// SIGKILL, and waits for its end.
  void Kill();
  /// Again, at the same address and ports.
  void Start();

 private:
  std::vector<std::string> Command(std::uint16_t port) const;
  /// Its reply to a command as it travels; empty when it ends instead, or says nothing for half a minute.
  std::string Ask(const std::string& command) const;
  /// Whether it answers before it ends.
  bool AwaitPong();

  Options options_;
  std::uint16_t control_port_ = 0;
  TemporaryDirectory directory_;
  std::unique_ptr<ChildProcess> child_;
};

}  // namespace test_support
