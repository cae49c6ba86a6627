#include "reception.h"

#include <algorithm>

namespace media_engine {
namespace {

constexpr uint16_t kMaxDropout = 3000;
constexpr uint16_t kMaxMisorder = 100;

constexpr int64_t kLeastLost = -0x800000, kMostLost = 0x7fffff;

/// A.3, in 1/256; more received than expected counts as nothing lost.
uint8_t Fraction(uint64_t expected, uint64_t received) {
  if (expected <= received) return 0;
  return static_cast<uint8_t>(std::min<uint64_t>(((expected - received) << 8) / expected, 255));
}

}  // namespace

void Reception::Count(const RtpHeader& header, uint32_t clock_rate, TimePoint now) {
  if (!started_ || header.ssrc != ssrc_) {
    BeginSource(header);
  } else {
    CountSequence(header.sequence_number);
  }
  MeasureJitter(header, clock_rate, now);
}

void Reception::BeginSource(const RtpHeader& header) {
  if (started_) ++source_changes_;
  started_ = true;
  ssrc_ = header.ssrc;
  lost_before_ = received_before_ = 0;
  fraction_lost_maximum_ = 0;
  jitter_ = 0;
  jitter_measure_ = Measure();
  BeginNumbering(header.sequence_number);
}

void Reception::BeginNumbering(uint16_t number) {
  base_ = highest_ = number;
  seen_.reset();
  seen_.set(0);
  received_ = 1;
  doubled_ = 0;
  restart_at_ = kNoRestart;
  reported_ = Reported();
  has_transit_ = false;
}

void Reception::CountSequence(uint16_t number) {
  const auto ahead = static_cast<uint16_t>(number - static_cast<uint16_t>(highest_));
  const auto behind = static_cast<uint16_t>(-ahead);
  if (ahead != 0 && ahead < kMaxDropout) {
    CountAhead(ahead);
  } else if (behind < kMaxMisorder) {
    CountBehind(behind);
  } else {
    CountFarOff(number);
  }
}

void Reception::CountAhead(uint16_t distance) {
  highest_ += distance;
  seen_ <<= distance;
  seen_.set(0);
  ++received_;
  restart_at_ = kNoRestart;
}

void Reception::CountBehind(uint16_t distance) {
  ++received_;
  if (seen_.test(distance)) {
    ++duplicates_;
    ++doubled_;
    return;
  }
  seen_.set(distance);
  ++reordered_;
  // The first one to come need not be the first one sent.
  base_ = std::min(base_, highest_ - distance);
}

void Reception::CountFarOff(uint16_t number) {
  if (number != restart_at_) {
    restart_at_ = static_cast<uint16_t>(number + 1);
    return;
  }
  ++source_changes_;
  fraction_lost_maximum_ = fraction_lost_maximum();
  lost_before_ = lost();
  received_before_ = received();
  BeginNumbering(number);
  // The one that was taken for a stray was its first.
  --base_;
  seen_.set(1);
  ++received_;
}

uint8_t Reception::FractionSinceReport() const {
  return Fraction(Expected() - reported_.expected, Distinct() - reported_.distinct);
}

uint8_t Reception::fraction_lost_maximum() const {
  return std::max(fraction_lost_maximum_, FractionSinceReport());
}

ReportBlock Reception::Report() {
  ReportBlock block;
  block.ssrc = ssrc_;
  block.fraction_lost = Fraction(Expected() - reported_.expected, received_ - reported_.received);
  const auto lost = static_cast<int64_t>(Expected()) - static_cast<int64_t>(received_);
  block.cumulative_lost = static_cast<int32_t>(std::clamp(lost, kLeastLost, kMostLost));
  block.highest_sequence = static_cast<uint32_t>(highest_);
  block.jitter = jitter();
  fraction_lost_maximum_ = fraction_lost_maximum();
  reported_ = {Expected(), received_, Distinct()};
  return block;
}

void Reception::MeasureJitter(const RtpHeader& header, uint32_t clock_rate, TimePoint now) {
  if (clock_rate == 0) return;
  const auto arrival = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
  const uint32_t transit =
      static_cast<uint32_t>(static_cast<uint64_t>(arrival) * clock_rate / 1000000u) - header.timestamp;
  // Ticks of different clocks have no difference.
  if (has_transit_ && clock_rate == clock_rate_) {
    const auto change = static_cast<int32_t>(transit - transit_);
    const auto distance = static_cast<uint32_t>(change < 0 ? -static_cast<int64_t>(change) : change);
    jitter_ += distance - ((jitter_ + 8) >> kJitterShift);
    jitter_measure_.Add(jitter());
  }
  has_transit_ = true;
  transit_ = transit;
  clock_rate_ = clock_rate;
}

}  // namespace media_engine
