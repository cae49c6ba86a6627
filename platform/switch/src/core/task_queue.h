#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace kvx_switch {

/// Work that any thread leaves for one thread, in order. The worker also wakes when something it looks at has changed.
class TaskQueue {
 public:
  using Task = std::function<void()>;
  using Clock = std::chrono::steady_clock;

  TaskQueue() = default;
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  /// False after Close.
  bool Post(Task task);
  /// Has the worker look at its conditions again.
  void Wake();

  /// Runs tasks until done() holds (true), or stopped() does or the deadline passes (false). Both are asked before the
  /// first wait and after every task and wake-up, done() first.
  bool ServeUntil(Clock::time_point deadline, const std::function<bool()>& done, const std::function<bool()>& stopped);
  /// Runs what is queued, and what that queues.
  void Drain();
  /// Takes no more tasks and forgets, unrun, those that wait.
  void Close();

 private:
  bool RunOne();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;  // guarded by mutex_
  bool woken_ = false;      // guarded by mutex_
  bool asleep_ = false;     // guarded by mutex_; the worker waits and nobody has woken it yet
  bool closed_ = false;     // guarded by mutex_
};

}  // namespace kvx_switch
