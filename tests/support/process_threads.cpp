#include "support/process_threads.h"

#include <sys/ptrace.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "support/process_child.h"

namespace test_support {
namespace {

constexpr int kAttempts = 1000;

std::filesystem::path tasks_of(pid_t process) {
  return std::filesystem::path("/proc") / std::to_string(process) / "task";
}

std::vector<pid_t> threads_named(pid_t process, const std::string& name) {
  std::vector<pid_t> found;
  for (const auto& task : std::filesystem::directory_iterator(tasks_of(process))) {
    if (read_text_file(task.path() / "comm") == name + "\n")
      found.push_back(std::stoi(task.path().filename().string()));
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Not on its way through the program. Where the kernel does not tell, it counts as waiting.
bool waits_in_the_kernel(pid_t process, pid_t thread) {
  return read_text_file(tasks_of(process) / std::to_string(thread) / "syscall").rfind("-1", 0) != 0;
}

void demand(long result, const std::string& what) {
  if (result != -1) return;
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

}  // namespace

StoppedThreads::StoppedThreads(pid_t process, const std::string& name, std::size_t first, std::size_t count) {
  const std::vector<pid_t> threads = threads_named(process, name);
  if (threads.size() < first + count) {
    throw std::runtime_error("process " + std::to_string(process) + " has " + std::to_string(threads.size()) +
                             " threads named " + name);
  }
  try {
    for (std::size_t i = first; i < first + count; ++i) Stop(process, threads[i]);
  } catch (...) {
    Continue();
    throw;
  }
}

void StoppedThreads::Stop(pid_t process, pid_t thread) {
  const std::string who = "thread " + std::to_string(thread);
  demand(ptrace(PTRACE_SEIZE, thread, nullptr, nullptr), who + " cannot be traced");
  stopped_.push_back(thread);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    demand(ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), who + " cannot be interrupted");
    demand(waitpid(thread, nullptr, __WALL), who + " does not stop");
    if (waits_in_the_kernel(process, thread)) return;
    demand(ptrace(PTRACE_CONT, thread, nullptr, nullptr), who + " does not go on");
    wait_until(std::chrono::milliseconds(1), [] { return false; });
  }
  throw std::runtime_error(who + " never waits");
}

void StoppedThreads::Continue() {
  for (pid_t thread : stopped_) ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
  stopped_.clear();
}

}  // namespace test_support
