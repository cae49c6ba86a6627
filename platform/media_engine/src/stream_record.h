/// What is known of the media between an endpoint and one source (SSRC) of its far end.
#pragma once

#include <cstdint>

#include "measure.h"
#include "media_engine/statistics.h"

namespace media_engine {

struct StreamRecord {
  uint32_t remote_ssrc = 0;
  uint8_t fraction_lost_maximum = 0;
  uint8_t remote_fraction_lost_maximum = 0;

  uint64_t packets_sent = 0;
  uint64_t octets_sent = 0;
  uint64_t sender_reports_sent = 0;

  uint64_t packets_received = 0;
  uint64_t packets_lost = 0;
  Measure jitter;

  uint64_t remote_packets_sent = 0;
  uint64_t remote_octets_sent = 0;
  uint64_t sender_reports_received = 0;

  uint64_t remote_packets_lost = 0;
  Measure remote_jitter;

  Measure round_trip;  // in 1/65536 s

  /// Takes the other's figures in, as if both had been one source.
  void Add(const StreamRecord& later);
  StreamStatistics Read() const;
};

}  // namespace media_engine
