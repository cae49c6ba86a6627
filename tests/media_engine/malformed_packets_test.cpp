// Packets damaged in every way reach nobody and harm nothing.
#include "engine_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::ParseRtp;
using media_engine::RtpHeader;

/// In memory of its own and of exactly that size, so that a sanitizer sees any look beyond the end.
std::optional<RtpHeader> ParseExactly(const Bytes& data, std::size_t length) {
  const auto copy = std::make_unique<uint8_t[]>(length);
  std::copy(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length), copy.get());
  return ParseRtp(copy.get(), length);
}

/// Two contributing sources, an extension of three words, four octets of payload, five of padding.
Bytes FullPacket() {
  Bytes packet = {0xb2, 0x80 | 96, 0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0xde, 0xad, 0xbe, 0xef};
  packet.insert(packet.end(), 8, 0xcc);
  packet.insert(packet.end(), {0xbe, 0xde, 0, 3});
  packet.insert(packet.end(), 12, 0xee);
  packet.insert(packet.end(), {1, 2, 3, 4, 0, 0, 0, 0, 5});
  return packet;
}

TEST(RtpHeader, ReadsEveryField) {
  const Bytes packet = FullPacket();
  const auto header = ParseExactly(packet, packet.size());
  ASSERT_TRUE(header);
  EXPECT_TRUE(header->marker);
  EXPECT_EQ(header->payload_type, 96);
  EXPECT_EQ(header->sequence_number, 0x1234);
  EXPECT_EQ(header->timestamp, 0x01020304u);
  EXPECT_EQ(header->ssrc, 0xdeadbeefu);
  EXPECT_EQ(header->payload_offset, 36u);
  EXPECT_EQ(header->payload_length, 4u);
}

TEST(RtpHeader, IsNotReadBeyondAnyTruncation) {
  const Bytes packet = FullPacket();
  for (std::size_t length = 0; length < packet.size(); ++length) {
    const auto header = ParseExactly(packet, length);
    // Up to the payload there is too little; after it the last octet counts as padding and mostly lies.
    if (length < 36) {
      EXPECT_FALSE(header) << length;
    } else if (header) {
      EXPECT_LE(header->payload_offset + header->payload_length, length);
    }
  }
}

TEST(RtpHeader, EveryValueOfEveryOctetStaysWithinThePacket) {
  const Bytes packet = FullPacket();
  for (std::size_t at = 0; at < packet.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      Bytes damaged = packet;
      damaged[at] = static_cast<uint8_t>(value);
      const auto header = ParseExactly(damaged, damaged.size());
      if (!header) continue;
      EXPECT_GE(header->payload_offset, 12u);
      EXPECT_LE(header->payload_offset + header->payload_length, damaged.size());
    }
  }
}

TEST(RtpHeader, LyingLengthsAndOtherVersionsAreRefused) {
  const auto with = [](std::size_t at, uint8_t value) {
    Bytes packet = FullPacket();
    packet[at] = value;
    return ParseExactly(packet, packet.size()).has_value();
  };
  EXPECT_FALSE(with(0, 0x32));  // version 0
  EXPECT_FALSE(with(0, 0x72));  // version 1
  EXPECT_FALSE(with(0, 0xf2));  // version 3
  EXPECT_FALSE(with(23, 6));    // extension longer than the packet
  EXPECT_FALSE(with(22, 0xff));
  EXPECT_FALSE(with(44, 0));   // no padding at all
  EXPECT_FALSE(with(44, 10));  // padding longer than what follows the header
  EXPECT_TRUE(with(44, 9));    // nothing but padding
  EXPECT_FALSE(with(1, 200));  // a sender report that has lost its way
  EXPECT_FALSE(with(1, 72));
}

class MalformedPackets : public EngineTest {};

TEST_F(MalformedPackets, AreCountedAndTheCallGoesOn) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  const Bytes packet = FullPacket();
  for (std::size_t length = 0; length < 36; ++length) {
    a.far_end->Send(Bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length)), a.local.rtp_port);
  }
  EXPECT_TRUE(Eventually([&] { return a.Statistics().malformed == 36; })) << a.Statistics().malformed;
  a.far_end->Send(Bytes(5000, 0x80), a.local.rtp_port);
  EXPECT_TRUE(Eventually([&] { return a.Statistics().oversized == 1; }));
  EXPECT_FALSE(b.far_end->Receive(milliseconds{0}));
  EXPECT_EQ(a.Statistics().rtp_packets_received, 0u);
  a.SendRun(1, 3);
  for (uint16_t number = 1; number <= 3; ++number) {
    const auto came = b.far_end->ReceiveRtp();
    ASSERT_TRUE(came);
    EXPECT_EQ(came->payload, PayloadOf(number));
  }
}

TEST_F(MalformedPackets, TheLongestPacketThatIsCarriedComesThrough) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  for (std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{1460}, std::size_t{2048 - 12}}) {
    const auto number = static_cast<uint16_t>(length);
    a.Send({0, number, 0, 1, false, PayloadOf(7, length)});
    const auto came = b.far_end->ReceiveRtp();
    ASSERT_TRUE(came) << length;
    EXPECT_EQ(came->payload, PayloadOf(7, length));
  }
}

}  // namespace
}  // namespace media_engine_test
