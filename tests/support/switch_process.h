#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "build_paths.h"
#include "support/process_child.h"
#include "support/process_inspection.h"
#include "support/udp_socket.h"

namespace test_support {

struct SwitchProcessSettings {
  std::filesystem::path conf = std::filesystem::path(KVX_SOURCE_DIR) / "conf";
  std::filesystem::path mod = std::filesystem::path(KVX_BUILD_DIR) / "mod";
  std::string log_level = "debug";
  /// Variables of the configuration; the two ports are 0, any free one, unless set here.
  std::vector<std::pair<std::string, std::string>> variables;
  std::filesystem::path directory;  // of log and ready file; must exist
};

/// The switch as it is installed, run as a program of its own with the sample configuration.
class SwitchProcess {
 public:
  /// Starts it and returns at once.
  explicit SwitchProcess(const SwitchProcessSettings& settings);

  /// Until it listens; throws std::runtime_error with the end of its log when it ends before or takes too long.
  void WaitReady(std::chrono::milliseconds limit = std::chrono::seconds(20));
  const UdpAddress& Sip() const { return sip_; }
  const UdpAddress& EventSocket() const { return event_socket_; }
  pid_t Pid() const { return child_->Pid(); }
  bool Running() { return child_->Running(); }

  /// The output of an API command, over a connection of its own; throws std::runtime_error when there is no answer.
  std::string Api(const std::string& line, std::chrono::milliseconds limit = std::chrono::seconds(10));

  /// What it holds once that has not changed for a moment, so that a connection just closed is not counted.
  ProcessHoldings SettledHoldings(std::chrono::milliseconds limit = std::chrono::seconds(10));
  /// Waits until it holds what it held `before`; the difference in words, empty when there is none.
  std::string DifferenceFrom(const ProcessHoldings& before, std::chrono::milliseconds limit);

  std::string Log() const { return child_->Output(); }
  /// Waits until the log has `text`.
  bool WaitForLog(const std::string& text, std::chrono::milliseconds limit);

  void Interrupt();
  /// How it ended; empty when it still runs after `limit`.
  std::optional<ChildExit> WaitForExit(std::chrono::milliseconds limit) { return child_->WaitForExit(limit); }
  /// SIGINT and wait; throws std::runtime_error unless it ends with exit code 0 in time.
  void Stop(std::chrono::milliseconds limit = std::chrono::seconds(20));

 private:
  [[noreturn]] void Fail(const std::string& what);

  std::filesystem::path ready_file_;
  std::string password_;
  UdpAddress sip_;
  UdpAddress event_socket_;
  std::unique_ptr<ChildProcess> child_;
};

/// The program of the build that is under test, by name.
std::filesystem::path built_program(const std::string& name);

/// The log's lines at ERROR and above, for calls in which there must be none.
std::vector<std::string> error_lines(const std::string& log);

}  // namespace test_support
