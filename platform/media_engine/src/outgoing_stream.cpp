#include "outgoing_stream.h"

#include <algorithm>

#include "random_bits.h"

namespace media_engine {
namespace {

// RFC 3550, A.1: further apart, and the numbering has started anew.
constexpr int kMaxDropout = 3000;
constexpr int kMaxMisorder = 100;

int Distance(uint16_t from, uint16_t to) {
  return static_cast<int16_t>(static_cast<uint16_t>(to - from));
}

constexpr milliseconds kUsualPacketTime{20};

uint32_t Ticks(TimePoint::duration time, uint32_t clock_rate) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  return static_cast<uint32_t>(static_cast<uint64_t>(std::max<int64_t>(microseconds, 0)) * clock_rate / 1000000u);
}

}  // namespace

OutgoingStream::OutgoingStream(uint32_t ssrc, uint16_t first_sequence_number, uint32_t first_timestamp)
    : ssrc_(ssrc), next_sequence_number_(first_sequence_number), last_timestamp_(first_timestamp) {}

OutgoingStream OutgoingStream::MakeRandom() {
  // Not in the upper half: under SRTP the loss of the first packets before a wrap would leave the far end a rollover
  // behind for good (RFC 4568, section 6.4).
  return OutgoingStream(RandomBits(), static_cast<uint16_t>(RandomBits() & 0x7fff), RandomBits());
}

uint32_t OutgoingStream::TimestampAt(TimePoint now, uint32_t clock_rate) const {
  return started_ ? last_timestamp_ + Ticks(now - last_time_, clock_rate) : last_timestamp_;
}

bool OutgoingStream::Continues(const SourcePosition& source) const {
  if (!started_ || source.feed != feed_ || source.ssrc != source_ssrc_) return false;
  const int distance = Distance(highest_, source.sequence_number);
  return distance < kMaxDropout && distance > -kMaxMisorder;
}

void OutgoingStream::Begin(const SourcePosition& source, uint32_t clock_rate, TimePoint now) {
  uint32_t timestamp = last_timestamp_;
  if (started_) {
    // The far end plays by timestamps: the time that has passed must be in them, and no two packets may share one.
    const uint32_t step = timestamp_step_ != 0 ? timestamp_step_ : Ticks(kUsualPacketTime, clock_rate);
    timestamp += std::max(step, Ticks(now - last_time_, clock_rate));
  }
  started_ = true;
  feed_ = source.feed;
  source_ssrc_ = source.ssrc;
  highest_ = oldest_ = source.sequence_number;
  sequence_offset_ = static_cast<uint16_t>(next_sequence_number_ - source.sequence_number);
  timestamp_offset_ = timestamp - source.timestamp;
}

std::optional<OutgoingPosition> OutgoingStream::Place(const SourcePosition& source, uint32_t clock_rate,
                                                      TimePoint now) {
  const bool first = !Continues(source);
  if (first) Begin(source, clock_rate, now);
  if (Distance(oldest_, source.sequence_number) < 0) return std::nullopt;

  OutgoingPosition position;
  position.first = first;
  position.sequence_number = static_cast<uint16_t>(source.sequence_number + sequence_offset_);
  position.timestamp = source.timestamp + timestamp_offset_;
  if (first || Distance(highest_, source.sequence_number) > 0) {
    const uint32_t step = position.timestamp - last_timestamp_;
    const bool plausible = step != 0 && step <= clock_rate;
    if (!first && plausible) timestamp_step_ = step;
    highest_ = source.sequence_number;
    // It has to follow: half way round the numbers it would look like the future.
    if (Distance(oldest_, highest_) > kMaxMisorder) oldest_ = static_cast<uint16_t>(highest_ - kMaxMisorder);
    next_sequence_number_ = static_cast<uint16_t>(position.sequence_number + 1);
    last_timestamp_ = position.timestamp;
    last_time_ = now;
  }
  return position;
}

void OutgoingStream::Skip(const SourcePosition& source) {
  if (!Continues(source) || Distance(highest_, source.sequence_number) <= 0) return;
  highest_ = source.sequence_number;
  oldest_ = static_cast<uint16_t>(source.sequence_number + 1);
  --sequence_offset_;
}

}  // namespace media_engine
