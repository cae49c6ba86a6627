#include "playout_timers.h"

#include <algorithm>

namespace media_engine {

void PlayoutTimer::Set(TimePoint due) {
  due_ = due;
  if (timers_ != nullptr) timers_->Settle(place_);
}

void PlayoutTimer::Detach() {
  if (timers_ == nullptr) return;
  timers_->Remove(*this);
  timers_ = nullptr;
}

void PlayoutTimers::Attach(PlayoutTimer& timer) {
  if (timer.timers_ != nullptr) return;
  heap_.push_back(&timer);
  timer.timers_ = this;
  timer.place_ = heap_.size() - 1;
  Settle(timer.place_);
}

PlayoutTimer* PlayoutTimers::NextDue(TimePoint now) const {
  return heap_.empty() || heap_.front()->due_ > now ? nullptr : heap_.front();
}

milliseconds PlayoutTimers::RestAfter(TimePoint now, milliseconds longest) const {
  if (heap_.empty() || heap_.front()->due_ >= now + longest) return longest;
  // Not rounded down: the worker would turn without a rest until the time has come.
  return std::max(std::chrono::ceil<milliseconds>(heap_.front()->due_ - now), milliseconds{0});
}

void PlayoutTimers::PutAt(std::size_t place, PlayoutTimer* timer) {
  heap_[place] = timer;
  timer->place_ = place;
}

void PlayoutTimers::Remove(const PlayoutTimer& timer) {
  const std::size_t place = timer.place_;
  PlayoutTimer* const last = heap_.back();
  heap_.pop_back();
  if (last == &timer) return;
  PutAt(place, last);
  Settle(place);
}

/// Brings the timer at a place to where it belongs.
void PlayoutTimers::Settle(std::size_t place) {
  PlayoutTimer* const timer = heap_[place];
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
