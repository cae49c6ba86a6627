/// The RTP fixed header (RFC 3550, section 5.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace media_engine {

constexpr std::size_t kRtpHeaderLength = 12;

/// A packet's header fields, and where its payload lies: behind contributing sources and header extension, before
/// the padding.
struct RtpHeader {
  bool marker = false;
  uint8_t payload_type = 0;
  uint16_t sequence_number = 0;
  uint32_t timestamp = 0;
  uint32_t ssrc = 0;
  std::size_t payload_offset = kRtpHeaderLength;
  std::size_t payload_length = 0;
};

/// None for what is not valid RTP: see RFC 3550, A.1. Looks at no octet beyond length.
std::optional<RtpHeader> ParseRtp(const uint8_t* packet, std::size_t length);

/// Of a packet that is valid.
uint32_t SsrcOf(const uint8_t* packet);

/// Writes the twelve octets of a header without contributing sources, extension and padding.
void WriteRtpHeader(const RtpHeader& header, uint8_t* to);

}  // namespace media_engine
