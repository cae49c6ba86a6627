// The probe's own tools: what it says must be right before what it finds can be.

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "support/rtp_g711.h"
#include "support/rtp_packet.h"
#include "support/rtp_speech.h"
#include "support/rtp_talk.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;

TEST(SupportG711, KnowsTheCodesOfTheRecommendation) {
  EXPECT_EQ(encode_mulaw(0), 0xff);
  EXPECT_EQ(encode_mulaw(-1), 0x7f);
  EXPECT_EQ(encode_mulaw(32767), 0x80);
  EXPECT_EQ(encode_mulaw(-32768), 0x00);
  EXPECT_EQ(decode_mulaw(0x80), 32124);
  EXPECT_EQ(decode_mulaw(0x00), -32124);
  EXPECT_EQ(encode_alaw(0), 0xd5);
  EXPECT_EQ(encode_alaw(-1), 0x55);
  EXPECT_EQ(encode_alaw(32767), 0xaa);
  EXPECT_EQ(encode_alaw(-32768), 0x2a);
  EXPECT_EQ(decode_alaw(0xaa), 32256);
  EXPECT_EQ(decode_alaw(0x2a), -32256);
}

TEST(SupportG711, GivesEachCodeBackAfterDecoding) {
  for (int code = 0; code < 256; ++code) {
    const auto byte = static_cast<std::uint8_t>(code);
    EXPECT_EQ(encode_alaw(decode_alaw(byte)), byte);
    const std::uint8_t again = encode_mulaw(decode_mulaw(byte));
    EXPECT_EQ(again, byte == 0x7f ? 0xff : byte) << "0x7f is the second code of zero";
  }
}

TEST(SupportG711, StaysWithinTheQuantisationStep) {
  for (int sample = -32768; sample <= 32767; sample += 7) {
    const auto value = static_cast<std::int16_t>(sample);
    const double allowed = std::max(16.0, std::abs(sample) / 16.0);
    EXPECT_NEAR(decode_alaw(encode_alaw(value)), sample, allowed);
    EXPECT_NEAR(decode_mulaw(encode_mulaw(value)), sample, allowed);
  }
}

TEST(SupportRtpPacket, ReadsBackWhatItWrites) {
  RtpPacket packet;
  packet.marker = true;
  packet.payload_type = 101;
  packet.sequence = 65535;
  packet.timestamp = 0xfedcba98;
  packet.ssrc = 0x12345678;
  packet.payload = {1, 2, 3};
  const auto bytes = serialise_rtp(packet);
  const std::vector<std::uint8_t> wanted = {0x80, 0xe5, 0xff, 0xff, 0xfe, 0xdc, 0xba, 0x98,
                                            0x12, 0x34, 0x56, 0x78, 1,    2,    3};
  EXPECT_EQ(bytes, wanted);
  const auto read = parse_rtp(bytes.data(), bytes.size());
  ASSERT_TRUE(read.has_value());
  EXPECT_TRUE(read->marker);
  EXPECT_EQ(read->payload_type, 101);
  EXPECT_EQ(read->sequence, 65535);
  EXPECT_EQ(read->timestamp, 0xfedcba98);
  EXPECT_EQ(read->ssrc, 0x12345678u);
  EXPECT_EQ(read->payload, packet.payload);
}

TEST(SupportRtpPacket, RefusesWhatIsNoPlainRtp) {
  std::vector<std::uint8_t> bytes = serialise_rtp({});
  EXPECT_FALSE(parse_rtp(bytes.data(), bytes.size() - 1).has_value());
  for (std::uint8_t first : {0x00, 0x40, 0xa0, 0x90, 0x81}) {
    bytes[0] = first;
    EXPECT_FALSE(parse_rtp(bytes.data(), bytes.size()).has_value());
  }
}

TEST(SupportRtpPacket, MeasuresSequenceNumbersAcrossTheWrap) {
  EXPECT_EQ(sequence_distance(65535, 0), 1);
  EXPECT_EQ(sequence_distance(0, 65535), -1);
  EXPECT_EQ(sequence_distance(10, 300), 290);
}

TEST(SupportSpeech, FillsItsLengthWithSpeechAndPauses) {
  for (std::uint32_t seed = 1; seed < 50; ++seed) {
    std::map<SpeechSegmentKind, int> slots;
    const auto plan = plan_speech(300, milliseconds(20), seed);
    for (const auto& segment : plan) slots[segment.kind] += segment.slots;
    EXPECT_EQ(
        slots[SpeechSegmentKind::kVoiced] + slots[SpeechSegmentKind::kUnvoiced] + slots[SpeechSegmentKind::kPause],
        300);
    EXPECT_GT(slots[SpeechSegmentKind::kVoiced], 100);
    EXPECT_GT(slots[SpeechSegmentKind::kUnvoiced], 10);
    EXPECT_GE(slots[SpeechSegmentKind::kPause], 16);
    EXPECT_NE(plan.front().kind, SpeechSegmentKind::kPause);
    EXPECT_NE(plan.back().kind, SpeechSegmentKind::kPause);
  }
}

TEST(SupportSpeech, VoicesAreLoudAndPausesAreQuiet) {
  const auto power = [](const std::vector<std::int16_t>& samples) {
    double sum = 0;
    for (std::int16_t sample : samples) sum += static_cast<double>(sample) * sample;
    return std::sqrt(sum / static_cast<double>(samples.size()));
  };
  SpeechVoice voice(7);
  EXPECT_GT(power(voice.Speak(SpeechSegmentKind::kVoiced, 1600)), 1000);
  EXPECT_GT(power(voice.Speak(SpeechSegmentKind::kUnvoiced, 1600)), 1000);
  EXPECT_LT(power(voice.Speak(SpeechSegmentKind::kPause, 1600)), 50);
}

RtpTalkSettings talk_with_digits(const std::string& digits) {
  RtpTalkSettings settings = random_talk(42);
  settings.digits = digits;
  settings.event_payload_type = 96;
  settings.length = milliseconds(6000);
  return settings;
}

TEST(SupportTalk, SpeaksWithoutGapAcrossTheWrapAndNeverTheSameTwice) {
  RtpTalk talk(talk_with_digits(""));
  std::vector<RtpPacket> packets = {talk.Prime(), talk.Prime()};
  for (const auto& planned : talk.Script()) packets.push_back(planned.packet);
  ASSERT_GT(packets.size(), 200u);
  EXPECT_TRUE(packets.front().marker);
  std::set<std::vector<std::uint8_t>> payloads;
  bool wrapped = false;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i].payload.size(), 160u);
    EXPECT_EQ(packets[i].ssrc, packets[0].ssrc);
    payloads.insert(packets[i].payload);
    if (i == 0) continue;
    EXPECT_EQ(sequence_distance(packets[i - 1].sequence, packets[i].sequence), 1);
    wrapped = wrapped || packets[i].sequence < packets[i - 1].sequence;
    const std::uint32_t step = packets[i].timestamp - packets[i - 1].timestamp;
    EXPECT_EQ(step % 160, 0u);
    EXPECT_EQ(packets[i].marker, step > 160) << "marker exactly after a pause, packet " << i;
  }
  EXPECT_TRUE(wrapped);
  EXPECT_EQ(payloads.size(), packets.size());
}

TEST(SupportTalk, DialsDigitsAsRfc4733Says) {
  RtpTalk talk(talk_with_digits("19*#0"));
  talk.Prime();
  std::map<std::uint32_t, std::vector<RtpPacket>> events;
  std::vector<std::uint32_t> order;
  for (const auto& planned : talk.Script()) {
    if (planned.kind != RtpKind::kEvent) continue;
    EXPECT_EQ(planned.packet.payload_type, 96);
    if (events.count(planned.packet.timestamp) == 0) order.push_back(planned.packet.timestamp);
    events[planned.packet.timestamp].push_back(planned.packet);
  }
  ASSERT_EQ(order.size(), 5u);
  const std::string digits = "19*#0";
  for (std::size_t i = 0; i < order.size(); ++i) {
    const auto& packets = events[order[i]];
    ASSERT_EQ(packets.size(), 9u);
    std::uint16_t duration = 0;
    for (std::size_t k = 0; k < packets.size(); ++k) {
      const auto event = parse_telephone_event(packets[k].payload);
      ASSERT_TRUE(event.has_value());
      EXPECT_EQ(telephone_event_digit(event->event), digits[i]);
      EXPECT_EQ(packets[k].marker, k == 0);
      EXPECT_EQ(event->end, k >= 6);
      EXPECT_EQ(event->duration, k < 6 ? duration + 160 : 960);
      duration = event->duration;
    }
  }
}

TEST(SupportTalk, KeepsToTheClockOfItsPackets) {
  RtpTalkSettings settings = talk_with_digits("5");
  RtpTalk talk(settings);
  milliseconds last(-20);
  for (const auto& planned : talk.Script()) {
    EXPECT_GE(planned.due, last + milliseconds(20));
    last = planned.due;
    if (planned.kind == RtpKind::kAudio) {
      EXPECT_EQ(planned.packet.timestamp - settings.first_timestamp,
                static_cast<std::uint32_t>(planned.due.count() * 8));
    }
  }
  EXPECT_LT(last, milliseconds(6000));
  EXPECT_GT(last, milliseconds(5500));
}

TEST(SupportTalk, MakesFramesOfOpaqueCodecs) {
  RtpTalkSettings settings = talk_with_digits("");
  settings.codec.content = RtpContent::kOpaque;
  settings.codec.opaque_bytes = 50;
  settings.codec.ptime = milliseconds(30);
  RtpTalk talk(settings);
  const auto script = talk.Script();
  ASSERT_GT(script.size(), 130u);
  for (std::size_t i = 0; i < script.size(); ++i) {
    EXPECT_EQ(script[i].packet.payload.size(), 50u);
    EXPECT_EQ(script[i].due.count() % 30, 0);
    EXPECT_EQ((script[i].packet.timestamp - script[0].packet.timestamp) % 240, 0u);
  }
}

TEST(SupportTalk, RefusesMoreDigitsThanFit) {
  RtpTalkSettings settings = talk_with_digits("123456789");
  settings.length = milliseconds(1000);
  EXPECT_THROW(RtpTalk(settings).Script(), std::invalid_argument);
  settings.digits = "x";
  EXPECT_THROW(RtpTalk(settings).Script(), std::invalid_argument);
}

}  // namespace
}  // namespace test_support
