#include "rtcp_session.h"

#include <algorithm>

namespace media_engine {
namespace {

/// A far end that was not heard during that many intervals is no member any more (RFC 3550, section 6.3.5).
constexpr unsigned kIntervalsToLive = 5;

constexpr std::size_t kDrawnWords = 3;

std::string DrawCname(RandomSource random) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string cname;
  for (std::size_t word = 0; word < kDrawnWords; ++word) {
    const uint32_t bits = random();
    for (int shift = 28; shift >= 0; shift -= 4) cname += kDigits[bits >> shift & 0xf];
  }
  return cname;
}

/// No longer than fits, and no half character of UTF-8 at the end.
std::string CutCname(const std::string& cname) {
  std::size_t length = cname.size();
  if (length > RtcpWriter::kLongestCname) {
    length = RtcpWriter::kLongestCname;
    while (length > 0 && (static_cast<uint8_t>(cname[length]) & 0xc0) == 0x80) --length;
  }
  return cname.substr(0, length);
}

/// A count that goes round at 32 bits. One that falls was begun anew by the far end.
uint64_t Extended(uint64_t total, uint32_t reported) {
  const uint32_t more = reported - static_cast<uint32_t>(total);
  return more < 0x80000000 ? total + more : reported;
}

/// In 1/65536 s.
uint32_t ShortTime(TimePoint::duration time) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  const uint64_t units = (static_cast<uint64_t>(std::max<int64_t>(microseconds, 0)) << 16) / 1000000u;
  return static_cast<uint32_t>(std::min<uint64_t>(units, UINT32_MAX));
}

}  // namespace

RtcpSession::RtcpSession(const NtpTimeline& timeline, uint32_t ssrc, RandomSource random)
    : timeline_(timeline),
      schedule_(random),
      cname_(DrawCname(random)),
      bandwidth_(RtcpBandwidth(nullptr, kIpv4AndUdpHeaders)),
      headers_(kIpv4AndUdpHeaders),
      quiet_reports_(kIntervalsToLive) {
  sender_.ssrc = ssrc;
}

void RtcpSession::SetCname(const std::string& cname) {
  cname_ = CutCname(cname);
}

void RtcpSession::SetCodec(const Codec* codec, std::size_t ip_and_udp_headers) {
  headers_ = ip_and_udp_headers;
  bandwidth_ = RtcpBandwidth(codec, headers_);
}

void RtcpSession::CountSent(uint32_t ssrc, std::size_t payload_octets) {
  Sender& sender = abandoned_ && abandoned_->sender.ssrc == ssrc ? abandoned_->sender : sender_;
  ++sender.packets;
  sender.octets += payload_octets;
  ++stream_.packets_sent;
  stream_.octets_sent += payload_octets;
}

void RtcpSession::BeginSource(const Reception& former) {
  if (former_count_ == former_.size()) {
    former_[0].Add(former_[1]);
    std::move(former_.begin() + 2, former_.end(), former_.begin() + 1);
    --former_count_;
  }
  former_[former_count_++] = Current(former);
  stream_ = StreamRecord();
  remote_sender_ = RemoteSender();
  remote_lost_before_ = 0;
  remote_sent_before_ = false;
  received_at_goodbye_ = 0;
}

void RtcpSession::Renew(uint32_t ssrc, bool known, uint32_t former_timestamp, TimePoint now) {
  if (known) abandoned_ = Abandoned{sender_, timeline_.At(now), former_timestamp};
  sender_ = Sender();
  sender_.ssrc = ssrc;
  packets_at_reports_.fill(0);
  our_reports_.fill(0);
  // The far end counts from 0 again.
  remote_lost_before_ = stream_.remote_packets_lost;
}

void RtcpSession::Take(RtcpCompound compound, const Reception& reception, TimePoint now) {
  schedule_.Received(compound.length() + headers_);
  remote_reported_ = true;
  const uint32_t far_end = reception.started() ? reception.ssrc() : compound.reporter();
  for (RtcpPart part; compound.Next(part);) {
    if (part.type() == kSenderReport) TakeSenderInfo(part, reception, now);
    for (unsigned i = 0; i < part.count(); ++i) {
      if (part.type() == kSenderReport || part.type() == kReceiverReport) TakeBlock(part.block(i), now);
      if (part.type() == kGoodbye && part.leaver(i) == far_end) FarEndLeft(reception, now);
    }
  }
}

void RtcpSession::TakeSenderInfo(const RtcpPart& part, const Reception& reception, TimePoint now) {
  if (reception.started() && part.reporter() != reception.ssrc()) return;
  if (part.reporter() != remote_sender_.ssrc) remote_sender_ = RemoteSender();
  const SenderInfo info = part.sender();
  remote_sender_.ssrc = part.reporter();
  remote_sender_.last_report = ShortNtp(info.ntp);
  remote_sender_.arrived = now;
  remote_sender_.packets = Extended(remote_sender_.packets, info.packets);
  remote_sender_.octets = Extended(remote_sender_.octets, info.octets);
  ++remote_sender_.reports;
}

void RtcpSession::TakeBlock(const ReportBlock& block, TimePoint now) {
  if (block.ssrc != sender_.ssrc) return;
  const auto lost = static_cast<uint64_t>(std::max(block.cumulative_lost, 0));
  stream_.remote_packets_lost = remote_lost_before_ + lost;
  stream_.remote_fraction_lost_maximum = std::max(stream_.remote_fraction_lost_maximum, block.fraction_lost);
  stream_.remote_jitter.Add(block.jitter);
  MeasureRoundTrip(block, now);
}

/// Section 6.4.1. A stamp that is none of ours, or an answer before the question, would make a round trip of any
/// length.
void RtcpSession::MeasureRoundTrip(const ReportBlock& block, TimePoint now) {
  const uint32_t stamp = block.last_sender_report;
  if (stamp == 0 || std::find(our_reports_.begin(), our_reports_.end(), stamp) == our_reports_.end()) return;
  const uint32_t round_trip = ShortNtp(timeline_.At(now)) - stamp - block.since_sender_report;
  if (round_trip < 0x80000000) stream_.round_trip.Add(round_trip);
}

void RtcpSession::FarEndLeft(const Reception& reception, TimePoint now) {
  schedule_.FarEndLeft(now);
  quiet_reports_ = kIntervalsToLive;
  remote_reported_ = false;
  remote_sent_before_ = false;
  received_at_goodbye_ = reception.received();
}

RtcpLoad RtcpSession::Load(const Reception& reception) const {
  const bool far_end_sends = remote_sent_before_ || FarEndSent(reception);
  const bool far_end_there = far_end_sends || remote_reported_ || quiet_reports_ < kIntervalsToLive;
  RtcpLoad load;
  load.we_sent = WeSent();
  load.members = far_end_there ? 2 : 1;
  load.senders = (load.we_sent ? 1u : 0u) + (far_end_sends ? 1u : 0u);
  load.bandwidth = bandwidth_;
  return load;
}

bool RtcpSession::IsDue(const Reception& reception, TimePoint now) {
  if (schedule_.started()) return schedule_.HasExpired(now) && schedule_.Expire(Load(reception), now);
  const std::size_t usual_length = RtcpWriter::kLongest - RtcpWriter::kLongestCname + cname_.size();
  schedule_.Start(Load(reception), headers_ + usual_length, now);
  return false;
}

SenderInfo RtcpSession::InfoOf(const Sender& sender, NtpTime ntp, uint32_t timestamp) {
  return {ntp, timestamp, static_cast<uint32_t>(sender.packets), static_cast<uint32_t>(sender.octets)};
}

void RtcpSession::AddTimes(ReportBlock& block, TimePoint now) const {
  if (remote_sender_.reports == 0 || remote_sender_.ssrc != block.ssrc) return;
  block.last_sender_report = remote_sender_.last_report;
  block.since_sender_report = ShortTime(now - remote_sender_.arrived);
}

RtcpSession::Report RtcpSession::WriteReport(Reception& reception, uint32_t timestamp, bool last, TimePoint now,
                                             uint8_t* to) {
  const bool far_end_sent = FarEndSent(reception);
  quiet_reports_ = far_end_sent || remote_reported_ ? 0 : std::min(quiet_reports_ + 1, kIntervalsToLive);
  remote_sent_before_ = far_end_sent;
  remote_reported_ = false;

  Report report;
  if (WeSent()) report.sender_report = timeline_.At(now);
  const SenderInfo info = InfoOf(sender_, report.sender_report.value_or(0), timestamp);
  ReportBlock block;
  const bool has_block = reception.HeardSinceReport();
  if (has_block) {
    block = reception.Report();
    AddTimes(block, now);
  }
  RtcpWriter writer(to);
  writer.AddReport(sender_.ssrc, report.sender_report ? &info : nullptr, has_block ? &block : nullptr);
  writer.AddCname(sender_.ssrc, cname_);
  if (last) writer.AddGoodbye(sender_.ssrc);
  report.length = writer.length();
  return report;
}

void RtcpSession::Reported(const Report& report, bool sent, const Reception& reception, TimePoint now) {
  packets_at_reports_ = {sender_.packets, packets_at_reports_.front()};
  schedule_.Reported(Load(reception), sent ? report.length + headers_ : 0, now);
  if (!sent) return;
  sender_.reported = true;
  if (!report.sender_report) return;
  ++stream_.sender_reports_sent;
  std::move_backward(our_reports_.begin(), our_reports_.end() - 1, our_reports_.end());
  our_reports_.front() = ShortNtp(*report.sender_report);
}

std::size_t RtcpSession::WriteFarewell(uint8_t* to) {
  const Sender& sender = abandoned_->sender;
  const SenderInfo info = InfoOf(sender, abandoned_->ntp, abandoned_->timestamp);
  RtcpWriter writer(to);
  writer.AddReport(sender.ssrc, sender.packets > 0 ? &info : nullptr, nullptr);
  writer.AddCname(sender.ssrc, cname_);
  writer.AddGoodbye(sender.ssrc);
  abandoned_.reset();
  return writer.length();
}

StreamRecord RtcpSession::Current(const Reception& reception) const {
  StreamRecord record = stream_;
  record.remote_ssrc = reception.ssrc();
  record.packets_received = reception.received();
  record.packets_lost = reception.lost();
  record.fraction_lost_maximum = reception.fraction_lost_maximum();
  record.jitter = reception.jitter_measure();
  const bool of_another = reception.started() && remote_sender_.ssrc != reception.ssrc();
  if (remote_sender_.reports == 0 || of_another) return record;
  record.remote_packets_sent = remote_sender_.packets;
  record.remote_octets_sent = remote_sender_.octets;
  record.sender_reports_received = remote_sender_.reports;
  return record;
}

std::vector<StreamStatistics> RtcpSession::Streams(const Reception& reception) const {
  std::vector<StreamStatistics> streams;
  for (std::size_t i = 0; i < former_count_; ++i) streams.push_back(former_[i].Read());
  if (reception.started() || stream_.packets_sent > 0) streams.push_back(Current(reception).Read());
  return streams;
}

StreamRecord RtcpSession::Total(const Reception& reception) const {
  StreamRecord total;
  for (std::size_t i = 0; i < former_count_; ++i) total.Add(former_[i]);
  total.Add(Current(reception));
  return total;
}

}  // namespace media_engine
