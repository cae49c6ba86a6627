/// What can be measured on a stream as it comes in: how many packets should have come (RFC 3550, A.1 and A.3), which
/// came twice or late, and how unevenly they came (A.8).
///
/// Networks double packets, and a doubled one must not make up for one that is lost. So the latest numbers are
/// remembered, and what has come before is counted apart. Only the report blocks count doubles as received, since that
/// is what the RFC asks of them.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <bitset>
#include <cstdint>

#include "measure.h"
#include "media_engine/clock.h"
#include "rtcp_packet.h"
#include "rtp_header.h"

namespace media_engine {

class Reception {
 public:
  /// clock_rate 0: unknown, jitter is not measured on this packet.
  void Count(const RtpHeader& header, uint32_t clock_rate, TimePoint now);

  bool started() const { return started_; }
  uint32_t ssrc() const { return ssrc_; }
  /// Whether a packet of that source would replace the one there is.
  bool IsNewSource(uint32_t ssrc) const { return started_ && ssrc != ssrc_; }

  // Of all sources.
  uint64_t source_changes() const { return source_changes_; }
  uint64_t duplicates() const { return duplicates_; }
  /// Came behind a packet with a higher number.
  uint64_t reordered() const { return reordered_; }

  // Of this source.
  uint64_t lost() const { return lost_before_ + (Expected() - Distinct()); }
  /// With duplicates.
  uint64_t received() const { return received_before_ + received_; }
  uint32_t jitter() const { return jitter_ >> kJitterShift; }
  const Measure& jitter_measure() const { return jitter_measure_; }

  // Reports on this source.
  bool HeardSinceReport() const { return received_ != reported_.received; }
  /// The block of a report but for the times of sender reports. The interval of the fraction lost begins anew.
  ReportBlock Report();
  /// The largest so far, in 1/256, that of the interval under way included; duplicates do not make up for losses.
  uint8_t fraction_lost_maximum() const;

 private:
  static constexpr int kJitterShift = 4;  // A.8 keeps sixteenths
  static constexpr uint32_t kNoRestart = 0x10000;

  /// Where the last report left off.
  struct Reported {
    uint64_t expected = 0;
    uint64_t received = 0;
    uint64_t distinct = 0;
  };

  void BeginSource(const RtpHeader& header);
  void BeginNumbering(uint16_t number);
  void CountSequence(uint16_t number);
  void CountAhead(uint16_t distance);
  void CountBehind(uint16_t distance);
  void CountFarOff(uint16_t number);
  void MeasureJitter(const RtpHeader& header, uint32_t clock_rate, TimePoint now);
  uint64_t Expected() const { return started_ ? static_cast<uint64_t>(highest_ - base_ + 1) : 0; }
  uint64_t Distinct() const { return received_ - doubled_; }
  uint8_t FractionSinceReport() const;

  bool started_ = false;
  uint32_t ssrc_ = 0;
  uint64_t source_changes_ = 0, duplicates_ = 0, reordered_ = 0;
  uint64_t lost_before_ = 0, received_before_ = 0;  // of this source, under former numberings

  // The numbering. Numbers are extended by the wraps since it began (A.1); one before the first is below 0.
  int64_t base_ = 0;
  int64_t highest_ = 0;
  std::bitset<128> seen_;  // the highest, and those below it
  uint64_t received_ = 0;
  uint64_t doubled_ = 0;
  uint32_t restart_at_ = kNoRestart;  // a lone far-off number may be a stray; two in a row are a restart
  Reported reported_;
  uint8_t fraction_lost_maximum_ = 0;

  bool has_transit_ = false;
  uint32_t transit_ = 0;
  uint32_t clock_rate_ = 0;  // of transit_
  uint32_t jitter_ = 0;
  Measure jitter_measure_;
};

}  // namespace media_engine
