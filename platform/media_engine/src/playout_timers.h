/// When which endpoint of a worker has a packet to play.
///
/// Only endpoints with a jitter buffer stand here, so the others cost a worker's turn nothing. A heap: the next one is
/// known at once, and a change costs a few comparisons even among thousands. Room is taken when a timer is attached;
/// setting one allocates nothing.
///
/// Threads: none of their own; used by the worker's thread.
#pragma once

#include <cstddef>
#include <vector>

#include "media_engine/clock.h"

namespace media_engine {

class Participant;
class PlayoutTimers;

/// One endpoint's place. It keeps its time when it is detached, and ends its attachment when it goes.
class PlayoutTimer {
 public:
  explicit PlayoutTimer(Participant* owner) : owner_(owner) {}
  ~PlayoutTimer() { Detach(); }
  PlayoutTimer(const PlayoutTimer&) = delete;
  PlayoutTimer& operator=(const PlayoutTimer&) = delete;

  /// TimePoint::max(): never.
  void Set(TimePoint due);
  void Detach();
  Participant* owner() const { return owner_; }
  TimePoint due() const { return due_; }

 private:
  friend class PlayoutTimers;

  Participant* const owner_;
  TimePoint due_ = TimePoint::max();
  PlayoutTimers* timers_ = nullptr;
  std::size_t place_ = 0;  // in timers_
};

/// Must outlive the attachments.
class PlayoutTimers {
 public:
  PlayoutTimers() = default;
  PlayoutTimers(const PlayoutTimers&) = delete;
  PlayoutTimers& operator=(const PlayoutTimers&) = delete;

  /// One that is attached here already stays as it is.
  void Attach(PlayoutTimer& timer);
  /// The first of those that are due; null when none is.
  PlayoutTimer* NextDue(TimePoint now) const;
  /// How long a worker may rest, in whole milliseconds: until the next one is due, and as long as that at most.
  milliseconds RestAfter(TimePoint now, milliseconds longest) const;
  bool empty() const { return heap_.empty(); }

 private:
  friend class PlayoutTimer;

  void Remove(const PlayoutTimer& timer);
  void Settle(std::size_t place);
  void PutAt(std::size_t place, PlayoutTimer* timer);

  std::vector<PlayoutTimer*> heap_;  // ordered: none is due before the one at (its place - 1) / 2
};

}  // namespace media_engine
