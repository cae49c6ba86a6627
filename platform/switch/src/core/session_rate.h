#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace kvx_switch {

/// A switch that takes a storm of calls as fast as they come serves none of them well. This counts the legs that were
/// made within the last second, a second that ends now and not one of the clock, so that no burst at its turn gets
/// through twice. Time is passed in and does not run backwards. Any thread.
class SessionRate {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr size_t kUsualLimit = 1000;

  struct Figures {
    size_t last_second = 0;
    size_t limit = kUsualLimit;
    size_t peak = 0;  ///< the most that a second has seen
  };

  /// The switch's own.
  static SessionRate& Get();

  /// The usual limit, and nothing counted.
  void Reset();
  void SetLimit(size_t per_second);
  /// Empty when one more is within the limit, else why it is not.
  std::string Refusal(Time now);
  void Count(Time now);
  Figures At(Time now);

 private:
  void Forget(Time now);  // mutex_ is held

  std::mutex mutex_;
  Figures figures_;        // guarded by mutex_
  std::deque<Time> made_;  // guarded by mutex_; within the second before the last look
};

}  // namespace kvx_switch
