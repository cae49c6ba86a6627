#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace test_support {

/// One RTP packet (RFC 3550 section 5.1) as the probe sends and sees it: no padding, no extension and no contributing
/// sources, since nothing on the path under test may add any.
struct RtpPacket {
  bool marker = false;
  std::uint8_t payload_type = 0;  // 0 to 127
  std::uint16_t sequence = 0;
  std::uint32_t timestamp = 0;
  std::uint32_t ssrc = 0;
  std::vector<std::uint8_t> payload;
};

std::vector<std::uint8_t> serialise_rtp(const RtpPacket& packet);

/// Empty when the bytes are not an RTP packet of the plain kind above.
std::optional<RtpPacket> parse_rtp(const std::uint8_t* data, std::size_t size);

/// The steps from `from` to `to` on the circle of 16 bits: negative when `to` lies behind.
int sequence_distance(std::uint16_t from, std::uint16_t to);

/// What a telephone-event payload says (RFC 4733 section 2.3).
struct TelephoneEvent {
  std::uint8_t event = 0;  // 0 to 9, 10 is *, 11 is #, 12 to 15 are A to D
  bool end = false;
  std::uint8_t volume = 10;    // dBm0 without its sign
  std::uint16_t duration = 0;  // in timestamp units
};

std::vector<std::uint8_t> serialise_telephone_event(const TelephoneEvent& event);
std::optional<TelephoneEvent> parse_telephone_event(const std::vector<std::uint8_t>& payload);

/// The event code of a digit; empty for a character that is no digit of a telephone.
std::optional<std::uint8_t> telephone_event_code(char digit);
/// The digit of an event code; '?' for codes above 15.
char telephone_event_digit(std::uint8_t code);

}  // namespace test_support
