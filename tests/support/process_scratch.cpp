#include "support/process_scratch.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "build_paths.h"
#include "support/process_child.h"

namespace test_support {
namespace {

std::filesystem::path scratch() {
  return std::filesystem::path(KVX_BUILD_DIR) / "scratch";
}

/// The process that made "<pid>_xxxxxx" runs no more.
bool is_left_over(const std::filesystem::path& directory) {
  const long pid = std::strtol(directory.filename().c_str(), nullptr, 10);
  return pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

void remove_left_over() {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(scratch(), ignored)) {
    if (is_left_over(entry.path())) std::filesystem::remove_all(entry.path(), ignored);
  }
}

}  // namespace

std::filesystem::path make_scratch_directory() {
  static std::once_flag first;
  std::filesystem::create_directories(scratch());
  std::call_once(first, remove_left_over);
  std::string name = (scratch() / (std::to_string(getpid()) + "_XXXXXX")).string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no scratch directory " + name + ": " + std::strerror(errno));
  }
  return name;
}

std::filesystem::path scratch_file(const std::string& name) {
  static const TemporaryDirectory directory;
  static std::atomic<int> count{0};
  return directory.Path() / (std::to_string(++count) + "_" + name);
}

}  // namespace test_support
