// The arithmetic of streams, without sockets and threads.
#include "engine_fixture.h"
#include "g711.h"
#include "outgoing_stream.h"

namespace media_engine_test {
namespace {

using media_engine::OutgoingStream;

TimePoint At(int ms) {
  return TimePoint(seconds{1000} + milliseconds{ms});
}

TEST(OutgoingStream, StartsWithRandomValues) {
  EXPECT_NE(OutgoingStream::MakeRandom().ssrc(), OutgoingStream::MakeRandom().ssrc());
}

TEST(OutgoingStream, KeepsTheTimeThatPassedBetweenSources) {
  OutgoingStream stream(1, 100, 5000);
  EXPECT_EQ(stream.Place({1, 7, 40, 160}, 8000, At(0))->timestamp, 5000u);
  EXPECT_EQ(stream.Place({1, 7, 41, 320}, 8000, At(20))->timestamp, 5160u);
  // Another source a second later: as many ticks.
  const auto later = stream.Place({2, 8, 9, 77}, 8000, At(1020));
  EXPECT_TRUE(later->first);
  EXPECT_EQ(later->sequence_number, 102);
  EXPECT_EQ(later->timestamp, 5160u + 8000u);
  // At once: not the same time, but one packet further, as far as its packets have been apart.
  EXPECT_EQ(stream.Place({3, 9, 9, 77}, 8000, At(1020))->timestamp, 5160u + 8000u + 160u);
}

TEST(OutgoingStream, TheStepIsThatOfThePacketsSeen) {
  OutgoingStream stream(1, 0, 0);
  stream.Place({1, 7, 1, 0}, 16000, At(0));
  stream.Place({1, 7, 2, 640}, 16000, At(40));
  EXPECT_EQ(stream.Place({2, 7, 1, 0}, 16000, At(40))->timestamp, 1280u);
}

TEST(OutgoingStream, GivesNoNumberTwice) {
  OutgoingStream stream(1, 100, 0);
  stream.Place({1, 7, 40, 0}, 8000, At(0));
  stream.Place({1, 7, 41, 160}, 8000, At(20));
  stream.Place({2, 8, 500, 0}, 8000, At(40));
  EXPECT_FALSE(stream.Place({2, 8, 499, 0}, 8000, At(41)));  // would be the former source's last
  stream.Skip({2, 8, 501, 160});
  EXPECT_FALSE(stream.Place({2, 8, 501, 160}, 8000, At(42)));
  EXPECT_EQ(stream.Place({2, 8, 502, 320}, 8000, At(60))->sequence_number, 103);
}

TEST(OutgoingStream, ANewNumberingOfTheSameSourceContinues) {
  OutgoingStream stream(1, 100, 0);
  stream.Place({1, 7, 40, 0}, 8000, At(0));
  const auto restarted = stream.Place({1, 7, 30000, 9}, 8000, At(20));
  EXPECT_TRUE(restarted->first);
  EXPECT_EQ(restarted->sequence_number, 101);
  EXPECT_EQ(stream.Place({1, 7, 30002, 329}, 8000, At(60))->sequence_number, 103);
}

TEST(OutgoingStream, GoesOnHoweverLongASourceLasts) {
  OutgoingStream stream(1, 100, 0);
  for (uint32_t i = 0; i < 200000; ++i) {
    const SourcePosition source{1, 7, static_cast<uint16_t>(40 + i), 160 * i};
    const auto position = stream.Place(source, 8000, At(0));
    ASSERT_TRUE(position) << i;
    ASSERT_EQ(position->sequence_number, static_cast<uint16_t>(100 + i));
    ASSERT_EQ(position->timestamp, 160 * i);
  }
  // The latest may still come out of order.
  EXPECT_EQ(stream.Place({1, 7, static_cast<uint16_t>(40 + 199950), 0}, 8000, At(0))->sequence_number,
            static_cast<uint16_t>(100 + 199950));
}

TEST(OutgoingStream, SkippingBeforeAnythingWasPlacedDoesNothing) {
  OutgoingStream stream(1, 100, 0);
  stream.Skip({1, 7, 39, 0});
  EXPECT_EQ(stream.Place({1, 7, 40, 0}, 8000, At(0))->sequence_number, 100);
}

TEST(G711, TheLawsDecodeToTheirKnownEnds) {
  EXPECT_EQ(media_engine::DecodeMuLaw(0x80), 32124);
  EXPECT_EQ(media_engine::DecodeMuLaw(0x00), -32124);
  EXPECT_EQ(media_engine::DecodeMuLaw(0xff), 0);
  EXPECT_EQ(media_engine::DecodeALaw(0xaa), 32256);
  EXPECT_EQ(media_engine::DecodeALaw(0x2a), -32256);
  EXPECT_EQ(media_engine::DecodeALaw(0xd5), 8);
}

TEST(G711, ConversionIsAsNearAsTheOtherLawAllows) {
  for (int code = 0; code < 256; ++code) {
    auto octet = static_cast<uint8_t>(code);
    const int before = media_engine::DecodeMuLaw(octet);
    media_engine::ConvertMuLawToALaw(&octet, 1);
    // A quarter of an octave's sixteenth, or the softest step.
    EXPECT_LE(std::abs(media_engine::DecodeALaw(octet) - before), std::max(8, std::abs(before) / 16)) << code;
    octet = static_cast<uint8_t>(code);
    const int other = media_engine::DecodeALaw(octet);
    media_engine::ConvertALawToMuLaw(&octet, 1);
    EXPECT_LE(std::abs(media_engine::DecodeMuLaw(octet) - other), std::max(8, std::abs(other) / 16)) << code;
  }
}

}  // namespace
}  // namespace media_engine_test
