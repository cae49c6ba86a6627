/// What can be measured on a stream as it comes in: how many packets should have come (RFC 3550, A.1 and A.3) and how
/// unevenly they came (A.8).
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <cstdint>

#include "media_engine/clock.h"
#include "rtp_header.h"

namespace media_engine {

class Reception {
 public:
  /// clock_rate 0: unknown, jitter is not measured on this packet.
  void Count(const RtpHeader& header, uint32_t clock_rate, TimePoint now);

  uint64_t lost() const;
  uint64_t source_changes() const { return source_changes_; }
  uint32_t ssrc() const { return ssrc_; }
  uint32_t jitter() const { return jitter_ >> kJitterShift; }
  uint32_t jitter_maximum() const { return jitter_maximum_; }
  uint32_t jitter_average() const;

 private:
  static constexpr int kJitterShift = 4;  // A.8 keeps sixteenths

  void Begin(const RtpHeader& header);
  void CountSequence(const RtpHeader& header);
  void MeasureJitter(const RtpHeader& header, uint32_t clock_rate, TimePoint now);
  uint64_t Expected() const;

  bool started_ = false;
  uint32_t ssrc_ = 0;
  uint16_t highest_ = 0;
  uint64_t cycles_ = 0;  // sequence numbers passed by wraps
  uint16_t base_ = 0;
  uint64_t received_ = 0;             // of this source
  uint64_t lost_before_ = 0;          // of the sources before it
  uint32_t restart_at_ = kNoRestart;  // a lone far-off number may be a stray; two in a row are a restart
  uint64_t source_changes_ = 0;

  bool has_transit_ = false;
  uint32_t transit_ = 0;
  uint32_t jitter_ = 0;
  uint32_t jitter_maximum_ = 0;
  uint64_t jitter_sum_ = 0;
  uint64_t jitter_count_ = 0;

  static constexpr uint32_t kNoRestart = 0x10000;
};

}  // namespace media_engine
