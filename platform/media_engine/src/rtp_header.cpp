#include "rtp_header.h"

#include "network_order.h"

namespace media_engine {
namespace {

constexpr uint8_t kVersion = 2;
// The payload types that the packet types of RTCP, 200 to 204, look like: such a packet has lost its way.
constexpr uint8_t kFirstRtcpLookalike = 72;
constexpr uint8_t kLastRtcpLookalike = 76;

}  // namespace

std::optional<RtpHeader> ParseRtp(const uint8_t* packet, std::size_t length) {
  if (length < kRtpHeaderLength || packet[0] >> 6 != kVersion) return std::nullopt;
  RtpHeader header;
  header.marker = (packet[1] & 0x80) != 0;
  header.payload_type = packet[1] & 0x7f;
  if (header.payload_type >= kFirstRtcpLookalike && header.payload_type <= kLastRtcpLookalike) return std::nullopt;
  header.sequence_number = Read16(packet + 2);
  header.timestamp = Read32(packet + 4);
  header.ssrc = SsrcOf(packet);

  std::size_t offset = kRtpHeaderLength + std::size_t{4} * (packet[0] & 0x0f);
  const bool has_extension = (packet[0] & 0x10) != 0;
  if (has_extension) {
    if (offset + 4 > length) return std::nullopt;
    offset += 4 + std::size_t{4} * Read16(packet + offset + 2);
  }
  if (offset > length) return std::nullopt;

  std::size_t end = length;
  const bool has_padding = (packet[0] & 0x20) != 0;
  if (has_padding) {
    const std::size_t padding = end > offset ? packet[length - 1] : 0;
    if (padding == 0 || padding > end - offset) return std::nullopt;
    end -= padding;
  }
  header.payload_offset = offset;
  header.payload_length = end - offset;
  return header;
}

uint32_t SsrcOf(const uint8_t* packet) {
  return Read32(packet + 8);
}

void WriteRtpHeader(const RtpHeader& header, uint8_t* to) {
  to[0] = kVersion << 6;
  to[1] = static_cast<uint8_t>((header.marker ? 0x80 : 0) | (header.payload_type & 0x7f));
  Write16(header.sequence_number, to + 2);
  Write32(header.timestamp, to + 4);
  Write32(header.ssrc, to + 8);
}

}  // namespace media_engine
