/// An endpoint's jitter buffer, and when it has something to play.
#pragma once

#include "endpoint_timers.h"
#include "jitter_buffer.h"

namespace media_engine {

struct Playout {
  Playout(const JitterPlan& plan, Participant* owner) : buffer(plan), timer(owner) {}

  void Rearm() { timer.Set(buffer.NextDue()); }
  void Discard() {
    buffer.Discard();
    Rearm();
  }

  JitterBuffer buffer;
  EndpointTimer timer;
};

}  // namespace media_engine
