/// A jitter buffer with a network before it and an ear behind it, on a clock of its own.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "far_end.h"
#include "jitter_buffer.h"

namespace media_engine_test {

using media_engine::JitterBuffer;
using media_engine::JitterBufferSettings;
using media_engine::JitterMode;
using media_engine::TimePoint;

class JitterLine {
 public:
  using microseconds = std::chrono::microseconds;

  struct Played {
    uint16_t number = 0;
    uint32_t ssrc = 0;
    microseconds at{0};
    microseconds held{0};
    Bytes payload;
  };

  explicit JitterLine(const JitterBufferSettings& settings);

  /// A packet comes, with a payload that no other number has. Times do not go back.
  JitterBuffer::Verdict Arrive(microseconds at, const Rtp& packet, uint32_t clock_rate = 8000);
  /// The same with G.711's timestamps: sent 20 ms after the one before, and that long on the way.
  JitterBuffer::Verdict Arrive20ms(uint16_t number, microseconds transit, bool marker = false);
  /// Lets everything be played that is due by then, each when it is due.
  void PlayUntil(microseconds at);
  void PlayAll() { PlayUntil(microseconds::max() / 2000); }
  void Discard() { buffer_.Discard(); }

  const std::vector<Played>& played() const { return played_; }
  std::vector<uint16_t> Numbers() const;
  media_engine::EndpointStatistics Counters() const;
  unsigned delay_ms() const { return Counters().jitter_buffer_delay_ms; }

 private:
  JitterBuffer buffer_;
  microseconds now_{0};
  std::map<std::pair<uint32_t, uint16_t>, microseconds> arrivals_;
  std::vector<Played> played_;
};

JitterBufferSettings StaticBuffer(int delay_ms, int max_ms = 200);
JitterBufferSettings AdaptiveBuffer(int initial_ms, int min_ms, int max_ms);

}  // namespace media_engine_test
