/// What a media server reports by itself, without having been asked.
#pragma once

#include <cstdint>

namespace kelvaro::jsr309 {

enum EventType {
  kMediaServerLostEvent = 0,
  kRtpTimeoutEvent = 1,
};

class Event {
 public:
  virtual ~Event() = default;
  virtual EventType GetType() const = 0;
};

/// The media server that carries a media session, or one that carries an endpoint of it, no longer answers. The
/// session's media is gone and does not come back, even if the server does.
class MediaServerLostEvent : public Event {
 public:
  EventType GetType() const override { return kMediaServerLostEvent; }
};

/// No RTP has come from the far end of a connection for the time set with MediaConfig::SetRtpTimeoutSec.
class RtpTimeoutEvent : public Event {
 public:
  RtpTimeoutEvent(uint32_t uuid, bool active) : uuid_(uuid), active_(active) {}
  EventType GetType() const override { return kRtpTimeoutEvent; }

  uint32_t uuid_;  ///< number of the endpoint that fell silent; unique within one factory
  bool active_;    ///< true: RTP had been coming and stopped (RTP_TIMEOUT_INACTIVE); false: none ever came (PENDING)
};

}  // namespace kelvaro::jsr309
