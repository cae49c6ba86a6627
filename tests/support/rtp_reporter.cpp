#include "support/rtp_reporter.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "support/rtp_packet.h"

namespace test_support {
namespace {

constexpr std::uint8_t kVersion = 0x80;
constexpr std::uint8_t kSenderReport = 200;
constexpr std::uint8_t kReceiverReport = 201;
constexpr std::uint8_t kSourceDescription = 202;
constexpr std::uint8_t kCname = 1;
constexpr std::size_t kHeaderBytes = 8;  // with the sender's SSRC
constexpr std::size_t kSenderBytes = 20;
constexpr std::size_t kBlockBytes = 24;
constexpr std::uint32_t kMostLost = 0x7fffff;
const std::string kName = "phone@127.0.0.1";

void put8(std::vector<std::uint8_t>& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value & 0xff));
}

void put16(std::vector<std::uint8_t>& out, std::uint32_t value) {
  put8(out, value >> 8);
  put8(out, value);
}

void put32(std::vector<std::uint8_t>& out, std::uint32_t value) {
  put16(out, value >> 16);
  put16(out, value);
}

std::uint32_t get16(const std::uint8_t* data) {
  return (static_cast<std::uint32_t>(data[0]) << 8) | data[1];
}

std::uint32_t get32(const std::uint8_t* data) {
  return (get16(data) << 16) | get16(data + 2);
}

/// Seconds and their fraction in 2^-32. The time since some fixed moment will do (RFC 3550 section 6.4.1).
std::uint64_t ntp_time(RtcpReporter::Time now) {
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count();
  const auto seconds = static_cast<std::uint64_t>(ns / 1000000000);
  const auto fraction = (static_cast<std::uint64_t>(ns % 1000000000) << 32) / 1000000000;
  return (seconds << 32) | fraction;
}

/// The length field of a packet that starts at `start` of `out`, in words less one.
void close_packet(std::vector<std::uint8_t>& out, std::size_t start) {
  const std::size_t words = (out.size() - start) / 4 - 1;
  out[start + 2] = static_cast<std::uint8_t>(words >> 8);
  out[start + 3] = static_cast<std::uint8_t>(words & 0xff);
}

void add_source_description(std::vector<std::uint8_t>& out, std::uint32_t ssrc) {
  const std::size_t start = out.size();
  put8(out, kVersion | 1);
  put8(out, kSourceDescription);
  put16(out, 0);
  put32(out, ssrc);
  put8(out, kCname);
  put8(out, static_cast<std::uint32_t>(kName.size()));
  out.insert(out.end(), kName.begin(), kName.end());
  do put8(out, 0);  // the list ends with a null octet at least
  while (out.size() % 4 != 0);
  close_packet(out, start);
}

}  // namespace

void RtcpReporter::Sent(const RtpPacket& packet, Time now) {
  ++packets_;
  octets_ += static_cast<std::uint32_t>(packet.payload.size());
  last_timestamp_ = packet.timestamp;
  last_sent_ = now;
}

void RtcpReporter::Heard(const RtpPacket& packet, Time now) {
  ++account_.packets_heard;
  const std::chrono::duration<double> arrival = now.time_since_epoch();
  const auto transit = static_cast<std::int64_t>(arrival.count() * clock_rate_) - packet.timestamp;
  if (!reception_ || reception_->ssrc != packet.ssrc) {
    reception_ = Reception{};
    reception_->ssrc = packet.ssrc;
    // One wrap up, so that a packet before the first one has a number too.
    reception_->first = reception_->highest = 0x10000u + packet.sequence;
    reception_->transit = transit;
  }
  Reception& heard = *reception_;
  ++heard.received;
  const int ahead = sequence_distance(static_cast<std::uint16_t>(heard.highest), packet.sequence);
  if (ahead > 0) heard.highest += static_cast<std::uint32_t>(ahead);
  // The timestamp wraps at 32 bits, so only so much of the difference counts.
  const auto difference = static_cast<std::int32_t>(static_cast<std::uint32_t>(transit - heard.transit));
  heard.transit = transit;
  heard.jitter += (std::abs(static_cast<double>(difference)) - heard.jitter) / 16;
}

std::vector<std::uint8_t> RtcpReporter::Report(Time now) {
  std::vector<std::uint8_t> out;
  put8(out, kVersion | (reception_ ? 1 : 0));
  put8(out, packets_ != 0 ? kSenderReport : kReceiverReport);
  put16(out, 0);
  put32(out, ssrc_);
  if (packets_ != 0) {
    const std::uint64_t ntp = ntp_time(now);
    const std::chrono::duration<double> since = now - last_sent_;
    put32(out, static_cast<std::uint32_t>(ntp >> 32));
    put32(out, static_cast<std::uint32_t>(ntp));
    put32(out, last_timestamp_ + static_cast<std::uint32_t>(since.count() * clock_rate_));
    put32(out, packets_);
    put32(out, octets_);
    ++account_.sender_reports;
    account_.packets_sent = packets_;
    account_.octets_sent = octets_;
  }
  if (reception_) AddBlock(out, now);
  close_packet(out, 0);
  add_source_description(out, ssrc_);
  return out;
}

void RtcpReporter::AddBlock(std::vector<std::uint8_t>& out, Time now) {
  Reception& heard = *reception_;
  const std::uint32_t expected = heard.highest - heard.first + 1;
  const auto lost = static_cast<std::int32_t>(expected - heard.received);
  const std::uint32_t expected_now = expected - heard.expected_before;
  const auto lost_now = static_cast<std::int32_t>(expected_now - (heard.received - heard.received_before));
  heard.expected_before = expected;
  heard.received_before = heard.received;
  account_.lost = lost;
  const std::uint32_t fraction =
      lost_now > 0 && expected_now > 0 ? (static_cast<std::uint32_t>(lost_now) << 8) / expected_now : 0;
  put32(out, heard.ssrc);
  put8(out, std::min(fraction, 255u));
  const std::uint32_t counted = std::min(static_cast<std::uint32_t>(std::max(lost, 0)), kMostLost);
  put8(out, counted >> 16);
  put16(out, counted);
  put32(out, heard.highest - 0x10000u);
  put32(out, static_cast<std::uint32_t>(heard.jitter));
  const std::chrono::duration<double> delay = now - last_sr_at_;
  put32(out, last_sr_);
  put32(out, last_sr_ != 0 ? static_cast<std::uint32_t>(delay.count() * 65536) : 0);
}

void RtcpReporter::HeardReport(const std::vector<std::uint8_t>& datagram, Time now) {
  std::size_t at = 0;
  bool any_report = false;
  while (datagram.size() - at >= 4) {
    const std::uint8_t* packet = datagram.data() + at;
    const std::size_t size = 4 * (get16(packet + 2) + 1);
    if ((packet[0] & 0xc0) != kVersion || size > datagram.size() - at) break;
    if (packet[1] == kSenderReport || packet[1] == kReceiverReport) {
      ReadReport(packet, size, now);
      any_report = true;
    }
    at += size;
  }
  if (at != datagram.size() || !any_report) ++account_.malformed;
}

void RtcpReporter::ReadReport(const std::uint8_t* packet, std::size_t size, Time now) {
  std::size_t at = kHeaderBytes;
  if (packet[1] == kSenderReport) {
    if (size < at + kSenderBytes) return;
    ++account_.heard_sender_reports;
    account_.heard_packets_sent = get32(packet + at + 12);
    last_sr_ = (get16(packet + at + 2) << 16) | get16(packet + at + 4);
    last_sr_at_ = now;
    at += kSenderBytes;
  }
  for (int blocks = packet[0] & 0x1f; blocks > 0 && size >= at + kBlockBytes; --blocks, at += kBlockBytes) {
    if (get32(packet + at) != ssrc_) continue;
    ++account_.heard_blocks;
    const std::uint32_t lost = get32(packet + at + 4) & 0xffffff;
    account_.heard_lost = static_cast<std::int32_t>(lost << 8) / 256;  // 24 bits with a sign
  }
}

}  // namespace test_support
