#include "endpoint_timers.h"

#include <algorithm>

namespace media_engine {

void EndpointTimer::Set(TimePoint due) {
  due_ = due;
  if (timers_ != nullptr) timers_->Settle(place_);
}

void EndpointTimer::Detach() {
  if (timers_ == nullptr) return;
  timers_->Remove(*this);
  timers_ = nullptr;
}

void EndpointTimers::Attach(EndpointTimer& timer) {
  if (timer.timers_ != nullptr) return;
  heap_.push_back(&timer);
  timer.timers_ = this;
  timer.place_ = heap_.size() - 1;
  Settle(timer.place_);
}

EndpointTimer* EndpointTimers::NextDue(TimePoint now) const {
  return heap_.empty() || heap_.front()->due_ > now ? nullptr : heap_.front();
}

milliseconds EndpointTimers::RestAfter(TimePoint now, milliseconds longest) const {
  if (heap_.empty() || heap_.front()->due_ >= now + longest) return longest;
  // Not rounded down: the worker would turn without a rest until the time has come.
  return std::max(std::chrono::ceil<milliseconds>(heap_.front()->due_ - now), milliseconds{0});
}

void EndpointTimers::PutAt(std::size_t place, EndpointTimer* timer) {
  heap_[place] = timer;
  timer->place_ = place;
}

void EndpointTimers::Remove(const EndpointTimer& timer) {
  const std::size_t place = timer.place_;
  EndpointTimer* const last = heap_.back();
  heap_.pop_back();
  if (last == &timer) return;
  PutAt(place, last);
  Settle(place);
}

/// Brings the timer at a place to where it belongs.
void EndpointTimers::Settle(std::size_t place) {
  EndpointTimer* const timer = heap_[place];
  while (place > 0 && timer->due_ < heap_[(place - 1) / 2]->due_) {
    PutAt(place, heap_[(place - 1) / 2]);
    place = (place - 1) / 2;
  }
  for (std::size_t child = 2 * place + 1; child < heap_.size(); child = 2 * place + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1]->due_ < heap_[child]->due_) ++child;
    if (timer->due_ <= heap_[child]->due_) break;
    PutAt(place, heap_[child]);
    place = child;
  }
  PutAt(place, timer);
}

}  // namespace media_engine
