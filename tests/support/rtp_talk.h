#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/rtp_packet.h"
#include "support/rtp_speech.h"

namespace test_support {

/// How the payload of a codec is made. Opaque codecs get frames of random bytes: the path under test passes them
/// through unread, so that only their length has to be right.
enum class RtpContent { kMulaw, kAlaw, kOpaque };

struct RtpCodec {
  RtpContent content = RtpContent::kMulaw;
  std::uint32_t clock_rate = 8000;  // timestamp units per second
  std::chrono::milliseconds ptime{20};
  std::size_t opaque_bytes = 0;              // payload length of an opaque codec
  std::optional<std::uint8_t> opaque_first;  // byte of it, where the path reads the kind of frame from it

  std::uint32_t TimestampStep() const { return clock_rate * static_cast<std::uint32_t>(ptime.count()) / 1000; }
};

struct RtpTalkSettings {
  RtpCodec codec;
  std::uint8_t audio_payload_type = 0;
  std::uint8_t event_payload_type = 101;
  std::string digits;  // telephone-events to send, evenly spread over the talk
  std::chrono::milliseconds length{6000};
  std::uint32_t seed = 1;
  std::uint32_t ssrc = 0;
  std::uint16_t first_sequence = 0;
  std::uint32_t first_timestamp = 0;
};

/// Settings with SSRC and first timestamp drawn from the seed, and a first sequence number a few packets before the
/// wrap, so that every talk crosses it.
RtpTalkSettings random_talk(std::uint32_t seed);

enum class RtpKind { kPriming, kAudio, kEvent };

struct PlannedPacket {
  RtpPacket packet;
  RtpKind kind = RtpKind::kAudio;
  std::chrono::milliseconds due{0};  // since the start of the script
};

/// What one party of a call says: first as many priming packets as it takes until the far end hears one (media may
/// open a moment after signalling is done, and what is said before is nobody's loss), then the script, of which every
/// packet has to arrive. One stream: sequence numbers run on, timestamps too.
class RtpTalk {
 public:
  explicit RtpTalk(const RtpTalkSettings& settings);

  /// Next priming packet, to be sent one ptime after the former.
  RtpPacket Prime();
  /// The rest of the talk. Speech pauses are not sent: the packet after one has the marker set and a timestamp that
  /// has moved on (RFC 3551 section 4.1). Digits take the place of audio: updates each ptime under the timestamp of
  /// their start, three end packets (RFC 4733 section 2.5.1).
  std::vector<PlannedPacket> Script();

 private:
  struct EventSlot {
    std::uint8_t code = 0;
    int step = -1;  // place within the event, negative where there is none
  };

  std::vector<EventSlot> PlaceDigits(int slots) const;
  RtpPacket NextPacket(std::uint8_t payload_type, bool marker, std::uint32_t timestamp);
  std::vector<std::uint8_t> Encode(SpeechSegmentKind kind);

  RtpTalkSettings settings_;
  SpeechVoice voice_;
  std::mt19937 random_;
  std::uint16_t sequence_;
  std::uint32_t timestamp_;
  bool spoken_ = false;
};

}  // namespace test_support
