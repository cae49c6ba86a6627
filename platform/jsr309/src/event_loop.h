/// The one thread on which the application's listeners are called.
///
/// Listeners hang up calls, take locks of the application and call the library back. A media thread must not wait for
/// that, and no caller that holds a lock which a listener wants may wait for a listener. Everything that ends in a
/// listener is therefore posted here and done one after the other.
///
/// Paced tasks are done at a limited rate: a server with thousands of calls that dies must not set off thousands of
/// hang-ups at once. Other tasks do not wait behind them.
#pragma once

#include "kelvaro/jsr309/clock.h"
#include "kelvaro/jsr309/guarded_logger.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kelvaro::jsr309 {

/// Threads: Post and PostPaced from any thread, with any lock held: they return at once.
class EventLoop {
 public:
  using Task = std::function<void()>;
  /// True when it has done something that counts against the rate.
  using PacedTask = std::function<bool()>;

  EventLoop(std::shared_ptr<Clock> clock, unsigned paced_per_second, std::shared_ptr<GuardedLogger> logger);
  /// Stops, and waits for a task that is still running.
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  void Start();
  void Post(Task task);
  void PostPaced(std::vector<PacedTask> tasks);

  /// Drops what is queued and ends the thread. False when the thread is still in a task at the deadline, or is the
  /// caller itself; the destructor waits for it then.
  bool Stop(std::chrono::steady_clock::time_point deadline);
  /// After Stop: waits as long as it takes. Not for the thread itself.
  void Join();
  bool IsOwnThread() const;

 private:
  void Run();
  /// Does the next task that is due; false when there is none.
  bool RunOne(std::unique_lock<std::mutex>& lock);
  void Wait(std::unique_lock<std::mutex>& lock);

  const std::shared_ptr<Clock> clock_;
  const std::chrono::nanoseconds paced_interval_;
  const std::shared_ptr<GuardedLogger> logger_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable finished_condition_;
  std::deque<Task> tasks_;       // guarded by mutex_
  std::deque<PacedTask> paced_;  // guarded by mutex_
  Clock::TimePoint next_paced_;  // guarded by mutex_; not before this time
  bool stopping_ = false;        // guarded by mutex_
  bool finished_ = true;         // guarded by mutex_; the thread has left Run, or was never started
  std::thread thread_;           // guarded by mutex_; joined by Stop or the destructor
};

}  // namespace kelvaro::jsr309
