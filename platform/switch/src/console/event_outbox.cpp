#include "console/event_outbox.h"

#include <utility>

namespace kvx_switch {

bool EventOutbox::Put(std::string message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (messages_.size() >= limits_.messages || message.size() > limits_.bytes - bytes_) {
    ++dropped_;
    return false;
  }
  bytes_ += message.size();
  messages_.push_back(std::move(message));
  if (messages_.size() == 1) filled_.Raise();
  return true;
}

std::string EventOutbox::Take(size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string taken;
  while (!messages_.empty() && (taken.empty() || taken.size() + messages_.front().size() <= bytes)) {
    taken += messages_.front();
    bytes_ -= messages_.front().size();
    messages_.pop_front();
  }
  if (messages_.empty()) filled_.Clear();
  return taken;
}

void EventOutbox::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  messages_.clear();
  bytes_ = 0;
  filled_.Clear();
}

uint64_t EventOutbox::dropped() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return dropped_;
}

}  // namespace kvx_switch
