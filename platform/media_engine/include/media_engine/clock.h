/// Where the engine gets its time from, so that timeouts can be tested without waiting for them.
#pragma once

#include <chrono>

namespace media_engine {

using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Threads: called from any thread at the same time, the packet path included: it must not block. Monotonic.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual TimePoint Now() const noexcept = 0;
};

class SteadyClock : public Clock {
 public:
  TimePoint Now() const noexcept override { return std::chrono::steady_clock::now(); }
};

}  // namespace media_engine
