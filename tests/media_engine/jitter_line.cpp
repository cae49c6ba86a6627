#include "jitter_line.h"

#include <gtest/gtest.h>

#include <array>

namespace media_engine_test {
namespace {

media_engine::JitterPlan Plan(const JitterBufferSettings& settings) {
  std::string corrections;
  const auto plan = media_engine::PlanJitterBuffer(settings, corrections);
  EXPECT_EQ(corrections, "");
  return plan;
}

/// A monotonic clock may stand anywhere.
TimePoint On(std::chrono::microseconds at) {
  return TimePoint(media_engine::seconds{123456} + at);
}

}  // namespace

JitterBufferSettings StaticBuffer(int delay_ms, int max_ms) {
  return {JitterMode::kStatic, delay_ms, std::nullopt, max_ms};
}
JitterBufferSettings AdaptiveBuffer(int initial_ms, int min_ms, int max_ms) {
  return {JitterMode::kAdaptive, initial_ms, min_ms, max_ms};
}

JitterLine::JitterLine(const JitterBufferSettings& settings) : buffer_(Plan(settings)) {}

JitterBuffer::Verdict JitterLine::Arrive(microseconds at, const Rtp& packet, uint32_t clock_rate) {
  PlayUntil(at - microseconds{1});
  now_ = at;
  const Bytes data = Serialise(packet);
  const auto header = media_engine::ParseRtp(data.data(), data.size());
  EXPECT_TRUE(header);
  const auto verdict = buffer_.Put(*header, data.data(), clock_rate, On(at));
  if (verdict == JitterBuffer::Verdict::kHeld) arrivals_[{packet.ssrc, packet.sequence_number}] = at;
  return verdict;
}

JitterBuffer::Verdict JitterLine::Arrive20ms(uint16_t number, microseconds transit, bool marker) {
  const Rtp packet{0, number, 160u * number, 1, marker, PayloadOf(number)};
  return Arrive(media_engine::milliseconds{20} * number + transit, packet);
}

void JitterLine::PlayUntil(microseconds at) {
  while (buffer_.NextDue() <= On(at)) {
    now_ = std::max(now_, std::chrono::duration_cast<microseconds>(buffer_.NextDue() - On(microseconds{0})));
    std::array<uint8_t, 4096> packet;
    media_engine::RtpHeader header;
    ASSERT_TRUE(buffer_.Take(On(now_), header, packet.data()));
    const uint8_t* const payload = packet.data() + header.payload_offset;
    played_.push_back({header.sequence_number, header.ssrc, now_,
                       now_ - arrivals_.at({header.ssrc, header.sequence_number}),
                       Bytes(payload, payload + header.payload_length)});
  }
}

std::vector<uint16_t> JitterLine::Numbers() const {
  std::vector<uint16_t> numbers;
  for (const Played& one : played_) numbers.push_back(one.number);
  return numbers;
}

media_engine::EndpointStatistics JitterLine::Counters() const {
  media_engine::EndpointStatistics statistics;
  buffer_.AddTo(statistics);
  return statistics;
}

}  // namespace media_engine_test
