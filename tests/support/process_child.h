#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

struct ChildSettings {
  std::vector<std::string> command;      // program (looked up in PATH) and its arguments
  std::filesystem::path output;          // where its standard output and error go, from the start
  std::filesystem::path directory;       // working directory; empty: ours
  std::vector<std::string> environment;  // NAME=VALUE added to ours
};

/// How a child ended.
struct ChildExit {
  int code = -1;   // exit code; -1 when a signal ended it
  int signal = 0;  // 0 when it exited

  bool Succeeded() const { return code == 0; }
  std::string ToString() const;  // "exit code 1", "signal 11 (Segmentation fault)"
};

/// A program run beside the test: its input is empty, its output goes to a file, and it never outlives its owner (the
/// kernel ends it when this process dies). Must be started from a thread that lives as long as the child.
class ChildProcess {
 public:
  /// Throws std::runtime_error when the program cannot be started.
  explicit ChildProcess(const ChildSettings& settings);
  /// Kills what still runs: the last resort; tests end their children in an orderly way before.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return pid_; }
  bool Running();
  void Signal(int number);
  /// Empty when the child still runs after `limit`.
  std::optional<ChildExit> WaitForExit(std::chrono::milliseconds limit);
  /// What it has written so far.
  std::string Output() const;

 private:
  pid_t pid_ = -1;
  std::filesystem::path output_;
  std::optional<ChildExit> exit_;
};

/// Asks `condition` every few milliseconds until it holds (true) or `limit` has passed (false).
bool wait_until(std::chrono::milliseconds limit, const std::function<bool()>& condition);

/// The whole file; empty when there is none.
std::string read_text_file(const std::filesystem::path& path);
/// The last lines of a text, indented: what a failure message shows of a log.
std::string last_lines(const std::string& text, std::size_t count);

/// A directory of its own in the build directory, removed with its owner, or by a later program when that was killed.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace test_support
