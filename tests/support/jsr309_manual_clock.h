/// A clock for the control library whose time passes only when a test says so.
#pragma once

#include "kelvaro/jsr309/clock.h"

#include <atomic>
#include <chrono>

namespace test_support {

/// Threads: all operations from any thread.
class ManualClock : public kelvaro::jsr309::Clock {
 public:
  TimePoint Now() const override { return TimePoint(std::chrono::nanoseconds(now_.load())); }

  void Advance(std::chrono::nanoseconds by) { now_ += by.count(); }

  // Returns early all the time, as it may: whoever waits looks at Now again.
  void WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, TimePoint) override {
    condition.wait_for(lock, std::chrono::milliseconds(1));
  }

 private:
  std::atomic<int64_t> now_{std::chrono::nanoseconds(std::chrono::hours(1)).count()};
};

}  // namespace test_support
