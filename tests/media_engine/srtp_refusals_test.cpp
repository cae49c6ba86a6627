// Packets that are refused although their tag is right, and numbers that end.
#include "srtp_session_keys.h"
#include "srtp_transform_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::DeriveSrtpKeys;
using media_engine::SrtpCipher;
using media_engine::SrtpSessionKeys;

/// A far end that has the keys and puts the tag of its choice behind whatever it likes.
class Insider {
 public:
  explicit Insider(const CryptoSettings& settings) {
    std::string reason;
    const auto cipher = SrtpCipher::Make(reason);
    if (!cipher || !DeriveSrtpKeys(settings.key, *cipher, rtp_, rtcp_)) throw std::runtime_error(reason);
  }
  Bytes Rtp(const Bytes& packet) const {
    const uint8_t rollovers[4] = {};
    return Tagged(packet, rtp_.authenticator.Compute(packet.data(), packet.size(), rollovers, sizeof rollovers));
  }
  /// With the word of index and E bit as it is given.
  Bytes Rtcp(Bytes packet, uint32_t trailer) const {
    for (int shift = 24; shift >= 0; shift -= 8) packet.push_back(static_cast<uint8_t>(trailer >> shift));
    return Tagged(packet, rtcp_.authenticator.Compute(packet.data(), packet.size(), nullptr, 0));
  }

 private:
  static Bytes Tagged(Bytes packet, const media_engine::SrtpAuthenticator::Digest& digest) {
    packet.insert(packet.end(), digest.begin(), digest.begin() + 10);
    return packet;
  }
  SrtpSessionKeys rtp_, rtcp_;
};

constexpr uint32_t kEncrypted = 0x80000000;

TEST(SrtpRefusals, RtcpThatSaysItIsNotEncrypted) {
  const auto in = Make(SrtpDirection::kIncoming, KeysOf(1));
  const Insider insider(KeysOf(1));
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, insider.Rtcp(RtcpPacket(), 5)).verdict, SrtpVerdict::kUnauthentic);
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, insider.Rtcp(RtcpPacket(), 5 | kEncrypted)).verdict, SrtpVerdict::kDone);
}

TEST(SrtpRefusals, RtcpOfAnyIndexIsTakenOnce) {
  const auto in = Make(SrtpDirection::kIncoming, KeysOf(1));
  const Insider insider(KeysOf(1));
  for (const uint32_t index : {0u, 1u, 100u, 50u, 0x7fffff00u, 0x7fffffffu, 0x7ffffffeu}) {
    const Bytes packet = insider.Rtcp(RtcpPacket(), index | kEncrypted);
    EXPECT_EQ(Apply(*in, Protocol::kRtcp, packet).verdict, SrtpVerdict::kDone) << index;
    EXPECT_EQ(Apply(*in, Protocol::kRtcp, packet).verdict, SrtpVerdict::kReplayed) << index;
  }
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, insider.Rtcp(RtcpPacket(), 2 | kEncrypted)).verdict, SrtpVerdict::kReplayed);
}

TEST(SrtpRefusals, RtpWhoseHeaderDoesNotFitBothWays) {
  const auto in = Make(SrtpDirection::kIncoming, KeysOf(1)), out = Make(SrtpDirection::kOutgoing, KeysOf(1));
  const Insider insider(KeysOf(1));
  Bytes sources = RtpPacket(1, 20), cut_extension = RtpPacket(2, 3), long_extension = RtpPacket(3, 20);
  sources[0] |= 15;
  cut_extension[0] |= 0x10;
  long_extension[0] |= 0x10;
  long_extension[14] = long_extension[15] = 0xff;
  Bytes by_one_word = long_extension;
  by_one_word[14] = 0;
  by_one_word[15] = 5;
  for (const Bytes& packet : {sources, cut_extension, long_extension, by_one_word}) {
    EXPECT_EQ(Apply(*in, Protocol::kRtp, insider.Rtp(packet)).verdict, SrtpVerdict::kUnauthentic);
    EXPECT_EQ(Protected(*out, Protocol::kRtp, packet).verdict, SrtpVerdict::kFailed);
  }
  Bytes fitting = by_one_word;
  fitting[15] = 4;  // and no payload
  EXPECT_EQ(Apply(*in, Protocol::kRtp, insider.Rtp(fitting)).packet, fitting);
  EXPECT_EQ(Protected(*out, Protocol::kRtp, fitting).packet.size(), fitting.size() + 10);
}

TEST(SrtpRefusals, WhatIsTooShortToBeSent) {
  const auto out = Make(SrtpDirection::kOutgoing, KeysOf(1));
  for (std::size_t length = 0; length < 12; ++length) {
    EXPECT_EQ(Protected(*out, Protocol::kRtp, Bytes(length, 0x80)).verdict, SrtpVerdict::kFailed);
  }
  for (std::size_t length = 0; length < 8; ++length) {
    EXPECT_EQ(Protected(*out, Protocol::kRtcp, Bytes(length, 0x80)).verdict, SrtpVerdict::kFailed);
  }
}

TEST(SrtpRefusals, NumbersBehindTheLastRolloverBothWays) {
  const auto in = Make(SrtpDirection::kIncoming, KeysOf(1)), out = Make(SrtpDirection::kOutgoing, KeysOf(1));
  in->ContinueAt({0x11111111, 0xffffffff, {}});
  out->ContinueAt({0x11111111, 0xffffffff, {}});
  const Bytes last = Protected(*out, Protocol::kRtp, RtpPacket(65535)).packet;
  EXPECT_EQ(Apply(*in, Protocol::kRtp, last).packet, RtpPacket(65535));
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(0)).verdict, SrtpVerdict::kExpired);
  EXPECT_EQ(Apply(*in, Protocol::kRtp, Bytes(last.size(), 0)).verdict, SrtpVerdict::kUnauthentic);  // another source
  Bytes next = last;
  next[2] = next[3] = 0;
  EXPECT_EQ(Apply(*in, Protocol::kRtp, next).verdict, SrtpVerdict::kExpired);
}

}  // namespace
}  // namespace media_engine_test
