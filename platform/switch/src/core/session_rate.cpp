#include "core/session_rate.h"

#include <algorithm>

namespace kvx_switch {

SessionRate& SessionRate::Get() {
  static SessionRate* const rate = new SessionRate;
  return *rate;
}

void SessionRate::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  figures_ = {};
  made_.clear();
}

void SessionRate::SetLimit(size_t per_second) {
  std::lock_guard<std::mutex> lock(mutex_);
  figures_.limit = per_second;
}

std::string SessionRate::Refusal(Time now) {
  std::lock_guard<std::mutex> lock(mutex_);
  Forget(now);
  if (made_.size() < figures_.limit) return "";
  return "there were " + std::to_string(made_.size()) + " new legs within a second, at most " +
         std::to_string(figures_.limit) + " may be";
}

void SessionRate::Count(Time now) {
  std::lock_guard<std::mutex> lock(mutex_);
  Forget(now);
  made_.push_back(now);
  figures_.peak = std::max(figures_.peak, made_.size());
}

SessionRate::Figures SessionRate::At(Time now) {
  std::lock_guard<std::mutex> lock(mutex_);
  Forget(now);
  figures_.last_second = made_.size();
  return figures_;
}

void SessionRate::Forget(Time now) {
  while (!made_.empty() && now - made_.front() >= std::chrono::seconds(1)) made_.pop_front();
}

}  // namespace kvx_switch
