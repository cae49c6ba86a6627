/// A media engine's clock by which a test gets a worker stuck: on any thread but the test's own it does not return
/// while it is told not to. A worker asks it in every turn.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "media_engine/clock.h"

namespace test_support {

/// Threads: from any thread.
class StuckClock : public media_engine::Clock {
 public:
  ~StuckClock() override { SetStuck(false); }

  media_engine::TimePoint Now() const noexcept override {
    std::unique_lock<std::mutex> lock(mutex_);
    if (stuck_ && std::this_thread::get_id() != test_) {
      ++waiting_;
      changed_.notify_all();
      changed_.wait(lock, [this] { return !stuck_; });
      --waiting_;
    }
    return now_;
  }
  void Advance(media_engine::milliseconds by) {
    const std::lock_guard<std::mutex> lock(mutex_);
    now_ += by;
  }
  void SetStuck(bool stuck) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stuck_ = stuck;
    changed_.notify_all();
  }
  /// Whether that many threads have got stuck, within a patience.
  bool WaitForStuck(unsigned threads) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, media_engine::seconds{10}, [&] { return waiting_ >= threads; });
  }

 private:
  const std::thread::id test_ = std::this_thread::get_id();
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  media_engine::TimePoint now_{media_engine::seconds{1000}};  // guarded by mutex_
  bool stuck_ = false;                                        // guarded by mutex_
  mutable unsigned waiting_ = 0;                              // guarded by mutex_
};

}  // namespace test_support
