#include "kelvaro/jsr309/guarded_logger.h"

namespace kelvaro::jsr309 {

void GuardedLogger::Log(LogLevel level, const std::string& id, const std::string& message, const char* file,
                        uint32_t line) {
  const LoggingIdLogger* logger = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (logger_ == nullptr) return;
    logger = logger_;
    ++writing_;
  }
  try {
    if (id.empty()) {
      logger->Log(level, message, file, line);
    } else {
      logger->LogWithId(level, id.c_str(), message, file, line);
    }
  } catch (...) {
    // A record that cannot be written is lost: there is no other place to say so.
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (--writing_ == 0) idle_.notify_all();
}

void GuardedLogger::Detach() {
  std::unique_lock<std::mutex> lock(mutex_);
  logger_ = nullptr;
  idle_.wait(lock, [this] { return writing_ == 0; });
}

}  // namespace kelvaro::jsr309
