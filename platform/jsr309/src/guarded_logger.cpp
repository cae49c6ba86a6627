#include "kelvaro/jsr309/guarded_logger.h"

namespace kelvaro::jsr309 {

void GuardedLogger::Log(LogLevel level, const std::string& id, const std::string& message, const char* file,
                        uint32_t line) {
  // Counted before the look at the logger, and taken back before the count is looked at: who detaches either is seen
  // here or sees this.
  writing_.fetch_add(1);
  if (const LoggingIdLogger* const logger = logger_.load()) Write(*logger, level, id, message, file, line);
  if (writing_.fetch_sub(1) != 1 || logger_.load() != nullptr) return;
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
  idle_.wait(lock, [this] { return writing_.load() == 0; });
}

}  // namespace kelvaro::jsr309
