// Packets of one direction, against packets computed by the formulas of RFC 3711 and against libsrtp2 as the far end.
#include <future>

#include "srtp_transform_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::kSrtpTrailerRoom;
using media_engine::SrtpTransform;
using Direction = SrtpDirection;

struct KnownPacket {
  const char* suite;
  const char* mki;
  Protocol protocol;
  const char* packet;
};
const char kClearRtp[] = "800f1234decafbadcafebabeabababababababababababababababab";
const char kClearRtcp[] = "80c80006cafebabeabababababababababababababababababababab";
const KnownPacket kKnownPackets[] = {
    {kLongTagSuite, "", Protocol::kRtp, "800f1234decafbadcafebabe4e55dc4ce79978d88ca4d215949d2402b78d6acc99ea179b8dbb"},
    {kShortTagSuite, "", Protocol::kRtp, "800f1234decafbadcafebabe4e55dc4ce79978d88ca4d215949d2402b78d6acc"},
    {kLongTagSuite, "1:4", Protocol::kRtp,
     "800f1234decafbadcafebabe4e55dc4ce79978d88ca4d215949d240200000001b78d6acc99ea179b8dbb"},
    {kShortTagSuite, "4660:2", Protocol::kRtp, "800f1234decafbadcafebabe4e55dc4ce79978d88ca4d215949d24021234b78d6acc"},
    {kLongTagSuite, "", Protocol::kRtcp,
     "80c80006cafebabe7128035be487b9bdbef89041f977a5a8d5efb88180000001905c6f4d7932c1caa182"},
    {kShortTagSuite, "1:4", Protocol::kRtcp,
     "80c80006cafebabe7128035be487b9bdbef89041f977a5a8d5efb8818000000100000001905c6f4d7932c1caa182"},
};

TEST(SrtpTransform, PacketsAreThoseOfTheRfcsFormulas) {
  for (const KnownPacket& known : kKnownPackets) {
    const Bytes clear = FromHex(known.protocol == Protocol::kRtp ? kClearRtp : kClearRtcp);
    const auto out = Make(Direction::kOutgoing, KeysOfTheRfc(known.suite, known.mki));
    const AppliedPacket sent = Protected(*out, known.protocol, clear);
    EXPECT_EQ(sent.verdict, SrtpVerdict::kDone);
    EXPECT_EQ(sent.packet, FromHex(known.packet)) << known.packet;
    const auto in = Make(Direction::kIncoming, KeysOfTheRfc(known.suite, known.mki));
    const AppliedPacket received = Apply(*in, known.protocol, FromHex(known.packet));
    EXPECT_EQ(received.verdict, SrtpVerdict::kDone);
    EXPECT_EQ(received.packet, clear) << known.packet;
  }
}

TEST(SrtpTransform, AWrappedSequenceNumberCountsInTheTag) {
  const auto out = Make(Direction::kOutgoing, KeysOfTheRfc(kShortTagSuite, "4660:2"));
  out->ContinueAt({0xcafebabe, 1, {}});
  EXPECT_EQ(Protected(*out, Protocol::kRtp, FromHex(kClearRtp)).packet,
            FromHex("800f1234decafbadcafebabe179265c8bf303e4c24e7279f739bb5a61234f8b3916f"));
}

TEST(SrtpTransform, UnderstandsAndIsUnderstoodByTheLibraryItself) {
  for (const SrtpCase& one : kSrtpCases) {
    const auto in = Make(Direction::kIncoming, KeysOf(1, one.suite, one.mki_text));
    const auto out = Make(Direction::kOutgoing, KeysOf(2, one.suite, one.mki_text));
    SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1, one.suite, one.mki));
    SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(2, one.suite, one.mki));
    SrtpPeer receives_rtcp = RtcpReceiver(2, one.mki);
    for (uint16_t number = 1; number < 200; ++number) {
      const Bytes rtp = RtpPacket(number, number), rtcp = RtcpPacket();
      EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(rtp).value()).packet, rtp);
      EXPECT_EQ(Apply(*in, Protocol::kRtcp, sends.Rtcp(rtcp).value()).packet, rtcp);
      EXPECT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, rtp).packet), rtp);
      EXPECT_EQ(receives_rtcp.Rtcp(Protected(*out, Protocol::kRtcp, rtcp).packet), rtcp);
    }
  }
}

TEST(SrtpTransform, NothingIsReadableOnTheWay) {
  const auto out = Make(Direction::kOutgoing, KeysOf(1));
  const Bytes sent = Protected(*out, Protocol::kRtp, RtpPacket(5)).packet;
  const Bytes payload = PayloadOf(5);
  EXPECT_EQ(std::search(sent.begin(), sent.end(), payload.begin() + 2, payload.begin() + 10), sent.end());
}

TEST(SrtpTransform, WhatCameBeforeIsRefusedInAnyOrder) {
  const auto in = Make(Direction::kIncoming, KeysOf(1));
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1));
  std::vector<Bytes> rtp, rtcp;
  for (uint16_t number = 1; number <= 100; ++number) {
    rtp.push_back(sends.Rtp(RtpPacket(number)).value());
    rtcp.push_back(sends.Rtcp(RtcpPacket()).value());
  }
  for (std::size_t i = 99; i < 100; --i) {  // backwards
    EXPECT_EQ(Apply(*in, Protocol::kRtp, rtp[i]).verdict, SrtpVerdict::kDone) << i;
    EXPECT_EQ(Apply(*in, Protocol::kRtcp, rtcp[i]).verdict, SrtpVerdict::kDone) << i;
  }
  for (std::size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(Apply(*in, Protocol::kRtp, rtp[i]).verdict, SrtpVerdict::kReplayed) << i;
    EXPECT_EQ(Apply(*in, Protocol::kRtcp, rtcp[i]).verdict, SrtpVerdict::kReplayed) << i;
  }
}

TEST(SrtpTransform, WhatIsOlderThanTheReplayListIsRefusedToo) {
  const auto in = Make(Direction::kIncoming, KeysOf(1));
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1));
  const Bytes old = sends.Rtp(RtpPacket(1)).value();
  for (uint16_t number = 2; number <= 200; ++number) {
    ASSERT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(number)).value()).verdict, SrtpVerdict::kDone);
  }
  EXPECT_EQ(Apply(*in, Protocol::kRtp, old).verdict, SrtpVerdict::kReplayed);
}

TEST(SrtpTransform, EveryAlteredBitIsNoticedAndTheRightPacketStillTaken) {
  for (const SrtpCase& one : kSrtpCases) {
    const auto in = Make(Direction::kIncoming, KeysOf(1, one.suite, one.mki_text));
    SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1, one.suite, one.mki));
    for (const Protocol protocol : {Protocol::kRtp, Protocol::kRtcp}) {
      const bool rtp = protocol == Protocol::kRtp;
      const Bytes packet = rtp ? sends.Rtp(RtpPacket(9, 20)).value() : sends.Rtcp(RtcpPacket()).value();
      for (std::size_t bit = 0; bit < 8 * packet.size(); ++bit) {
        Bytes altered = packet;
        altered[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        EXPECT_EQ(Apply(*in, protocol, altered).verdict, SrtpVerdict::kUnauthentic) << one.suite << " bit " << bit;
      }
      EXPECT_EQ(Apply(*in, protocol, packet).verdict, SrtpVerdict::kDone);
    }
  }
}

TEST(SrtpTransform, EveryTruncationIsRefusedWithoutALookBeyondItsEnd) {
  for (const SrtpCase& one : kSrtpCases) {
    const auto in = Make(Direction::kIncoming, KeysOf(1, one.suite, one.mki_text));
    SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1, one.suite, one.mki));
    Bytes full = RtpPacket(9, 20);
    full[0] |= 0x12;  // two contributing sources and an extension of one word, out of the payload
    full[22] = 0;
    full[23] = 1;
    for (const Bytes& packet : {sends.Rtp(RtpPacket(8, 20)).value(), sends.Rtp(full).value()}) {
      for (std::size_t length = 0; length < packet.size(); ++length) {
        const Bytes cut(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(Apply(*in, Protocol::kRtp, cut).verdict, SrtpVerdict::kUnauthentic) << one.suite << " " << length;
      }
    }
    const Bytes packet = sends.Rtcp(RtcpPacket()).value();
    for (std::size_t length = 0; length < packet.size(); ++length) {
      const Bytes cut(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_EQ(Apply(*in, Protocol::kRtcp, cut).verdict, SrtpVerdict::kUnauthentic) << one.suite << " " << length;
    }
  }
}

TEST(SrtpTransform, AnythingElseIsNotAuthentic) {
  const auto in = Make(Direction::kIncoming, KeysOf(1, kLongTagSuite, "1:4"));
  const auto refused = [&](const SrtpPeerKeys& keys) {
    SrtpPeer sends(SrtpPeer::Way::kSends, keys);
    return Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(1)).value()).verdict == SrtpVerdict::kUnauthentic &&
           Apply(*in, Protocol::kRtcp, sends.Rtcp(RtcpPacket()).value()).verdict == SrtpVerdict::kUnauthentic;
  };
  EXPECT_TRUE(refused(PeerKeysOf(2, kLongTagSuite, {0, 0, 0, 1})));
  EXPECT_TRUE(refused(PeerKeysOf(1, kLongTagSuite, {0, 0, 0, 2})));
  EXPECT_TRUE(refused(PeerKeysOf(1)));
  EXPECT_EQ(Apply(*in, Protocol::kRtp, RtpPacket(1)).verdict, SrtpVerdict::kUnauthentic);
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, RtcpPacket()).verdict, SrtpVerdict::kUnauthentic);
  EXPECT_FALSE(refused(PeerKeysOf(1, kLongTagSuite, {0, 0, 0, 1})));
}

TEST(SrtpTransform, TheLongestPacketWithTheLongestTrailerStaysWithinTheRoom) {
  const std::string longest_mki = "7:128";
  for (const char* suite : {kLongTagSuite, kShortTagSuite}) {
    const auto out = Make(Direction::kOutgoing, KeysOf(1, suite, longest_mki));
    Bytes mki(128, 0);
    mki.back() = 7;
    SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(1, suite, mki));
    const Bytes rtp = RtpPacket(1, 2048 - 12);
    EXPECT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, rtp).packet), rtp);
    Bytes rtcp = RtcpPacket();
    rtcp.resize(2048, 0xcd);
    const Bytes sent = Protected(*out, Protocol::kRtcp, rtcp).packet;
    EXPECT_EQ(sent.size(), 2048u + 128 + 10 + 4);
    EXPECT_LE(sent.size(), 2048 + kSrtpTrailerRoom);
    EXPECT_EQ(RtcpReceiver(1, mki).Rtcp(sent), rtcp);
  }
}

TEST(SrtpTransform, SequenceNumbersWrapManyTimesInBothDirections) {
  const auto in = Make(Direction::kIncoming, KeysOf(1));
  const auto out = Make(Direction::kOutgoing, KeysOf(2));
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1));
  SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(2));
  uint16_t number = 60000;
  for (int i = 0; i < 400; ++i, number = static_cast<uint16_t>(number + 997)) {
    const Bytes packet = RtpPacket(number, 20);
    ASSERT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(packet).value()).packet, packet) << i;
    ASSERT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, packet).packet), packet) << i;
  }
  EXPECT_EQ(in->LatestPosition().rollovers, 6u);
  EXPECT_EQ(in->LatestPosition().ssrc, 0x11111111u);
  EXPECT_EQ(out->LatestPosition().rollovers, 6u);
}

TEST(SrtpTransform, NoNumberIsUsedTwiceForSending) {
  const auto out = Make(Direction::kOutgoing, KeysOf(1));
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(5)).verdict, SrtpVerdict::kDone);
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(7)).verdict, SrtpVerdict::kDone);
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(6)).verdict, SrtpVerdict::kDone);
  for (const uint16_t number : {5, 6, 7}) {
    EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(number, 30)).verdict, SrtpVerdict::kReplayed);
  }
}

TEST(SrtpTransform, SourcesComeAndGoUnderOneKeyUpToABound) {
  const auto in = Make(Direction::kIncoming, KeysOf(1));
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1));
  for (uint32_t ssrc = 1; ssrc <= SrtpTransform::kMostSources; ++ssrc) {
    ASSERT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(1, 20, ssrc)).value()).verdict, SrtpVerdict::kDone);
  }
  EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(1, 20, 999)).value()).verdict,
            SrtpVerdict::kSourcesExceeded);
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, sends.Rtcp(RtcpPacket(999)).value()).verdict, SrtpVerdict::kSourcesExceeded);
  for (const uint32_t ssrc : {1u, 256u}) {
    EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(2, 20, ssrc)).value()).verdict, SrtpVerdict::kDone);
  }
}

TEST(SrtpTransform, SourcesOfOursComeAndGoWithoutABound) {
  const auto out = Make(Direction::kOutgoing, KeysOf(1));
  SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  for (uint32_t ssrc = 1; ssrc <= 2 * SrtpTransform::kMostSources; ++ssrc) {
    const Bytes packet = RtpPacket(1, 20, ssrc);
    ASSERT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, packet).packet), packet) << ssrc;
  }
}

TEST(SrtpTransform, WhatIsForgottenOfASourceIsAllOfIt) {
  const auto out = Make(Direction::kOutgoing, KeysOf(1));
  for (const uint32_t ssrc : {1u, 2u}) {
    ASSERT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(5, 20, ssrc)).verdict, SrtpVerdict::kDone);
  }
  out->Forget(1);
  out->Forget(77);  // never seen
  // Its replay list is gone, that of the other is not. Nobody may do so but a test.
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(5, 20, 1)).verdict, SrtpVerdict::kDone);
  EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(5, 20, 2)).verdict, SrtpVerdict::kReplayed);
}

TEST(SrtpTransform, ForgedPacketsOfManySourcesUseUpNothing) {
  const auto in = Make(Direction::kIncoming, KeysOf(1));
  SrtpPeer forges(SrtpPeer::Way::kSends, PeerKeysOf(2));
  for (uint32_t ssrc = 1; ssrc <= 2 * SrtpTransform::kMostSources; ++ssrc) {
    ASSERT_EQ(Apply(*in, Protocol::kRtp, forges.Rtp(RtpPacket(1, 20, ssrc)).value()).verdict,
              SrtpVerdict::kUnauthentic);
  }
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1));
  EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(1)).value()).verdict, SrtpVerdict::kDone);
}

TEST(SrtpTransform, KeysServeForAsManyPacketsAsTheyMay) {
  CryptoSettings settings = KeysOf(1);
  settings.lifetime_exponent = 3;
  const auto in = Make(Direction::kIncoming, settings), out = Make(Direction::kOutgoing, settings);
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(1)), forges(SrtpPeer::Way::kSends, PeerKeysOf(2));
  for (uint16_t number = 1; number <= 8; ++number) {
    EXPECT_EQ(Protected(*out, Protocol::kRtp, RtpPacket(number)).verdict, SrtpVerdict::kDone);
    EXPECT_EQ(Protected(*out, Protocol::kRtcp, RtcpPacket()).verdict, SrtpVerdict::kDone);
    // What is not authentic uses up nothing.
    EXPECT_EQ(Apply(*in, Protocol::kRtp, forges.Rtp(RtpPacket(number)).value()).verdict, SrtpVerdict::kUnauthentic);
    EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(number)).value()).verdict, SrtpVerdict::kDone);
    EXPECT_EQ(Apply(*in, Protocol::kRtcp, sends.Rtcp(RtcpPacket()).value()).verdict, SrtpVerdict::kDone);
  }
  const AppliedPacket late = Protected(*out, Protocol::kRtp, RtpPacket(9));
  EXPECT_EQ(late.verdict, SrtpVerdict::kExpired);
  EXPECT_EQ(Protected(*out, Protocol::kRtcp, RtcpPacket()).verdict, SrtpVerdict::kExpired);
  EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(RtpPacket(9)).value()).verdict, SrtpVerdict::kExpired);
  EXPECT_EQ(Apply(*in, Protocol::kRtcp, sends.Rtcp(RtcpPacket()).value()).verdict, SrtpVerdict::kExpired);
}

TEST(SrtpTransform, ThreadsWorkSideBySideEachWithItsOwn) {
  std::vector<std::future<void>> threads;
  for (uint8_t t = 1; t <= 4; ++t) {
    threads.push_back(std::async(std::launch::async, [t] {
      for (int round = 0; round < 5; ++round) {
        const auto out = Make(Direction::kOutgoing, KeysOf(t)), in = Make(Direction::kIncoming, KeysOf(t));
        for (uint16_t number = 1; number <= 50; ++number) {
          const Bytes packet = RtpPacket(number);
          EXPECT_EQ(Apply(*in, Protocol::kRtp, Protected(*out, Protocol::kRtp, packet).packet).packet, packet);
        }
      }
    }));
  }
  for (auto& thread : threads) thread.get();
}

}  // namespace
}  // namespace media_engine_test
