#include "event_loop.h"

#include <exception>

namespace kelvaro::jsr309 {

EventLoop::EventLoop(std::shared_ptr<Clock> clock, unsigned paced_per_second, std::shared_ptr<GuardedLogger> logger)
    : clock_(std::move(clock)),
      paced_interval_(std::chrono::nanoseconds(std::chrono::seconds(1)) / paced_per_second),
      logger_(std::move(logger)) {}

EventLoop::~EventLoop() {
  Stop(std::chrono::steady_clock::now());
  Join();
}

void EventLoop::Start() {
  const std::lock_guard<std::mutex> lock(mutex_);
  finished_ = false;
  thread_ = std::thread([this] { Run(); });
}

void EventLoop::Post(Task task) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    tasks_.push_back(std::move(task));
  }
  wake_.notify_all();
}

void EventLoop::PostPaced(std::vector<PacedTask> tasks) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    for (PacedTask& task : tasks) paced_.push_back(std::move(task));
  }
  wake_.notify_all();
}

bool EventLoop::Stop(std::chrono::steady_clock::time_point deadline) {
  std::deque<Task> dropped_tasks;
  std::deque<PacedTask> dropped_paced;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    stopping_ = true;
    dropped_tasks.swap(tasks_);
    dropped_paced.swap(paced_);
    wake_.notify_all();
    if (thread_.get_id() == std::this_thread::get_id()) return false;
    if (!finished_condition_.wait_until(lock, deadline, [this] { return finished_; })) return false;
  }
  Join();
  return true;
}

void EventLoop::Join() {
  std::thread thread;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    thread.swap(thread_);
  }
  if (thread.joinable()) thread.join();
}

bool EventLoop::IsOwnThread() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return thread_.get_id() == std::this_thread::get_id();
}

void EventLoop::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    if (!RunOne(lock)) Wait(lock);
  }
  finished_ = true;
  finished_condition_.notify_all();
}

bool EventLoop::RunOne(std::unique_lock<std::mutex>& lock) {
  const Clock::TimePoint begun = clock_->Now();
  const bool paced = !paced_.empty() && begun >= next_paced_;
  if (!paced && tasks_.empty()) return false;
  Task task;
  PacedTask paced_task;
  if (paced) {
    paced_task = std::move(paced_.front());
    paced_.pop_front();
  } else {
    task = std::move(tasks_.front());
    tasks_.pop_front();
  }
  lock.unlock();
  bool counts = false;
  try {
    if (paced) {
      counts = paced_task();
    } else {
      task();
    }
  } catch (const std::exception& error) {
    KELVARO_LOG(*logger_, ERROR_LOG_LEVEL, "", std::string("A listener has thrown: ") + error.what());
  } catch (...) {
    KELVARO_LOG(*logger_, ERROR_LOG_LEVEL, "", "A listener has thrown something that is no exception");
  }
  // What the task holds may be the last reference to an object of the application: no lock while it goes.
  task = nullptr;
  paced_task = nullptr;
  lock.lock();
  if (counts) next_paced_ = begun + paced_interval_;
  return true;
}

void EventLoop::Wait(std::unique_lock<std::mutex>& lock) {
  if (paced_.empty()) {
    wake_.wait(lock);
  } else {
    clock_->WaitUntil(lock, wake_, next_paced_);
  }
}

}  // namespace kelvaro::jsr309
