#include "core/task_queue.h"

#include <string>

#include <switch.h>

#include "core/guard.h"

namespace kvx_switch {

bool TaskQueue::Post(Task task) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return false;
  tasks_.push_back(std::move(task));
  changed_.notify_all();
  return true;
}

void TaskQueue::Wake() {
  std::lock_guard<std::mutex> lock(mutex_);
  woken_ = true;
  changed_.notify_all();
}

bool TaskQueue::ServeUntil(Clock::time_point deadline, const std::function<bool()>& done,
                           const std::function<bool()>& stopped) {
  const auto has_news = [this] { return woken_ || !tasks_.empty(); };
  for (;;) {
    if (done()) return true;
    if (stopped()) return false;
    if (RunOne()) continue;
    std::unique_lock<std::mutex> lock(mutex_);
    if (deadline == Clock::time_point::max()) {
      changed_.wait(lock, has_news);
    } else if (!changed_.wait_until(lock, deadline, has_news)) {
      return false;
    }
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
