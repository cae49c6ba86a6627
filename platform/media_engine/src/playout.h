/// An endpoint's jitter buffer, and when it has something to play.
#pragma once

#include "jitter_buffer.h"
#include "playout_timers.h"

namespace media_engine {

struct Playout {
  Playout(const JitterPlan& plan, Participant* owner) : buffer(plan), timer(owner) {}

  void Rearm() { timer.Set(buffer.NextDue()); }
  void Discard() {
    buffer.Discard();
    Rearm();
  }

  JitterBuffer buffer;
  PlayoutTimer timer;
};

}  // namespace media_engine
