#include "core/task_queue.h"

#include <string>
#include <utility>

#include <switch.h>

#include "core/guard.h"

namespace kvx_switch {

// A worker that is woken while the lock is held would run into it and sleep again. Who posts or wakes keeps the queue
// alive until he has.

bool TaskQueue::Post(Task task) {
  bool asleep = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return false;
    tasks_.push_back(std::move(task));
    asleep = std::exchange(asleep_, false);
  }
  if (asleep) changed_.notify_one();
  return true;
}

void TaskQueue::Wake() {
  bool asleep = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    woken_ = true;
    asleep = std::exchange(asleep_, false);
  }
  if (asleep) changed_.notify_one();
}

bool TaskQueue::ServeUntil(Clock::time_point deadline, const std::function<bool()>& done,
                           const std::function<bool()>& stopped) {
  const auto has_news = [this] { return woken_ || !tasks_.empty(); };
  for (;;) {
    if (done()) return true;
    if (stopped()) return false;
    if (RunOne()) continue;
    std::unique_lock<std::mutex> lock(mutex_);
    bool in_time = true;
    while (in_time && !has_news()) {
      asleep_ = true;
      if (deadline == Clock::time_point::max()) {
        changed_.wait(lock);
      } else {
        in_time = changed_.wait_until(lock, deadline) == std::cv_status::no_timeout;
      }
      asleep_ = false;
    }
    if (!has_news()) return false;
    woken_ = false;
  }
}

void TaskQueue::Drain() {
  while (RunOne()) {
  }
}

void TaskQueue::Close() {
  std::deque<Task> forgotten;  // ends after the lock: what a task holds may post to this queue
  std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  forgotten.swap(tasks_);
}

bool TaskQueue::RunOne() {
  Task task;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (tasks_.empty()) return false;
    task = std::move(tasks_.front());
    tasks_.pop_front();
  }
  std::string what;
  if (!RunGuarded(task, what)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left a task of a leg: %s\n", what.c_str());
  }
  return true;
}

}  // namespace kvx_switch
