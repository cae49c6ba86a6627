#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "support/rtp_packet.h"
#include "support/rtp_talk.h"

namespace test_support {

struct SentPacket {
  RtpPacket packet;
  RtpKind kind = RtpKind::kAudio;
};

struct ReceivedPacket {
  RtpPacket packet;
  std::string from;  // address:port
  std::chrono::steady_clock::time_point at;
};

/// Everything that happened in one direction of a call.
struct RtpRecord {
  std::vector<SentPacket> sent;          // in order of sending, priming packets first
  std::vector<ReceivedPacket> received;  // in order of arrival
  std::size_t unreadable = 0;            // datagrams that arrived and were no RTP
};

/// What the receiver was promised in signalling.
struct RtpExpectation {
  std::uint8_t audio_payload_type = 0;
  std::uint8_t event_payload_type = 101;
  std::string from;    // the media server's address:port in the description that the receiver got
  std::string digits;  // what was dialled at the other end
  /// The media server passes on packets under the sender's SSRC instead of sending under one of its own.
  bool relays_source = false;
};

/// The verdict on one direction. Passed only when something was heard and nothing is wrong: no data is no pass.
struct RtpComparison {
  std::size_t sent = 0;      // script packets
  std::size_t received = 0;  // script packets that arrived, each counted once
  std::size_t priming_sent = 0;
  std::size_t priming_missed = 0;  // sent before the path was open
  std::size_t lost = 0;
  std::size_t duplicated = 0;
  std::size_t reordered = 0;
  std::size_t foreign = 0;  // neither sent by the other party nor a repetition
  std::size_t altered_payloads = 0;
  std::size_t wrong_payload_types = 0;
  std::size_t wrong_markers = 0;
  std::size_t wrong_timestamps = 0;
  std::size_t wrong_sources = 0;
  std::string digits;                        // telephone-events heard, each once
  std::vector<std::uint32_t> ssrcs;          // in order of appearance
  std::chrono::milliseconds longest_gap{0};  // between two arrivals
  std::vector<std::string> reasons;          // why it did not pass; empty when it did

  bool Passed() const { return reasons.empty() && received > 0; }
  /// One line: "290 of 290 packets, ...".
  std::string Account() const;
  /// The reasons on one line.
  std::string Reasons() const;
};

/// Packets are told apart as a receiver does it (RFC 3550): by sequence number, counted from the first one that
/// arrived, which must be one of the priming packets. A sender of its own at the media server has another SSRC and
/// other first values, the distances stay.
RtpComparison compare_rtp(const RtpRecord& record, const RtpExpectation& expected);

/// The digits that a receiver reads from the packets of `payload_type`: each timestamp is one event, and it counts
/// only when an end packet was seen.
std::string read_digits(const std::vector<ReceivedPacket>& received, std::uint8_t payload_type);

}  // namespace test_support
