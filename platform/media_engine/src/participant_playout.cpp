// What a participant with a jitter buffer does that others do not.
#include "endpoint_route.h"
#include "participant.h"
#include "server_context.h"

namespace media_engine {

void Participant::SetJitterBuffer(const JitterBufferSettings& settings) {
  std::string corrections;
  const JitterPlan plan = PlanJitterBuffer(settings, corrections);
  // Descriptions repeat themselves; a call must not click for it.
  if (plan == (playout_ ? playout_->buffer.plan() : JitterPlan())) return;
  if (!corrections.empty()) {
    server_->Log(LogLevel::kWarning, route_->name() + ": jitter buffer: " + corrections);
  }
  if (playout_) {
    playout_->Discard();
    playout_->buffer.AddTo(counters_);
    counters_.jitter_buffer_delay_ms = 0;
  }
  had_jitter_buffer_ = true;  // a plan other than none, or the end of one
  playout_ = plan.mode == JitterMode::kNone ? nullptr : std::make_unique<Playout>(plan, this);
}

void Participant::AttachPlayout(EndpointTimers& timers) {
  if (playout_) timers.Attach(playout_->timer);
}

void Participant::AttachTimers(EndpointTimers& checks, EndpointTimers& playouts) {
  checks.Attach(check_);
  AttachPlayout(playouts);
}

void Participant::DetachTimers() {
  check_.Detach();
  if (playout_) playout_->timer.Detach();
}

void Participant::Hold(const uint8_t* packet, const RtpHeader& header, TimePoint now) {
  playout_->buffer.Put(header, packet, payload_types_.ClockRateOf(header.payload_type), now);
  playout_->Rearm();
}

bool Participant::PlayNext(uint8_t* packet, TimePoint now, Handover& handover) {
  RtpHeader header;
  const bool due = playout_->buffer.Take(now, header, packet);
  playout_->Rearm();
  if (due) handover = Carry(packet, header, now);
  return due;
}

}  // namespace media_engine
