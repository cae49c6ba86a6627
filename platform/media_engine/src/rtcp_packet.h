/// RTCP packets (RFC 3550, section 6.4): what comes is taken apart without trusting any length or count in it, and ours
/// are put together.
///
/// RTCP comes in compound packets, a report first. The whole is checked before a part of it is looked at (A.2), so a
/// compound that lies anywhere says nothing. Of what a part holds only that is checked which is read here: source
/// descriptions and unknown packet types are stepped over.
///
/// Threads: none of their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "ntp_time.h"

namespace media_engine {

constexpr uint8_t kSenderReport = 200;
constexpr uint8_t kReceiverReport = 201;
constexpr uint8_t kSourceDescription = 202;
constexpr uint8_t kGoodbye = 203;

struct SenderInfo {
  NtpTime ntp = 0;
  uint32_t rtp_timestamp = 0;
  uint32_t packets = 0;
  uint32_t octets = 0;
};

struct ReportBlock {
  uint32_t ssrc = 0;
  uint8_t fraction_lost = 0;    // in 1/256
  int32_t cumulative_lost = 0;  // fits 24 bits with its sign
  uint32_t highest_sequence = 0;
  uint32_t jitter = 0;               // in timestamp units
  uint32_t last_sender_report = 0;   // ShortNtp of the SR; 0: none has come
  uint32_t since_sender_report = 0;  // in 1/65536 s
};

/// One packet of a compound. Points into it, and may be read as far as its type says.
class RtcpPart {
 public:
  uint8_t type() const { return type_; }
  /// Of report blocks, or of sources that leave.
  unsigned count() const { return count_; }
  /// Of a report: whose it is.
  uint32_t reporter() const;
  /// Of a sender report.
  SenderInfo sender() const;
  /// Of a report; i is below count().
  ReportBlock block(unsigned i) const;
  /// Of a goodbye; i is below count().
  uint32_t leaver(unsigned i) const;

 private:
  friend class RtcpCompound;
  const uint8_t* data_ = nullptr;
  uint8_t type_ = 0;
  uint8_t count_ = 0;
};

class RtcpCompound {
 public:
  /// None for what is not a valid compound packet. Looks at no octet beyond length; the octets must outlive the result.
  static std::optional<RtcpCompound> Parse(const uint8_t* data, std::size_t length);

  std::size_t length() const { return length_; }
  /// Whose report comes first.
  uint32_t reporter() const;
  /// Steps on to the next packet, the first one to begin with. False when there is none left.
  bool Next(RtcpPart& part);

 private:
  RtcpCompound(const uint8_t* data, std::size_t length) : data_(data), length_(length) {}

  const uint8_t* data_;
  std::size_t length_;
  std::size_t offset_ = 0;
};

/// Writes a compound packet, one part behind the other.
class RtcpWriter {
 public:
  static constexpr std::size_t kLongestCname = 255;
  /// A sender report with one block, a source description and a goodbye.
  static constexpr std::size_t kLongest = (28 + 24) + (4 + 4 + 2 + kLongestCname + 3) + 8;

  /// There is room for kLongest octets.
  explicit RtcpWriter(uint8_t* to) : to_(to) {}

  /// A sender report with the sender's information, else a receiver report; with one report block or none.
  void AddReport(uint32_t ssrc, const SenderInfo* sender, const ReportBlock* block);
  /// A source description that holds the CNAME, of kLongestCname octets at most.
  void AddCname(uint32_t ssrc, const std::string& cname);
  void AddGoodbye(uint32_t ssrc);
  std::size_t length() const { return length_; }

 private:
  uint8_t* Add(uint8_t type, unsigned count, std::size_t length);

  uint8_t* const to_;
  std::size_t length_ = 0;
};

}  // namespace media_engine
