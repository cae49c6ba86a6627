#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace test_support {

/// A thread that gets stuck is nothing that a test may ask of a program as it is delivered. This stops threads of a
/// child process from outside, as a debugger does (ptrace), with nothing in the program made for it: they stand still
/// wherever they are, and the rest of the process goes on.
///
/// Of children of this process only, and on one thread of ours from the first to the last.
class StoppedThreads {
 public:
  /// Of the threads with that name (15 characters at most), in order of their making, `count` from the `first`. They
  /// are caught while they wait in the kernel, where they hold no lock. Throws std::runtime_error when there are fewer
  /// or the system forbids it.
  StoppedThreads(pid_t process, const std::string& name, std::size_t first, std::size_t count);
  ~StoppedThreads() { Continue(); }
  StoppedThreads(const StoppedThreads&) = delete;
  StoppedThreads& operator=(const StoppedThreads&) = delete;

  /// They go on where they were.
  void Continue();

 private:
  void Stop(pid_t process, pid_t thread);

  std::vector<pid_t> stopped_;
};

}  // namespace test_support
