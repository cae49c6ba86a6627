/// What an endpoint sends as an RTP participant of its own (RFC 3550, section 5.1): one SSRC, one numbering, one
/// timestamp line, however often the source behind it changes.
///
/// The numbering is contiguous, so that the far end's loss count tells of its own network, with two refinements. A gap
/// in the source's numbering stays a gap: hiding it would hide a loss from the far end's concealment. A packet that
/// came but is not passed on leaves none.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <cstdint>
#include <optional>

#include "media_engine/clock.h"

namespace media_engine {

/// Where a packet stands in its source's stream. Whoever changes what feeds the stream changes `feed`.
struct SourcePosition {
  uint64_t feed = 0;
  uint32_t ssrc = 0;
  uint16_t sequence_number = 0;
  uint32_t timestamp = 0;
};

/// Where it goes in ours. first: it begins a new source's part.
struct OutgoingPosition {
  uint16_t sequence_number = 0;
  uint32_t timestamp = 0;
  bool first = false;
};

class OutgoingStream {
 public:
  OutgoingStream(uint32_t ssrc, uint16_t first_sequence_number, uint32_t first_timestamp);
  /// With the random values that RFC 3550 asks for.
  static OutgoingStream MakeRandom();

  uint32_t ssrc() const { return ssrc_; }
  /// Whether anything was placed.
  bool started() const { return started_; }
  /// What a packet would carry that was sampled now, for sender reports.
  uint32_t TimestampAt(TimePoint now, uint32_t clock_rate) const;

  /// None when the packet comes so late that its number has been given away.
  std::optional<OutgoingPosition> Place(const SourcePosition& source, uint32_t clock_rate, TimePoint now);
  /// A packet that is not passed on and shall not look lost.
  void Skip(const SourcePosition& source);

 private:
  bool Continues(const SourcePosition& source) const;
  void Begin(const SourcePosition& source, uint32_t clock_rate, TimePoint now);

  uint32_t ssrc_;
  uint16_t next_sequence_number_;  // of the next new source
  uint32_t last_timestamp_;
  uint32_t timestamp_step_ = 0;  // between the last two packets that differed
  TimePoint last_time_{};
  bool started_ = false;

  uint64_t feed_ = 0;
  uint32_t source_ssrc_ = 0;
  uint16_t highest_ = 0;  // of the source's numbers
  uint16_t oldest_ = 0;   // what is older has no number on our side
  uint16_t sequence_offset_ = 0;
  uint32_t timestamp_offset_ = 0;
};

}  // namespace media_engine
