/// Logging that stops when the logger's owner wants it back.
///
/// The application lends its logger until MSControlFactory::Stop returns. Objects of the library and of its drivers
/// live longer: handles that the application still holds, a server's last thread. They log through a GuardedLogger,
/// which lets go of the application's logger once and for all.
#pragma once

#include "kelvaro/logger.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace kelvaro::jsr309 {

/// Threads: all operations from any thread. No lock is held while the application's logger is called. Records are
/// counted in one of many places each, by thread, or cores that log would wait for each other's cache line.
class GuardedLogger {
 public:
  /// A null logger drops every record.
  explicit GuardedLogger(const LoggingIdLogger* logger) : logger_(logger) {}
  GuardedLogger(const GuardedLogger&) = delete;
  GuardedLogger& operator=(const GuardedLogger&) = delete;

  /// One record; an empty id stands for none. Does nothing after Detach.
  void Log(LogLevel level, const std::string& id, const std::string& message, const char* file, uint32_t line);
  /// After the return the application's logger is not touched any more. Waits for records that are being written.
  void Detach();

 private:
  /// Records that look at logger_ or are on their way into it, of some of the threads.
  struct alignas(64) Writers {
    std::atomic<unsigned> count{0};
  };

  Writers& WritersOfThisThread();
  bool IsIdle() const;
  static void Write(const LoggingIdLogger& logger, LogLevel level, const std::string& id, const std::string& message,
                    const char* file, uint32_t line);

  std::atomic<const LoggingIdLogger*> logger_;  // null once detached
  std::array<Writers, 16> writers_;
  std::mutex mutex_;  // for the wait only
  std::condition_variable idle_;
};

}  // namespace kelvaro::jsr309

/// Logs with the place of the call. logger: a GuardedLogger.
#define KELVARO_LOG(logger, level, id, message) (logger).Log((level), (id), (message), __FILE__, __LINE__)
