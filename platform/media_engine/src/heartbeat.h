/// Finds out that a worker no longer serves.
///
/// Workers count their turns. A count that does not advance for the limit means a worker that is stuck. Time that the
/// whole process did not run must not be held against the workers, so no more than two check intervals are counted
/// per check.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "media_engine/clock.h"
#include "media_engine/outcome.h"

namespace media_engine {

/// Threads: one at a time.
class HeartbeatWatch {
 public:
  enum class Change { kNone, kLost, kBack };

  HeartbeatWatch(milliseconds limit, milliseconds interval, std::size_t workers);
  /// The turns so far of each worker, and the time since the last check.
  Change Check(const std::vector<uint64_t>& beats, milliseconds elapsed);

 private:
  struct Record {
    uint64_t beats = 0;
    milliseconds silent{0};
  };
  const milliseconds limit_, interval_;
  std::vector<Record> records_;
  bool lost_ = false;
};

/// Checks four times per limit, on a thread of its own that the destructor joins.
class HeartbeatMonitor {
 public:
  using ReadBeats = std::function<std::vector<uint64_t>()>;
  using Report = std::function<void(HeartbeatWatch::Change)>;

  HeartbeatMonitor(milliseconds limit, std::size_t workers, ReadBeats read_beats, Report report);
  ~HeartbeatMonitor();
  HeartbeatMonitor(const HeartbeatMonitor&) = delete;
  HeartbeatMonitor& operator=(const HeartbeatMonitor&) = delete;

  Outcome Start();
  static milliseconds IntervalFor(milliseconds limit);

 private:
  void Run();

  const milliseconds interval_;
  HeartbeatWatch watch_;  // the thread's own
  const ReadBeats read_beats_;
  const Report report_;
  std::mutex mutex_;
  std::condition_variable stop_;
  bool stopping_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace media_engine
