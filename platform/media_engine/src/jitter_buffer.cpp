#include "jitter_buffer.h"

#include <algorithm>

namespace media_engine {
namespace {

using std::chrono::microseconds;

// RFC 3550, A.1: further apart, and the numbering has started anew.
constexpr int kMaxDropout = 3000;
constexpr int kMaxMisorder = 100;
constexpr milliseconds kPause{150};
constexpr milliseconds kAllLateLimit{250};
constexpr seconds kLeap{2};
constexpr std::size_t kPacketsBeforeShrinking = 100;
constexpr int kApproachDivisor = 20;
constexpr milliseconds kLongestPacketTime{120};

// What the room is for. Longer packets come less often, so their blocks suffice.
constexpr milliseconds kShortestPacketTime{5};
constexpr std::size_t kSpareRoom = 8;

std::size_t RoomFor(const JitterPlan& plan) {
  return static_cast<std::size_t>(plan.max_delay / kShortestPacketTime) + kSpareRoom;
}

microseconds SinceEpoch(TimePoint time) {
  return std::chrono::duration_cast<microseconds>(time.time_since_epoch());
}

int Distance(int64_t from, uint16_t to) {
  return static_cast<int16_t>(static_cast<uint16_t>(to - static_cast<uint16_t>(from)));
}

}  // namespace

JitterBuffer::JitterBuffer(const JitterPlan& plan)
    : plan_(plan), store_(RoomFor(plan)), delay_(plan.initial_delay), offset_(delay_) {
  held_.reserve(RoomFor(plan));
}

JitterBuffer::Verdict JitterBuffer::Put(const RtpHeader& header, const uint8_t* packet, uint32_t clock_rate,
                                        TimePoint now) {
  const microseconds arrival = SinceEpoch(now);
  const bool timed = clock_rate != 0;
  if (!Continues(header, clock_rate)) Restart(header);
  Held one;
  one.header = header;
  one.number = highest_ + Distance(highest_, header.sequence_number);
  if (one.number <= played_) return CountPassed(one, timed, arrival);
  const auto twin = std::find_if(held_.rbegin(), held_.rend(), [&](const Held& h) { return h.number <= one.number; });
  if (twin != held_.rend() && twin->number == one.number) {
    ++counters_.duplicates;
    return Verdict::kDuplicate;
  }
  if (timed) {
    Measure(one, clock_rate, arrival);
  } else {
    one.sent = arrival - window_.shortest();
  }
  const bool reordered = one.number < highest_;
  highest_ = std::max(highest_, one.number);
  if (timed && !InTime(one, arrival)) {
    ++counters_.late;
    return Verdict::kLate;
  }
  const Verdict verdict = Insert(one, packet, timed, arrival);
  if (reordered && verdict == Verdict::kHeld) ++counters_.reordered;
  return verdict;
}

bool JitterBuffer::Continues(const RtpHeader& header, uint32_t clock_rate) const {
  if (!started_ || header.ssrc != ssrc_) return false;
  if (clock_rate != 0 && clock_rate_ != 0 && clock_rate != clock_rate_) return false;
  const int distance = Distance(highest_, header.sequence_number);
  return distance < kMaxDropout && distance > -kMaxMisorder;
}

/// Numbers go on far enough behind those that are held for packets that this one has overtaken.
void JitterBuffer::Restart(const RtpHeader& header) {
  started_ = true;
  ssrc_ = header.ssrc;
  const int64_t least = highest_ + kMaxMisorder;
  highest_ = least + static_cast<uint16_t>(header.sequence_number - static_cast<uint16_t>(least));
  clock_rate_ = 0;
  StartMeasuring(plan_.initial_delay);
  if (held_.empty()) offset_ = Target();
}

JitterBuffer::Verdict JitterBuffer::CountPassed(const Held& one, bool timed, microseconds arrival) {
  const int64_t age = played_ - one.number;
  if (age < 64 && (played_before_ >> age & 1) != 0) {
    ++counters_.duplicates;
    return Verdict::kDuplicate;
  }
  // Those that take a longer way count in what delay is needed.
  if (timed && clock_rate_ != 0) {
    const microseconds transit = arrival - SentAt(one.header.timestamp);
    if (transit - window_.shortest() < kLeap && transit >= window_.shortest() && window_.Add(transit)) Adapt();
  }
  ++counters_.late;
  return Verdict::kLate;
}

microseconds JitterBuffer::SentAt(uint32_t timestamp) {
  const int64_t ticks = ticks_ + static_cast<int32_t>(timestamp - static_cast<uint32_t>(ticks_));
  ticks_ = std::max(ticks_, ticks);
  const int64_t ahead = ticks - anchor_ticks_;
  return anchor_ + seconds(ahead / clock_rate_) + microseconds(ahead % clock_rate_ * 1000000 / clock_rate_);
}

void JitterBuffer::StartMeasuring(microseconds delay) {
  const microseconds shortest = window_.shortest();
  window_.Clear();
  window_.Add(shortest);
  delay_ = delay;
  all_late_ = false;
}

/// The packet is taken as having had the shortest transit time so far, so that what is held keeps its times.
void JitterBuffer::Anchor(Held& one, microseconds arrival) {
  ticks_ = anchor_ticks_ = one.header.timestamp;
  anchor_ = one.sent = arrival - window_.shortest();
  one.begins = true;
}

void JitterBuffer::Measure(Held& one, uint32_t clock_rate, microseconds arrival) {
  if (clock_rate_ == 0) {
    clock_rate_ = clock_rate;
    Anchor(one, arrival);
  } else {
    one.sent = SentAt(one.header.timestamp);
    one.begins = one.header.marker || one.sent - last_sent_ >= kPause;
  }
  const microseconds excess = arrival - one.sent - window_.shortest();
  if (excess > kLeap || excess < -microseconds(kLeap)) {
    StartMeasuring(plan_.initial_delay);
    Anchor(one, arrival);
  }
  if (window_.Add(arrival - one.sent)) Adapt();
  last_sent_ = std::max(last_sent_, one.sent);
}

void JitterBuffer::Adapt() {
  if (plan_.mode != JitterMode::kAdaptive) return;
  const microseconds needed = std::clamp<microseconds>(window_.spread(), plan_.min_delay, plan_.max_delay);
  if (needed > delay_ || window_.count() >= kPacketsBeforeShrinking) delay_ = needed;
}

bool JitterBuffer::InTime(Held& one, microseconds arrival) {
  if (one.sent + OffsetFor(one) < arrival && plan_.mode == JitterMode::kAdaptive) {
    window_.Refresh();
    Adapt();
    if (held_.empty()) offset_ = std::max(offset_, Target());
  }
  if (one.sent + OffsetFor(one) >= arrival) {
    all_late_ = false;
    return true;
  }
  if (!all_late_) all_late_since_ = arrival;
  all_late_ = true;
  // Some senders' timestamps stand still while they are silent.
  const bool after_silence = one.header.marker && held_.empty();
  if (!after_silence && arrival - all_late_since_ < kAllLateLimit) return false;
  StartMeasuring(delay_);
  Anchor(one, arrival);
  return true;
}

JitterBuffer::Verdict JitterBuffer::Insert(Held& one, const uint8_t* packet, bool timed, microseconds arrival) {
  one.latest = arrival + plan_.max_delay;
  if (timed && !one.begins && begins_held_ == 0) offset_ = std::min(offset_, one.latest - one.sent);
  if (held_.size() == held_.capacity() ||
      !store_.Put(packet + one.header.payload_offset, one.header.payload_length, one.payload)) {
    ++counters_.overflows;
    return Verdict::kOverflow;
  }
  one.header.payload_offset = kRtpHeaderLength;
  begins_held_ += one.begins ? 1 : 0;
  const auto behind = std::find_if(held_.rbegin(), held_.rend(), [&](const Held& h) { return h.number < one.number; });
  const auto place = held_.insert(behind.base(), one);
  KeepInOrder(static_cast<std::size_t>(place - held_.begin()));
  return Verdict::kHeld;
}

/// A packet must not keep those behind it waiting: one that was timed by its arrival, or that came behind them.
void JitterBuffer::KeepInOrder(std::size_t place) {
  const auto hasten = [](Held& one, const Held& next) {
    const bool waited_for = one.sent > next.sent || one.latest > next.latest;
    one.sent = std::min(one.sent, next.sent);
    one.latest = std::min(one.latest, next.latest);
    return waited_for;
  };
  if (place + 1 < held_.size()) hasten(held_[place], held_[place + 1]);
  while (place > 0 && hasten(held_[place - 1], held_[place])) --place;
}

TimePoint JitterBuffer::NextDue() const {
  if (held_.empty()) return TimePoint::max();
  const Held& next = held_.front();
  return TimePoint(std::min(next.sent + (next.begins ? Target() : offset_), next.latest));
}

bool JitterBuffer::Take(TimePoint now, RtpHeader& header, uint8_t* packet) {
  if (NextDue() > now) return false;
  const Held next = held_.front();
  held_.erase(held_.begin());
  if (next.begins) {
    offset_ = Target();
    --begins_held_;
  } else {
    Approach(next.sent - last_played_);
  }
  last_played_ = next.sent;
  NotePlayed(next.number);
  header = next.header;
  store_.Take(next.payload, header.payload_length, packet + header.payload_offset);
  return true;
}

void JitterBuffer::Approach(microseconds played) {
  const microseconds step = std::clamp<microseconds>(played, microseconds(0), kLongestPacketTime) / kApproachDivisor;
  offset_ += std::clamp(Target() - offset_, -step, step);
}

void JitterBuffer::NotePlayed(int64_t number) {
  const int64_t ahead = number - played_;
  played_before_ = ahead < 64 ? played_before_ << ahead : 0;
  played_before_ |= 1;
  played_ = number;
}

void JitterBuffer::Discard() {
  counters_.discarded += held_.size();
  held_.clear();
  begins_held_ = 0;
  store_.Clear();
  started_ = false;
}

void JitterBuffer::AddTo(EndpointStatistics& statistics) const {
  statistics.jitter_buffer_late += counters_.late;
  statistics.jitter_buffer_duplicates += counters_.duplicates;
  statistics.jitter_buffer_overflows += counters_.overflows;
  statistics.jitter_buffer_discarded += counters_.discarded;
  statistics.jitter_buffer_reordered += counters_.reordered;
  const auto delay = std::chrono::duration_cast<milliseconds>(std::max(offset_ - window_.shortest(), microseconds(0)));
  statistics.jitter_buffer_delay_ms = static_cast<uint32_t>(delay.count());
}

}  // namespace media_engine
