#include "reception.h"

#include <algorithm>

namespace media_engine {
namespace {

constexpr uint16_t kMaxDropout = 3000;
constexpr uint16_t kMaxMisorder = 100;

}  // namespace

void Reception::Count(const RtpHeader& header, uint32_t clock_rate, TimePoint now) {
  if (!started_ || header.ssrc != ssrc_) {
    if (started_) ++source_changes_;
    Begin(header);
  } else {
    CountSequence(header);
  }
  MeasureJitter(header, clock_rate, now);
}

void Reception::Begin(const RtpHeader& header) {
  lost_before_ = lost();
  started_ = true;
  ssrc_ = header.ssrc;
  base_ = highest_ = header.sequence_number;
  cycles_ = 0;
  received_ = 1;
  restart_at_ = kNoRestart;
  has_transit_ = false;
}

void Reception::CountSequence(const RtpHeader& header) {
  const uint16_t number = header.sequence_number;
  const uint16_t ahead = static_cast<uint16_t>(number - highest_);
  if (ahead < kMaxDropout) {
    if (number < highest_) cycles_ += 0x10000;
    highest_ = number;
    restart_at_ = kNoRestart;
  } else if (ahead <= 0x10000 - kMaxMisorder) {
    if (number == restart_at_) {
      ++source_changes_;
      Begin(header);
      return;
    }
    restart_at_ = static_cast<uint16_t>(number + 1);
    return;
  }
  ++received_;
}

uint64_t Reception::Expected() const {
  return started_ ? cycles_ + highest_ - base_ + 1 : 0;
}

uint64_t Reception::lost() const {
  // Duplicates can make the difference negative.
  const uint64_t expected = Expected();
  return lost_before_ + (expected > received_ ? expected - received_ : 0);
}

uint32_t Reception::jitter_average() const {
  return jitter_count_ == 0 ? 0 : static_cast<uint32_t>(jitter_sum_ / jitter_count_);
}

void Reception::MeasureJitter(const RtpHeader& header, uint32_t clock_rate, TimePoint now) {
  if (clock_rate == 0) return;
  const auto arrival = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
  const uint32_t transit =
      static_cast<uint32_t>(static_cast<uint64_t>(arrival) * clock_rate / 1000000u) - header.timestamp;
  if (has_transit_) {
    const int32_t change = static_cast<int32_t>(transit - transit_);
    const uint32_t distance = static_cast<uint32_t>(change < 0 ? -static_cast<int64_t>(change) : change);
    jitter_ += distance - ((jitter_ + 8) >> kJitterShift);
    jitter_maximum_ = std::max(jitter_maximum_, jitter());
    jitter_sum_ += jitter();
    ++jitter_count_;
  }
  has_transit_ = true;
  transit_ = transit;
}

}  // namespace media_engine
