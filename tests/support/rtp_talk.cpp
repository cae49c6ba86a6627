#include "support/rtp_talk.h"

#include <algorithm>
#include <stdexcept>

#include "support/rtp_g711.h"

namespace test_support {
namespace {

constexpr int kEventUpdates = 6;  // packets before the end packets
constexpr int kEventEnds = 3;
constexpr int kEventSlots = kEventUpdates + kEventEnds;

}  // namespace

RtpTalkSettings random_talk(std::uint32_t seed) {
  std::mt19937 random(seed * 2654435761u + 1);
  RtpTalkSettings settings;
  settings.seed = seed;
  settings.ssrc = random();
  settings.first_timestamp = 0xffffffffu - random() % 16000;  // wraps within two seconds at 8000 Hz
  settings.first_sequence = static_cast<std::uint16_t>(65535 - random() % 40);
  return settings;
}

RtpTalk::RtpTalk(const RtpTalkSettings& settings)
    : settings_(settings),
      voice_(settings.seed),
      random_(settings.seed ^ 0x5eed),
      sequence_(settings.first_sequence),
      timestamp_(settings.first_timestamp) {
  if (settings.codec.content == RtpContent::kOpaque && settings.codec.opaque_bytes == 0) {
    throw std::invalid_argument("an opaque codec needs the length of its payload");
  }
}

RtpPacket RtpTalk::NextPacket(std::uint8_t payload_type, bool marker, std::uint32_t timestamp) {
  RtpPacket packet;
  packet.marker = marker;
  packet.payload_type = payload_type;
  packet.sequence = sequence_++;
  packet.timestamp = timestamp;
  packet.ssrc = settings_.ssrc;
  return packet;
}

std::vector<std::uint8_t> RtpTalk::Encode(SpeechSegmentKind kind) {
  std::vector<std::uint8_t> payload;
  if (settings_.codec.content == RtpContent::kOpaque) {
    for (std::size_t i = 0; i < settings_.codec.opaque_bytes; ++i) {
      payload.push_back(static_cast<std::uint8_t>(random_() & 0xff));
    }
    if (settings_.codec.opaque_first) payload[0] = *settings_.codec.opaque_first;
    return payload;
  }
  for (std::int16_t sample : voice_.Speak(kind, static_cast<int>(settings_.codec.TimestampStep()))) {
    payload.push_back(settings_.codec.content == RtpContent::kAlaw ? encode_alaw(sample) : encode_mulaw(sample));
  }
  return payload;
}

RtpPacket RtpTalk::Prime() {
  RtpPacket packet = NextPacket(settings_.audio_payload_type, !spoken_, timestamp_);
  packet.payload = Encode(SpeechSegmentKind::kUnvoiced);
  timestamp_ += settings_.codec.TimestampStep();
  spoken_ = true;
  return packet;
}

std::vector<RtpTalk::EventSlot> RtpTalk::PlaceDigits(int slots) const {
  std::vector<EventSlot> placed(static_cast<std::size_t>(slots));
  const int count = static_cast<int>(settings_.digits.size());
  for (int i = 0; i < count; ++i) {
    const int start = (i + 1) * slots / (count + 1);
    const int following = i + 1 < count ? (i + 2) * slots / (count + 1) : slots;
    if (start + kEventSlots >= following) throw std::invalid_argument("too many digits for the length of the talk");
    const auto code = telephone_event_code(settings_.digits[static_cast<std::size_t>(i)]);
    if (!code) throw std::invalid_argument("no digit of a telephone: " + settings_.digits);
    for (int step = 0; step < kEventSlots; ++step) placed[static_cast<std::size_t>(start + step)] = {*code, step};
  }
  return placed;
}

std::vector<PlannedPacket> RtpTalk::Script() {
  const auto ptime = settings_.codec.ptime;
  const int slots = static_cast<int>(settings_.length / ptime);
  const std::vector<EventSlot> digits = PlaceDigits(slots);
  std::vector<SpeechSegmentKind> kinds;
  for (const SpeechSegment& segment : plan_speech(slots, ptime, settings_.seed)) {
    kinds.insert(kinds.end(), static_cast<std::size_t>(segment.slots), segment.kind);
  }

  std::vector<PlannedPacket> script;
  const std::uint32_t step = settings_.codec.TimestampStep();
  std::uint32_t event_start = 0;
  bool silent = !spoken_;
  for (int slot = 0; slot < slots; ++slot, timestamp_ += step) {
    const EventSlot& digit = digits[static_cast<std::size_t>(slot)];
    const SpeechSegmentKind kind = kinds[static_cast<std::size_t>(slot)];
    PlannedPacket planned;
    planned.due = slot * ptime;
    if (digit.step >= 0) {
      if (digit.step == 0) event_start = timestamp_;
      const int updates = std::min(digit.step + 1, kEventUpdates);
      TelephoneEvent event;
      event.event = digit.code;
      event.end = digit.step >= kEventUpdates;
      event.duration = static_cast<std::uint16_t>(static_cast<std::uint32_t>(updates) * step);
      planned.kind = RtpKind::kEvent;
      planned.packet = NextPacket(settings_.event_payload_type, digit.step == 0, event_start);
      planned.packet.payload = serialise_telephone_event(event);
      silent = false;
    } else if (kind == SpeechSegmentKind::kPause) {
      silent = true;
      continue;
    } else {
      planned.packet = NextPacket(settings_.audio_payload_type, silent, timestamp_);
      planned.packet.payload = Encode(kind);
      silent = false;
    }
    spoken_ = true;
    script.push_back(std::move(planned));
  }
  return script;
}

}  // namespace test_support
