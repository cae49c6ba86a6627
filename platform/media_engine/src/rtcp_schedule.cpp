#include "rtcp_schedule.h"

#include <algorithm>

#include "rtp_header.h"

namespace media_engine {
namespace {

constexpr double kShortestInterval = 5;
constexpr double kShare = 0.05;
constexpr double kSendersShare = 0.25;
// Reconsideration lets intervals come out shorter than drawn; this puts them right in the mean: e - 3/2.
constexpr double kCompensation = 2.71828 - 1.5;

// Of a codec whose rate varies, or that is not known: little, so that reports are rather too few.
constexpr int kUnknownBitRate = 8000;
constexpr int kUsualPacketTimeMs = 20;

}  // namespace

double RtcpBandwidth(const Codec* codec, std::size_t ip_and_udp_headers) {
  const int bit_rate = codec != nullptr && codec->bit_rate > 0 ? codec->bit_rate : kUnknownBitRate;
  const int packet_time_ms = codec != nullptr && codec->packet_time_ms > 0 ? codec->packet_time_ms : kUsualPacketTimeMs;
  const double headers = static_cast<double>(ip_and_udp_headers + kRtpHeaderLength) * 1000 / packet_time_ms;
  return (bit_rate / 8.0 + headers) * kShare;
}

double RtcpInterval(const RtcpLoad& load, double average_size, bool initial) {
  double bandwidth = load.bandwidth;
  unsigned sharing = load.members;
  if (load.senders <= load.members * kSendersShare) {
    // Few send: they have a quarter to themselves, so that their names and times are known soon.
    bandwidth *= load.we_sent ? kSendersShare : 1 - kSendersShare;
    sharing = load.we_sent ? load.senders : load.members - load.senders;
  }
  const double shortest = initial ? kShortestInterval / 2 : kShortestInterval;
  return bandwidth > 0 ? std::max(average_size * sharing / bandwidth, shortest) : shortest;
}

TimePoint::duration RtcpSchedule::Draw(const RtcpLoad& load) const {
  const double factor = 0.5 + random_() / 4294967296.0;
  const double interval = RtcpInterval(load, average_size_, initial_) * factor / kCompensation;
  return std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(interval));
}

void RtcpSchedule::Start(const RtcpLoad& load, std::size_t first_size, TimePoint now) {
  started_ = true;
  average_size_ = static_cast<double>(first_size);
  last_ = now;
  next_ = now + Draw(load);
  members_ = load.members;
}

bool RtcpSchedule::Expire(const RtcpLoad& load, TimePoint now) {
  if (!HasExpired(now)) return false;
  next_ = last_ + Draw(load);
  members_ = load.members;
  return next_ <= now;
}

void RtcpSchedule::Reported(const RtcpLoad& load, std::size_t size, TimePoint now) {
  if (size > 0) {
    Average(size);
    initial_ = false;
  }
  last_ = now;
  // Drawn anew: the one that has just proved short enough is no longer a fair draw.
  next_ = now + Draw(load);
  members_ = load.members;
}

void RtcpSchedule::FarEndLeft(TimePoint now) {
  if (!started_ || members_ < 2) return;
  const auto share = static_cast<TimePoint::rep>(members_);
  next_ = now + (next_ - now) / share;
  last_ = now - (now - last_) / share;
  members_ = 1;
}

}  // namespace media_engine
