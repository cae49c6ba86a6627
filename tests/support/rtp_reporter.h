#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "support/rtp_packet.h"

namespace test_support {

/// What a phone's RTCP has said and heard so far.
struct RtcpAccount {
  std::size_t sender_reports = 0;  // sent
  std::uint32_t packets_sent = 0;  // as the last of them said
  std::uint32_t octets_sent = 0;   // of payload
  std::uint32_t packets_heard = 0;
  std::int32_t lost = 0;  // of the far end's packets, as the last report said

  std::size_t heard_sender_reports = 0;
  std::uint32_t heard_packets_sent = 0;  // as the far end's last sender report said
  std::size_t heard_blocks = 0;          // report blocks about this phone
  std::int32_t heard_lost = 0;           // as the last of them said
  std::size_t malformed = 0;             // datagrams that are no compound packet of SR and RR
};

/// The RTCP of a phone with one stream each way (RFC 3550 section 6): counts what it is told of, makes reports, reads
/// the far end's. No socket and no clock of its own.
class RtcpReporter {
 public:
  using Time = std::chrono::steady_clock::time_point;

  RtcpReporter(std::uint32_t ssrc, std::uint32_t clock_rate) : ssrc_(ssrc), clock_rate_(clock_rate) {}

  void Sent(const RtpPacket& packet, Time now);
  void Heard(const RtpPacket& packet, Time now);
  void HeardReport(const std::vector<std::uint8_t>& datagram, Time now);
  /// A compound packet: SR, or RR as long as nothing was sent, with a block on what was heard, and SDES with a CNAME.
  std::vector<std::uint8_t> Report(Time now);

  const RtcpAccount& Account() const { return account_; }

 private:
  /// What is heard (RFC 3550 A.1, A.3, A.8).
  struct Reception {
    std::uint32_t ssrc = 0;
    std::uint32_t first = 0;    // extended sequence numbers
    std::uint32_t highest = 0;  // grows past 16 bits at each wrap
    std::uint32_t received = 0;
    std::uint32_t expected_before = 0;  // at the last report
    std::uint32_t received_before = 0;
    std::int64_t transit = 0;
    double jitter = 0;
  };

  void ReadReport(const std::uint8_t* packet, std::size_t size, Time now);
  void AddBlock(std::vector<std::uint8_t>& out, Time now);

  const std::uint32_t ssrc_;
  const std::uint32_t clock_rate_;
  RtcpAccount account_;
  std::uint32_t packets_ = 0;
  std::uint32_t octets_ = 0;
  std::uint32_t last_timestamp_ = 0;
  Time last_sent_{};
  std::optional<Reception> reception_;
  std::uint32_t last_sr_ = 0;  // middle of its NTP time; 0: none heard
  Time last_sr_at_{};
};

}  // namespace test_support
