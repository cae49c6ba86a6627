// SRTP through endpoints with sockets: calls, joins, strangers, moves.
#include <set>

#include "rtcp_bytes.h"
#include "srtp_fixture.h"

namespace media_engine_test {
namespace {

class SrtpCall : public SrtpTest {
 protected:
  static Rtp Packet(uint16_t number, std::size_t length = 160) {
    return {0, number, 160u * number, 0x11111111, false, PayloadOf(number, length)};
  }
  template <typename Reads>
  static bool Counts(const Leg& leg, Reads reads, uint64_t wanted) {
    return Eventually([&] { return reads(leg.Statistics()) == wanted; });
  }
  static bool CountsUnauthentic(const Leg& leg, uint64_t wanted) {
    return Counts(
        leg, [](const EndpointStatistics& s) { return s.srtp_unauthentic; }, wanted);
  }
};

TEST_F(SrtpCall, CarriesBothWaysBetweenLegsWithKeysOfTheirOwn) {
  for (const char* suite : {kLongTagSuite, kShortTagSuite}) {
    const SecureLeg a = NewSecureLeg(1, 2, suite), b = NewSecureLeg(3, 4, suite);
    JoinThem(a.leg, b.leg);
    for (uint16_t number = 1; number <= 50; ++number) {
      EXPECT_TRUE(Flows(a, b, number)) << number;
      EXPECT_TRUE(Flows(b, a, number)) << number;
    }
    const EndpointStatistics in = a.leg.Statistics();
    EXPECT_EQ(in.rtp_packets_received, 50u);
    EXPECT_EQ(in.rtp_octets_received, 50u * 160);
    EXPECT_EQ(in.rtp_octets_sent, 50u * 160);
    EXPECT_EQ(in.srtp_unauthentic, 0u);
  }
}

TEST_F(SrtpCall, OneLegInTheClearJoinsOneThatIsProtected) {
  const SecureLeg a = NewSecureLeg(1, 2, kShortTagSuite);
  const Leg b = NewCallLeg(*session_);
  JoinThem(a.leg, b);
  for (uint16_t number = 1; number <= 50; ++number) {
    EXPECT_TRUE(Flows(a, b, number)) << number;
    EXPECT_TRUE(Flows(b, a, number)) << number;
  }
}

TEST_F(SrtpCall, ABatchIsCarriedAsAWhole) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  a.SendRun(1, 100);
  for (uint16_t number = 1; number <= 100; ++number) {
    const auto came = b.Receive();
    ASSERT_TRUE(came) << number;
    EXPECT_EQ(came->payload, PayloadOf(number));
  }
}

TEST_F(SrtpCall, KeyIdentifiersAreCheckedAndSent) {
  SecureLeg a;
  a.leg = NewLeg(*session_);
  ASSERT_TRUE(DescribeLocal(a.leg, KeysOf(1, kLongTagSuite, "1:4")).ok);
  ASSERT_TRUE(DescribeRemote(a.leg, KeysOf(2, kLongTagSuite, "258:2")).ok);
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(2, kLongTagSuite, {1, 2}));
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(1, kLongTagSuite, {0, 0, 0, 1}));
  const SecureLeg b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_TRUE(Flows(b, a, 1));
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(2, kLongTagSuite, {1, 3}));
  a.SendRun(2, 1);
  EXPECT_TRUE(CountsUnauthentic(a.leg, 1));
}

TEST_F(SrtpCall, TheLongestPacketIsCarriedWithTheLongestTrailer) {
  Bytes mki(128, 0);
  mki.back() = 1;
  SecureLeg a;
  a.leg = NewLeg(*session_);
  ASSERT_TRUE(DescribeLocal(a.leg, KeysOf(1, kLongTagSuite, "1:128")).ok);
  ASSERT_TRUE(DescribeRemote(a.leg, KeysOf(2)).ok);
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(1, kLongTagSuite, mki));
  const Leg b = NewCallLeg(*session_);
  JoinThem(a.leg, b);
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{1460}, std::size_t{2048 - 12}}) {
    const auto number = static_cast<uint16_t>(length);
    b.Send(Packet(number, length));
    const auto came = a.Receive();
    ASSERT_TRUE(came) << length;
    EXPECT_EQ(came->payload, PayloadOf(number, length));
  }
}

TEST_F(SrtpCall, DamagedPacketsGetNowhereAndTheCallGoesOn) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  const Bytes packet = a.sends->Rtp(Serialise(Packet(1, 40))).value();
  for (std::size_t length = 0; length < packet.size(); ++length) {
    a.leg.far_end->Send(Bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length)),
                        a.leg.local.rtp_port);
  }
  ASSERT_TRUE(CountsUnauthentic(a.leg, packet.size())) << a.leg.Statistics().srtp_unauthentic;
  for (std::size_t at = 0; at < packet.size(); ++at) {
    Bytes altered = packet;
    altered[at] ^= 0x40;
    a.leg.far_end->Send(altered, a.leg.local.rtp_port);
  }
  ASSERT_TRUE(CountsUnauthentic(a.leg, 2 * packet.size())) << a.leg.Statistics().srtp_unauthentic;
  a.leg.far_end->Send(packet, a.leg.local.rtp_port);
  const auto came = b.Receive();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload, PayloadOf(1, 40));
  a.leg.far_end->Send(packet, a.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.srtp_replayed; }, 1));
  EXPECT_FALSE(b.leg.far_end->Receive(milliseconds{0}));
  EXPECT_EQ(a.leg.Statistics().rtp_packets_received, 1u);
  EXPECT_TRUE(Flows(a, b, 2));
}

TEST_F(SrtpCall, PaddingIsLookedAtOnlyInTheClear) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  Bytes padded = Serialise(Packet(1, 20));
  padded[0] |= 0x20;
  padded.insert(padded.end(), {0, 0, 0, 4});
  a.leg.far_end->Send(a.sends->Rtp(padded).value(), a.leg.local.rtp_port);
  const auto came = b.Receive();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload, PayloadOf(1, 20));
  Bytes lies = Serialise(Packet(2, 20));
  lies[0] |= 0x20;
  lies.back() = 200;
  a.leg.far_end->Send(a.sends->Rtp(lies).value(), a.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.malformed; }, 1));
}

TEST_F(SrtpCall, StrangersCostNoCryptographyAndGetNowhere) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  const FarEnd elsewhere;
  elsewhere.Send(a.sends->Rtp(Serialise(Packet(1))).value(), a.leg.local.rtp_port);  // authentic even
  elsewhere.SendRtp(Packet(2), a.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.strangers; }, 2));
  EXPECT_EQ(a.leg.Statistics().srtp_unauthentic, 0u);
  EXPECT_FALSE(b.leg.far_end->Receive(milliseconds{0}));
  EXPECT_TRUE(Flows(a, b, 3));
}

TEST_F(SrtpCall, OnlyFromAuthenticPacketsIsAnAddressLearned) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  ASSERT_TRUE(a.leg.endpoint->DetectRemoteAddress(kLimit).ok);
  const FarEnd attacker, moved;
  SrtpPeer forges(SrtpPeer::Way::kSends, PeerKeysOf(9));
  attacker.SendRtp(Packet(1), a.leg.local.rtp_port);
  attacker.Send(forges.Rtp(Serialise(Packet(1))).value(), a.leg.local.rtp_port);
  EXPECT_TRUE(CountsUnauthentic(a.leg, 2));
  EXPECT_TRUE(Flows(b, a, 1));  // still to where the description says
  const Bytes authentic = a.sends->Rtp(Serialise(Packet(2))).value();
  moved.Send(authentic, a.leg.local.rtp_port);
  EXPECT_TRUE(b.Receive());
  // What was taken once is not taken again, from wherever it comes.
  attacker.Send(authentic, a.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.strangers; }, 1));
  b.SendRun(2, 1);
  const auto data = moved.Receive();
  ASSERT_TRUE(data);
  EXPECT_TRUE(a.receives->Rtp(*data));
  EXPECT_FALSE(attacker.Receive(milliseconds{0}));
}

TEST_F(SrtpCall, AReplayedPacketMovesNoAddress) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  ASSERT_TRUE(a.leg.endpoint->DetectRemoteAddress(kLimit).ok);
  const Bytes authentic = a.sends->Rtp(Serialise(Packet(1))).value();
  a.leg.far_end->Send(authentic, a.leg.local.rtp_port);
  EXPECT_TRUE(b.Receive());
  const FarEnd attacker;
  attacker.Send(authentic, a.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.srtp_replayed; }, 1));
  EXPECT_TRUE(Flows(b, a, 1));
}

TEST_F(SrtpCall, MandatoryCryptoLetsNothingInTheClearInOrOut) {
  SecureLeg a;
  a.leg = NewLeg(*session_);
  CryptoSettings mandatory = KeysOf(1);
  mandatory.mandatory = true;
  ASSERT_TRUE(DescribeRemote(a.leg, NoKeys()).ok);
  ASSERT_TRUE(DescribeLocal(a.leg, mandatory, true).ok);  // we ask for keys, the far end has not answered
  const Leg b = NewCallLeg(*session_);
  JoinThem(a.leg, b);
  b.SendRun(1, 5);
  a.leg.SendRun(1, 5);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.srtp_missing; }, 10));
  EXPECT_FALSE(a.leg.far_end->Receive(milliseconds{0}));
  EXPECT_FALSE(b.far_end->Receive(milliseconds{0}));
  const Outcome outcome = DescribeRemote(a.leg, NoKeys());
  EXPECT_EQ(outcome.reason, "crypto is mandatory and the far end's description has no keys");
  ASSERT_TRUE(DescribeRemote(a.leg, KeysOf(2)).ok);
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(2));
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  EXPECT_TRUE(Flows(a, b, 6));
  EXPECT_TRUE(Flows(b, a, 6));
}

TEST_F(SrtpCall, WhatIsSentThroughAWrapOfOurNumbersIsUnderstood) {
  const SecureLeg a = NewSecureLeg(1, 2);
  const Leg b = NewCallLeg(*session_);
  JoinThem(a.leg, b);
  // Steps as wide as numbers may skip: the numbers on the other side skip as much.
  uint16_t number = 1;
  for (int i = 0; i < 100; ++i, number = static_cast<uint16_t>(number + 2900)) {
    ASSERT_TRUE(Flows(b, a, number)) << i;
    ASSERT_TRUE(Flows(a, b, number)) << i;
  }
}

TEST_F(SrtpCall, NewKeysInTheMiddleOfACallLoseNothing) {
  SecureLeg a = NewSecureLeg(1, 2);
  const SecureLeg b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_TRUE(Flows(b, a, 1));
  // The far end offers new keys, we answer with new ones; meanwhile it goes on.
  ASSERT_TRUE(DescribeRemote(a.leg, KeysOf(6)).ok);
  EXPECT_TRUE(Flows(a, b, 2));
  EXPECT_TRUE(Flows(b, a, 2));
  ASSERT_TRUE(DescribeLocal(a.leg, KeysOf(5)).ok);
  EXPECT_TRUE(Flows(a, b, 3));
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(6));
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(5));
  for (uint16_t number = 4; number < 20; ++number) {
    EXPECT_TRUE(Flows(a, b, number)) << number;
    EXPECT_TRUE(Flows(b, a, number)) << number;
  }
  EXPECT_EQ(a.leg.Statistics().srtp_unauthentic, 0u);
}

TEST_F(SrtpCall, FormerKeysAreForgottenByTheClock) {
  SecureLeg a = NewSecureLeg(1, 2);
  const SecureLeg b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  EXPECT_TRUE(Flows(a, b, 1));
  const auto before = a.sends;
  ASSERT_TRUE(DescribeRemote(a.leg, KeysOf(6)).ok);
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(6));
  EXPECT_TRUE(Flows(a, b, 2));
  clock_->Advance(milliseconds{2001});
  a.leg.far_end->Send(before->Rtp(Serialise(Packet(3))).value(), a.leg.local.rtp_port);
  EXPECT_TRUE(CountsUnauthentic(a.leg, 1));
  EXPECT_TRUE(Flows(a, b, 4));
}

TEST_F(SrtpCall, AnImportTakesKeysAndCountersAlong) {
  const SecureLeg b = NewSecureLeg(3, 4);
  const Leg before = NewCallLeg(*session_);
  JoinThem(before, b.leg);
  for (const uint16_t number : {65535, 0, 1}) EXPECT_TRUE(Flows(b, before, number));
  EXPECT_TRUE(Flows(before, b, 1));
  const Bytes old = b.sends->Rtp(Serialise(Packet(2))).value();
  b.leg.far_end->Send(old, b.leg.local.rtp_port);
  EXPECT_TRUE(before.far_end->ReceiveRtp());
  const auto elsewhere = NewSession(*server_);
  const Leg a = NewCallLeg(*elsewhere);
  ASSERT_TRUE(elsewhere->Import(*b.leg.endpoint).ok);
  JoinThem(a, b.leg);
  EXPECT_TRUE(Flows(b, a, 3));
  EXPECT_TRUE(Flows(a, b, 500));
  b.leg.far_end->Send(old, b.leg.local.rtp_port);
  EXPECT_TRUE(Counts(
      b.leg, [](const EndpointStatistics& s) { return s.srtp_replayed; }, 1));
}

TEST_F(SrtpCall, AFarEndMayChangeItsSource) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  for (uint32_t ssrc = 1; ssrc <= 20; ++ssrc) {
    a.Send({0, static_cast<uint16_t>(ssrc * 3000), 0, ssrc, false, PayloadOf(static_cast<uint16_t>(ssrc))});
    const auto came = b.Receive();
    ASSERT_TRUE(came) << ssrc;
    EXPECT_EQ(came->payload, PayloadOf(static_cast<uint16_t>(ssrc)));
  }
}

TEST_F(SrtpCall, ASourceOfOursMayChangeWithTheOtherLegsAnyNumberOfTimes) {
  Leg a = NewCallLeg(*session_);
  const SecureLeg b = NewSecureLeg(3, 4);
  LocalSettings settings = LocalFor(Pcmu());
  settings.source.renew_with_remote = true;
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  JoinThem(a, b.leg);
  std::set<uint32_t> sources;
  for (uint16_t i = 1; i <= 300; ++i) {
    a.Send({0, i, 160u * i, i, false, PayloadOf(i)});
    const auto came = b.Receive();
    ASSERT_TRUE(came) << i;
    sources.insert(came->ssrc);
    // The goodbye of the former source goes out before the next may come.
    clock_->Advance(milliseconds{100});
    for (int turn = 0; turn < 3; ++turn) b.leg.Statistics();
  }
  EXPECT_EQ(sources.size(), 300u);
}

TEST_F(SrtpCall, RtcpOfTheFarEndCountsOnlyWhenItIsAuthentic) {
  const SecureLeg a = NewSecureLeg(1, 2);
  const Bytes report = ReceiverReportBytes(1) + CnameBytes(1, "far end");
  const auto received = [](const EndpointStatistics& s) { return s.rtcp_packets_received; };
  a.leg.far_end->SendRtcp(report, a.leg.local.rtcp_port);
  EXPECT_TRUE(CountsUnauthentic(a.leg, 1));
  const Bytes authentic = a.sends->Rtcp(report).value();
  a.leg.far_end->SendRtcp(authentic, a.leg.local.rtcp_port);
  EXPECT_TRUE(Counts(a.leg, received, 1));
  a.leg.far_end->SendRtcp(authentic, a.leg.local.rtcp_port);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.srtp_replayed; }, 1));
  EXPECT_EQ(a.leg.Statistics().rtcp_packets_received, 1u);
}

TEST_F(SrtpCall, TheEndOfKeysIsLoggedWithTheEndpointsName) {
  SecureLeg a;
  a.leg = NewLeg(*session_);
  CryptoSettings short_lived = KeysOf(2);
  short_lived.lifetime_exponent = 1;
  ASSERT_TRUE(DescribeLocal(a.leg, KeysOf(1)).ok);
  ASSERT_TRUE(DescribeRemote(a.leg, short_lived).ok);
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(2));
  a.SendRun(1, 5);
  EXPECT_TRUE(Counts(
      a.leg, [](const EndpointStatistics& s) { return s.srtp_key_expired; }, 3));
  EXPECT_TRUE(log_.Has(LogLevel::kWarning, "endpoint "));
  EXPECT_TRUE(log_.Has(LogLevel::kWarning,
                       ": the far end's keys have served their time: dropped, and from now on only counted"));
}

}  // namespace
}  // namespace media_engine_test
