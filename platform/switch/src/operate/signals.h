#pragma once

#include <chrono>
#include <csignal>
#include <optional>

namespace kvx_switch {

/// SIGINT, SIGTERM and SIGHUP as something to read, on the main thread alone. To be made before any other thread is.
/// The hang-up of the terminal that the switch runs on ends it like an interruption; elsewhere SIGHUP asks to open the
/// log file anew.
class Signals {
 public:
  enum class Kind { kEnd, kReopen };

  Signals();

  /// The next one; empty when none comes within `timeout`. 0: waits for as long as it takes.
  std::optional<Kind> Next(std::chrono::milliseconds timeout);
  /// Whether one that ends the switch is there.
  bool EndIsThere();

 private:
  const bool on_terminal_;
  sigset_t all_{};
  sigset_t ending_{};
};

}  // namespace kvx_switch
