#include "kelvaro/jsr309/guarded_logger.h"

#include <algorithm>

namespace kelvaro::jsr309 {

void GuardedLogger::Log(LogLevel level, const std::string& id, const std::string& message, const char* file,
                        uint32_t line) {
  // Counted before the look at the logger, and taken back before the count is looked at: who detaches either is seen
  // here or sees this.
  std::atomic<unsigned>& writing = WritersOfThisThread().count;
  writing.fetch_add(1);
  if (const LoggingIdLogger* const logger = logger_.load()) Write(*logger, level, id, message, file, line);
  if (writing.fetch_sub(1) != 1 || logger_.load() != nullptr) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  idle_.notify_all();
}

void GuardedLogger::Write(const LoggingIdLogger& logger, LogLevel level, const std::string& id,
                          const std::string& message, const char* file, uint32_t line) {
  try {
    if (id.empty()) {
      logger.Log(level, message, file, line);
    } else {
      logger.LogWithId(level, id.c_str(), message, file, line);
    }
  } catch (...) {
    // A record that cannot be written is lost: there is no other place to say so.
  }
}

void GuardedLogger::Detach() {
  logger_.store(nullptr);
  std::unique_lock<std::mutex> lock(mutex_);
  idle_.wait(lock, [this] { return IsIdle(); });
}

GuardedLogger::Writers& GuardedLogger::WritersOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  thread_local const std::size_t own = threads++;
  return writers_[own % writers_.size()];
}

bool GuardedLogger::IsIdle() const {
  return std::all_of(writers_.begin(), writers_.end(), [](const Writers& some) { return some.count.load() == 0; });
}

}  // namespace kelvaro::jsr309
