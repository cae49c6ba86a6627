/// What the sessions and endpoints of one embedded server share with it.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "media_engine/engine.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace kelvaro::jsr309 {

/// Threads: all operations from any thread.
class EmbeddedContext {
 public:
  EmbeddedContext(std::string name, std::chrono::milliseconds request_limit, std::shared_ptr<GuardedLogger> logger)
      : name_(std::move(name)), request_limit_(request_limit), logger_(std::move(logger)) {}

  std::chrono::milliseconds request_limit() const { return request_limit_; }
  void Log(media_engine::LogLevel level, const std::string& text) const;
  /// Names a setting that was asked for and is not there: once per name, however many calls ask for it.
  void NameUnsupported(const std::string& setting, const std::string& consequence);

 private:
  const std::string name_;
  const std::chrono::milliseconds request_limit_;
  const std::shared_ptr<GuardedLogger> logger_;
  std::mutex mutex_;
  std::set<std::string> named_;  // guarded by mutex_
};

}  // namespace kelvaro::jsr309
