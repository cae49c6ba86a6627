/// Where the control library gets its time from, so that tests need not wait for it to pass.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kelvaro::jsr309 {

/// Threads: used from any thread at the same time. Now is monotonic.
class Clock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;
  virtual TimePoint Now() const = 0;
  /// Waits until the condition is notified or the time has come; may return early.
  virtual void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, TimePoint time) = 0;
};

}  // namespace kelvaro::jsr309
