/// A logger for the control library that keeps every record for a test to look at.
#pragma once

#include "kelvaro/logger.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace test_support {

/// Threads: all operations from any thread.
class RecordingLogger : public kelvaro::LoggingIdLogger {
 public:
  struct Record {
    kelvaro::LogLevel level;
    std::string message;
  };

  bool Init(const char* name, kelvaro::LogLevel level) override { return Init(name, level, ""); }
  bool Init(const char*, kelvaro::LogLevel, const char*) override { return true; }
  void Log(kelvaro::LogLevel level, std::string message, const char*, uint32_t) const override {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back({level, std::move(message)});
  }

  std::vector<Record> Records() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return records_;
  }

  size_t Count() const { return Records().size(); }

  /// The messages of one level, in order.
  std::vector<std::string> Messages(kelvaro::LogLevel level) const {
    std::vector<std::string> messages;
    for (const Record& record : Records()) {
      if (record.level == level) messages.push_back(record.message);
    }
    return messages;
  }

  /// Whether a record of that level contains the text.
  bool Has(kelvaro::LogLevel level, const std::string& text) const {
    const auto messages = Messages(level);
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string& message) { return message.find(text) != std::string::npos; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::vector<Record> records_;  // guarded by mutex_
};

}  // namespace test_support
