/// What goes wrong with a daemon's messages, in the log no more often than once a second: whoever can send to the
/// control socket, or lets requests pile up, must not be able to fill the log.
///
/// Threads: all operations from any thread. No lock is held while the logger is called.
#pragma once

#include "kelvaro/jsr309/guarded_logger.h"
#include "rtpengine/ng_control.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kelvaro::jsr309::rtpengine {

class NgComplaints {
 public:
  explicit NgComplaints(std::shared_ptr<GuardedLogger> logger) : logger_(std::move(logger)) {}

  void Warn(const std::string& text, NgTime now) {
    uint64_t withheld = 0;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (now < next_) {
        ++withheld_;
        return;
      }
      next_ = now + std::chrono::seconds(1);
      std::swap(withheld, withheld_);
    }
    const std::string more = withheld == 0 ? "" : " (" + std::to_string(withheld) + " like this before)";
    KELVARO_LOG(*logger_, WARN_LOG_LEVEL, "", text + more);
  }

 private:
  const std::shared_ptr<GuardedLogger> logger_;
  std::mutex mutex_;
  NgTime next_ = NgTime::min();  // guarded by mutex_
  uint64_t withheld_ = 0;        // guarded by mutex_; since the last line
};

}  // namespace kelvaro::jsr309::rtpengine
