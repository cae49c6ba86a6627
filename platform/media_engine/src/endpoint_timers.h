/// When which endpoint of a worker has something to do: a packet to play, a report to send.
///
/// Thousands of endpoints that are looked at again and again, most of them in vain, cost a worker its turns and its
/// caches. Here the next one is known at once (a heap), and a change costs a few comparisons. Room is taken when a
/// timer is attached; setting one allocates nothing.
///
/// Threads: none of their own; used by the worker's thread.
#pragma once

#include <cstddef>
#include <vector>

#include "media_engine/clock.h"

namespace media_engine {

class Participant;
class EndpointTimers;

/// One endpoint's place. It keeps its time when it is detached, and ends its attachment when it goes.
class EndpointTimer {
 public:
  explicit EndpointTimer(Participant* owner) : owner_(owner) {}
  ~EndpointTimer() { Detach(); }
  EndpointTimer(const EndpointTimer&) = delete;
  EndpointTimer& operator=(const EndpointTimer&) = delete;

  /// TimePoint::max(): never.
  void Set(TimePoint due);
  void Detach();
  Participant* owner() const { return owner_; }
  TimePoint due() const { return due_; }
  /// Never puts it off.
  void Advance(TimePoint due) {
    if (due < due_) Set(due);
  }

 private:
  friend class EndpointTimers;

  Participant* const owner_;
  TimePoint due_ = TimePoint::max();
  EndpointTimers* timers_ = nullptr;
  std::size_t place_ = 0;  // in timers_
};

/// Must outlive the attachments.
class EndpointTimers {
 public:
  EndpointTimers() = default;
  EndpointTimers(const EndpointTimers&) = delete;
  EndpointTimers& operator=(const EndpointTimers&) = delete;

  /// One that is attached here already stays as it is.
  void Attach(EndpointTimer& timer);
  /// The first of those that are due; null when none is.
  EndpointTimer* NextDue(TimePoint now) const;
  /// How long a worker may rest, in whole milliseconds: until the next one is due, and as long as that at most.
  milliseconds RestAfter(TimePoint now, milliseconds longest) const;
  bool empty() const { return heap_.empty(); }

 private:
  friend class EndpointTimer;

  void Remove(const EndpointTimer& timer);
  void Settle(std::size_t place);
  void PutAt(std::size_t place, EndpointTimer* timer);

  std::vector<EndpointTimer*> heap_;  // ordered: none is due before the one at (its place - 1) / 2
};

}  // namespace media_engine
