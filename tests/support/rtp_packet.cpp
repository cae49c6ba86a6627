#include "support/rtp_packet.h"

#include <cstring>

namespace test_support {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr char kDigits[] = "0123456789*#ABCD";

void put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value & 0xff));
}

void put32(std::vector<std::uint8_t>& out, std::uint32_t value) {
  put16(out, static_cast<std::uint16_t>(value >> 16));
  put16(out, static_cast<std::uint16_t>(value & 0xffff));
}

std::uint16_t get16(const std::uint8_t* data) {
  return static_cast<std::uint16_t>((data[0] << 8) | data[1]);
}

std::uint32_t get32(const std::uint8_t* data) {
  return (static_cast<std::uint32_t>(get16(data)) << 16) | get16(data + 2);
}

}  // namespace

std::vector<std::uint8_t> serialise_rtp(const RtpPacket& packet) {
  std::vector<std::uint8_t> out;
  out.reserve(kHeaderSize + packet.payload.size());
  out.push_back(0x80);
  out.push_back(static_cast<std::uint8_t>((packet.marker ? 0x80 : 0) | (packet.payload_type & 0x7f)));
  put16(out, packet.sequence);
  put32(out, packet.timestamp);
  put32(out, packet.ssrc);
  out.insert(out.end(), packet.payload.begin(), packet.payload.end());
  return out;
}

std::optional<RtpPacket> parse_rtp(const std::uint8_t* data, std::size_t size) {
  if (size < kHeaderSize || data[0] != 0x80) return std::nullopt;
  RtpPacket packet;
  packet.marker = (data[1] & 0x80) != 0;
  packet.payload_type = data[1] & 0x7f;
  packet.sequence = get16(data + 2);
  packet.timestamp = get32(data + 4);
  packet.ssrc = get32(data + 8);
  packet.payload.assign(data + kHeaderSize, data + size);
  return packet;
}

int sequence_distance(std::uint16_t from, std::uint16_t to) {
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(to - from));
}

std::vector<std::uint8_t> serialise_telephone_event(const TelephoneEvent& event) {
  std::vector<std::uint8_t> out;
  out.push_back(event.event);
  out.push_back(static_cast<std::uint8_t>((event.end ? 0x80 : 0) | (event.volume & 0x3f)));
  put16(out, event.duration);
  return out;
}

std::optional<TelephoneEvent> parse_telephone_event(const std::vector<std::uint8_t>& payload) {
  if (payload.size() != 4) return std::nullopt;
  TelephoneEvent event;
  event.event = payload[0];
  event.end = (payload[1] & 0x80) != 0;
  event.volume = payload[1] & 0x3f;
  event.duration = get16(payload.data() + 2);
  return event;
}

std::optional<std::uint8_t> telephone_event_code(char digit) {
  const char* found = digit == '\0' ? nullptr : std::strchr(kDigits, digit);
  if (found == nullptr) return std::nullopt;
  return static_cast<std::uint8_t>(found - kDigits);
}

char telephone_event_digit(std::uint8_t code) {
  return code < 16 ? kDigits[code] : '?';
}

}  // namespace test_support
