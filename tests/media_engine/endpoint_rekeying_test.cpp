// Keys that are repeated, replaced and brought back during a call.
#include "endpoint_crypto_fixture.h"

namespace media_engine_test {
namespace {

using Rekeying = CryptoTest;

TEST_F(Rekeying, RepeatedKeysCountOnAcrossAWrapAndReplaysStayReplays) {
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  const Bytes first = sends.Rtp(NumberedPacket(65530)).value();
  EXPECT_TRUE(Takes(first, NumberedPacket(65530)));
  EXPECT_TRUE(Arrives(receives, 65530));
  for (uint16_t number = 65531; number != 20; ++number) {
    ASSERT_TRUE(Local(KeysOf(1), number % 2 == 0).ok);
    ASSERT_TRUE(Remote(KeysOf(2)).ok);
    EXPECT_TRUE(Comes(sends, number)) << number;
    EXPECT_TRUE(Arrives(receives, number)) << number;
  }
  EXPECT_FALSE(Takes(first, NumberedPacket(65530)));
  EXPECT_EQ(Counted().srtp_replayed, 1u);
}

TEST_F(Rekeying, KeysThatPausedCountOn) {
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0, 1}) {
    EXPECT_TRUE(Arrives(receives, number));
    EXPECT_TRUE(Comes(sends, number));
  }
  ASSERT_TRUE(Remote(NoKeys()).ok);
  ASSERT_TRUE(Local(NoKeys()).ok);
  EXPECT_EQ(Sent(NumberedPacket(2)), NumberedPacket(2));
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  EXPECT_TRUE(Arrives(receives, 3));
  EXPECT_TRUE(Comes(sends, 3));
}

TEST_F(Rekeying, FormerKeysOfTheFarEndCountUntilTheNewOnesHaveBeenInUseForAMoment) {
  SrtpPeer before(SrtpPeer::Way::kSends, PeerKeysOf(2)), after(SrtpPeer::Way::kSends, PeerKeysOf(3));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Comes(before, 1));
  const auto late = before.Rtp(NumberedPacket(4));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  EXPECT_TRUE(Comes(before, 2, 60000));  // it has not seen our answer yet, or has been refused
  EXPECT_TRUE(Comes(after, 3, 60020));
  EXPECT_TRUE(Takes(late, NumberedPacket(4), 60030));
  EXPECT_TRUE(Comes(after, 5, 60040));
  EXPECT_TRUE(Comes(before, 6, 62020));
  EXPECT_FALSE(Comes(before, 7, 62021));
  EXPECT_TRUE(Comes(after, 8, 62021));
  EXPECT_EQ(Counted().srtp_unauthentic, 1u);
}

TEST_F(Rekeying, ReplaysUnderFormerKeysAreRefusedToo) {
  SrtpPeer before(SrtpPeer::Way::kSends, PeerKeysOf(2));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  const auto packet = before.Rtp(NumberedPacket(1));
  EXPECT_TRUE(Takes(packet, NumberedPacket(1)));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  EXPECT_FALSE(Takes(packet, NumberedPacket(1)));
}

TEST_F(Rekeying, AFarEndThatGoesBackToItsFormerKeysCountsOn) {
  SrtpPeer before(SrtpPeer::Way::kSends, PeerKeysOf(2));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0}) EXPECT_TRUE(Comes(before, number));
  const auto packet = before.Rtp(NumberedPacket(1));
  EXPECT_TRUE(Takes(packet, NumberedPacket(1)));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_FALSE(Takes(packet, NumberedPacket(1)));
  EXPECT_TRUE(Comes(before, 2));
}

TEST_F(Rekeying, OfTwoChangesInARowTheKeysThatWereInUseAreTheFormerOnes) {
  SrtpPeer first(SrtpPeer::Way::kSends, PeerKeysOf(2)), third(SrtpPeer::Way::kSends, PeerKeysOf(4));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Comes(first, 1));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  ASSERT_TRUE(Remote(KeysOf(4)).ok);
  EXPECT_TRUE(Comes(first, 2));
  EXPECT_TRUE(Comes(third, 3));
}

TEST_F(Rekeying, AFarEndMayCountRolloversOnUnderNewKeys) {
  SrtpPeer before(SrtpPeer::Way::kSends, PeerKeysOf(2)), after(SrtpPeer::Way::kSends, PeerKeysOf(3));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Comes(before, number));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  after.ContinueAt(0x11111111, 1);
  EXPECT_TRUE(Comes(before, 2));
  for (const uint16_t number : {3, 4, 30000, 60000, 100}) EXPECT_TRUE(Comes(after, number)) << number;
  EXPECT_EQ(Counted().srtp_unauthentic, 0u);
}

TEST_F(Rekeying, AFarEndMayCountOnThoughItsNumbersWrapWithTheChangeOfKeys) {
  SrtpPeer first(SrtpPeer::Way::kSends, PeerKeysOf(2)), second(SrtpPeer::Way::kSends, PeerKeysOf(3)),
      third(SrtpPeer::Way::kSends, PeerKeysOf(4));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Comes(first, 65534));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  second.ContinueAt(0x11111111, 1);
  for (const uint16_t number : {1, 2, 30000, 60000, 65535}) EXPECT_TRUE(Comes(second, number)) << number;
  ASSERT_TRUE(Remote(KeysOf(4)).ok);
  third.ContinueAt(0x11111111, 2);
  for (const uint16_t number : {1, 2}) EXPECT_TRUE(Comes(third, number)) << number;
  EXPECT_EQ(Counted().srtp_unauthentic, 0u);
}

TEST_F(Rekeying, AFarEndMayCountRolloversAnewUnderNewKeys) {
  SrtpPeer before(SrtpPeer::Way::kSends, PeerKeysOf(2)), after(SrtpPeer::Way::kSends, PeerKeysOf(3));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Comes(before, number));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  EXPECT_TRUE(Comes(before, 2));
  for (const uint16_t number : {3, 4, 30000, 60000, 100}) EXPECT_TRUE(Comes(after, number)) << number;
}

TEST_F(Rekeying, AFarEndMayCountRolloversOnThoughNothingCameUnderTheKeysInBetween) {
  SrtpPeer first(SrtpPeer::Way::kSends, PeerKeysOf(2)), third(SrtpPeer::Way::kSends, PeerKeysOf(4));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Comes(first, number));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  ASSERT_TRUE(Remote(KeysOf(4)).ok);
  third.ContinueAt(0x11111111, 1);
  EXPECT_TRUE(Comes(first, 2));
  for (const uint16_t number : {3, 4, 30000, 60000, 100}) EXPECT_TRUE(Comes(third, number)) << number;
  EXPECT_EQ(Counted().srtp_unauthentic, 0u);
}

TEST_F(Rekeying, AFarEndMayCountRolloversOnThoughOnlyReportsCameUnderTheKeysInBetween) {
  SrtpPeer first(SrtpPeer::Way::kSends, PeerKeysOf(2)), second(SrtpPeer::Way::kSends, PeerKeysOf(3)),
      third(SrtpPeer::Way::kSends, PeerKeysOf(4));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Comes(first, number));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  Bytes report = second.Rtcp({0x81, 201, 0, 1, 0x11, 0x11, 0x11, 0x11}).value();
  std::size_t length = report.size();
  ASSERT_TRUE(crypto_.UnprotectRtcp(report.data(), length, At(0)));
  crypto_.DropFormerKeys(At(2001));
  EXPECT_FALSE(Comes(first, 2, 2001));  // the first keys are gone, and what they counted is not
  ASSERT_TRUE(Remote(KeysOf(4)).ok);
  third.ContinueAt(0x11111111, 1);
  for (const uint16_t number : {3, 4}) EXPECT_TRUE(Comes(third, number, 2001)) << number;
}

TEST_F(Rekeying, OurNewKeysInAnOfferWaitForTheAnswer) {
  SrtpPeer before(SrtpPeer::Way::kReceives, PeerKeysOf(1)), after(SrtpPeer::Way::kReceives, PeerKeysOf(3));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(before, 1));
  ASSERT_TRUE(Local(KeysOf(3), true).ok);
  EXPECT_TRUE(Arrives(before, 2));
  ASSERT_TRUE(Local(KeysOf(3), true).ok);  // the same offer again
  EXPECT_TRUE(Arrives(before, 3));
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(after, 4));
  // In an answer they count at once.
  SrtpPeer at_once(SrtpPeer::Way::kReceives, PeerKeysOf(4));
  ASSERT_TRUE(Local(KeysOf(4)).ok);
  EXPECT_TRUE(Arrives(at_once, 5));
}

TEST_F(Rekeying, OurNewKeysLapseWhenTheFarEndOffersInsteadOfAnswering) {
  SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(receives, 1));
  ASSERT_TRUE(Local(KeysOf(3), true).ok);
  ASSERT_TRUE(Remote(KeysOf(2), true).ok);
  EXPECT_TRUE(Arrives(receives, 2));
  EXPECT_EQ(crypto_.LocalKey(), KeysOf(1).key);
  // Nor does a later answer bring them back.
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Local(KeysOf(1), true).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(receives, 3));
}

TEST_F(Rekeying, AnOfferOfOursThatIsTakenBackLeavesTheKeysThatStand) {
  SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(receives, 1));
  ASSERT_TRUE(Local(KeysOf(3), true).ok);
  ASSERT_TRUE(Local(KeysOf(1), true).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_TRUE(Arrives(receives, 2));
}

TEST_F(Rekeying, UnderOurNewKeysRolloversGoOnUnlessThePortIsNewToo) {
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer first(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Arrives(first, number));
  ASSERT_TRUE(Local(KeysOf(3)).ok);
  SrtpPeer second(SrtpPeer::Way::kReceives, PeerKeysOf(3));
  second.ContinueAt(0x11111111, 1);
  for (const uint16_t number : {2, 3}) EXPECT_TRUE(Arrives(second, number));
  ASSERT_TRUE(Local(KeysOf(4), false, true).ok);
  SrtpPeer third(SrtpPeer::Way::kReceives, PeerKeysOf(4));
  for (const uint16_t number : {4, 5}) EXPECT_TRUE(Arrives(third, number));
}

TEST_F(Rekeying, OurRolloversGoOnThoughNothingWentOutUnderTheKeysInBetween) {
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer first(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Arrives(first, number));
  ASSERT_TRUE(Local(KeysOf(3)).ok);
  ASSERT_TRUE(Local(KeysOf(4)).ok);
  SrtpPeer third(SrtpPeer::Way::kReceives, PeerKeysOf(4));
  third.ContinueAt(0x11111111, 1);
  for (const uint16_t number : {2, 3}) EXPECT_TRUE(Arrives(third, number));
}

TEST_F(Rekeying, OurRolloversGoOnThoughOurNumbersWrapWithTheChangeOfKeys) {
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer first(SrtpPeer::Way::kReceives, PeerKeysOf(1)), second(SrtpPeer::Way::kReceives, PeerKeysOf(3)),
      third(SrtpPeer::Way::kReceives, PeerKeysOf(4));
  EXPECT_TRUE(Arrives(first, 65535));
  ASSERT_TRUE(Local(KeysOf(3)).ok);
  second.ContinueAt(0x11111111, 1);
  for (const uint16_t number : {0, 30000, 60000, 65535}) EXPECT_TRUE(Arrives(second, number)) << number;
  ASSERT_TRUE(Local(KeysOf(4)).ok);
  third.ContinueAt(0x11111111, 2);
  for (const uint16_t number : {0, 1}) EXPECT_TRUE(Arrives(third, number)) << number;
}

TEST_F(Rekeying, APortThatWasRenewedWithoutAWordOfKeysIsNewToTheNextOnes) {
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer first(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Arrives(first, number));
  crypto_.PortRenewed();
  ASSERT_TRUE(Local(CryptoSettings()).ok);             // says nothing of keys either
  ASSERT_FALSE(Local(KeysOf(3, "no such suite")).ok);  // and this is refused
  ASSERT_TRUE(Local(KeysOf(3)).ok);
  SrtpPeer second(SrtpPeer::Way::kReceives, PeerKeysOf(3));
  for (const uint16_t number : {2, 3}) EXPECT_TRUE(Arrives(second, number));
  // Once. With the next keys, rollovers go on.
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Arrives(second, number));
  ASSERT_TRUE(Local(KeysOf(4)).ok);
  SrtpPeer third(SrtpPeer::Way::kReceives, PeerKeysOf(4));
  third.ContinueAt(0x11111111, 1);
  EXPECT_TRUE(Arrives(third, 2));
}

}  // namespace
}  // namespace media_engine_test
