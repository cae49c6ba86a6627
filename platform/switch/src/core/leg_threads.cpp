#include "core/leg_threads.h"

#include <algorithm>
#include <utility>

namespace kvx_switch {

LegThreads::LegThreads(size_t most_idle, std::chrono::milliseconds patience)
    : most_idle_(most_idle), patience_(patience) {}

LegThreads::~LegThreads() {
  Stop();
}

void LegThreads::Run(std::function<void()> work) {
  std::shared_ptr<Seat> seat;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.empty()) {
      seat = std::make_shared<Seat>();
      const uint64_t number = ++last_number_;
      threads_.emplace(number, std::thread([this, number, seat, work = std::move(work)]() mutable {
                         Serve(number, seat, std::move(work));
                       }));
      return;
    }
    seat = std::move(idle_.back());
    idle_.pop_back();
    seat->work = std::move(work);
  }
  seat->called.notify_one();
}

void LegThreads::Serve(uint64_t number, const std::shared_ptr<Seat>& seat, std::function<void()> work) {
  std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
  do {
    work();
    work = nullptr;
    lock.lock();
    if (!Rest(lock, seat)) break;
    work = std::exchange(seat->work, nullptr);
    lock.unlock();
  } while (true);
  // A thread cannot join itself; the next one that ends joins it, or Stop.
  std::vector<std::thread> before = std::exchange(ended_, {});
  const auto self = threads_.find(number);
  ended_.push_back(std::move(self->second));
  threads_.erase(self);
  gone_.notify_all();
  lock.unlock();
  for (std::thread& thread : before) thread.join();
}

bool LegThreads::Rest(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Seat>& seat) {
  if (stopping_ || idle_.size() >= most_idle_) return false;
  idle_.push_back(seat);
  seat->called.wait_for(lock, patience_, [this, &seat] { return seat->work || stopping_; });
  if (seat->work) return true;
  idle_.erase(std::find(idle_.begin(), idle_.end(), seat));
  return false;
}

void LegThreads::Stop() {
  std::unique_lock<std::mutex> lock(mutex_);
  stopping_ = true;
  for (const auto& seat : idle_) seat->called.notify_one();
  gone_.wait(lock, [this] { return threads_.empty(); });
  std::vector<std::thread> ended = std::exchange(ended_, {});
  stopping_ = false;
  lock.unlock();
  for (std::thread& thread : ended) thread.join();
}

size_t LegThreads::Count() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return threads_.size();
}

}  // namespace kvx_switch
