// Calls through the whole control library, with real packets.
#include "contract_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using test_support::RecordingRtpTimeoutListener;
using testing::ElementsAre;

class CallContract : public test_support::ContractTest {};

TEST_P(CallContract, CarriesBothDirectionsOfAnOfferedAndAnAnsweredLeg) {
  Start();
  const auto session = NewSession();
  ASSERT_TRUE(session);
  Leg a;
  a.connection = NewConnection(session);
  ASSERT_TRUE(a.connection->SetRemoteOffer(RemoteOf(a)));
  AddCodec(a.local);
  ASSERT_TRUE(a.connection->GetLocalAnswer(a.local));
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  for (std::uint16_t number = 1; number <= 50; ++number) {
    EXPECT_TRUE(Flows(a, b, number)) << number;
    EXPECT_TRUE(Flows(b, a, static_cast<std::uint16_t>(1000 + number))) << number;
  }
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
}

TEST_P(CallContract, TheAnswerMayComeBeforeTheRemoteOffer) {
  Start();
  const auto session = NewSession();
  Leg a;
  a.connection = NewConnection(session);
  AddCodec(a.local);
  ASSERT_TRUE(a.connection->GetLocalAnswer(a.local));
  ASSERT_TRUE(a.connection->SetRemoteOffer(RemoteOf(a)));
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(b, a));
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_TRUE(Flows(b, a, 2));
}

TEST_P(CallContract, LocalDescriptionsTellAddressesAndPorts) {
  EmbeddedOptions options;
  options.public_address = "203.0.113.7";
  Start(options);
  const auto session = NewSession();
  const Leg leg = NewLeg(session);
  EXPECT_EQ(leg.local.GetIPAddress(), Address());
  EXPECT_STREQ(leg.local.GetPublicIPAddress(), "203.0.113.7");
  EXPECT_GE(leg.local.GetRtpPort(), 1024);
  EXPECT_EQ(leg.local.GetRtpPort() % 2, 0);
  EXPECT_EQ(leg.local.GetRtcpPort(), leg.local.GetRtpPort() + 1);
}

TEST_P(CallContract, WithoutAPublicAddressThereIsNone) {
  Start();
  const Leg leg = NewLeg(NewSession());
  EXPECT_EQ(leg.local.GetPublicIPAddress(), nullptr);
}

TEST_P(CallContract, RepeatedDescriptionsKeepThePortUnlessAnAnswerRenewsIt) {
  Start();
  const auto session = NewSession();
  const Leg leg = NewLeg(session);
  const auto port = leg.local.GetRtpPort();
  MediaConfig again;
  AddCodec(again);
  ASSERT_TRUE(leg.connection->GetLocalOffer(again));
  EXPECT_EQ(again.GetRtpPort(), port);
  ASSERT_TRUE(leg.connection->GetLocalAnswer(again));
  EXPECT_EQ(again.GetRtpPort(), port);
  again.SetAutoLocalPortRenew(true);
  ASSERT_TRUE(leg.connection->GetLocalOffer(again));
  EXPECT_EQ(again.GetRtpPort(), port);
  ASSERT_TRUE(leg.connection->GetLocalAnswer(again));
  EXPECT_NE(again.GetRtpPort(), port);
  EXPECT_TRUE(PortIsFree(Address(), port));
}

TEST_P(CallContract, EachDirectionIsSeenFromTheNetworkSideOfTheCaller) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  struct Case {
    Direction direction;
    bool forward, backward;
  };
  const Case cases[] = {{kDuplex, true, true},       {kReceive, true, false},       {kSend, false, true},
                        {kAudioNoVideo, true, true}, {kVideoNoAudio, false, false}, {kDisable, false, false}};
  std::uint16_t number = 0;
  const auto carries = [&](const Leg& from, const Leg& to, bool wanted) {
    if (wanted) return Flows(from, to, ++number);
    from.Send(++number);
    return NothingComes(from, to);
  };
  for (const Case& one : cases) {
    ASSERT_TRUE(Join(a, b, one.direction)) << one.direction;
    EXPECT_TRUE(carries(a, b, one.forward)) << one.direction;
    EXPECT_TRUE(carries(b, a, one.backward)) << one.direction;
  }
}

TEST_P(CallContract, UnlikeCodecsAreRefusedAtTheJoinAndNamed) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session, "GSM", 3);
  EXPECT_FALSE(Join(a, b));
  EXPECT_TRUE(
      logger().Has(kelvaro::ERROR_LOG_LEVEL, "codecs PCMU/8000 and GSM/8000 cannot be carried into each other"));
  const Leg c = NewLeg(session, "PCMA", 8);
  EXPECT_TRUE(Join(a, c));
  a.Send(1);
  EXPECT_EQ(c.Receive().value().payload_type, 8);
}

TEST_P(CallContract, TheRemoteAddressIsLearnedOnlyWhenAskedFor) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  const Leg moved{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  moved.Send(1);
  EXPECT_TRUE(NothingComes(a, b));
  EXPECT_TRUE(Flows(a, b, 2));
  ASSERT_TRUE(a.connection->SetRemoteAddressDetection());
  EXPECT_TRUE(Flows(moved, b, 3));
  EXPECT_TRUE(Flows(b, moved, 4));
}

TEST_P(CallContract, SilencesReachTheListener) {
  Start();
  const auto session = NewSession();
  Leg leg;
  leg.connection = NewConnection(session);
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  ASSERT_TRUE(leg.connection->AddListener(listener));
  AddCodec(leg.local);
  leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 1);
  leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, 1);
  ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  ASSERT_TRUE(leg.connection->SetRemoteAnswer(RemoteOf(leg)));
  ASSERT_TRUE(listener->WaitForEvents(1));
  EXPECT_FALSE(listener->Events()[0].active_);
  leg.Send(1);
  ASSERT_TRUE(listener->WaitForEvents(2));
  EXPECT_TRUE(listener->Events()[1].active_);
}

TEST_P(CallContract, PayloadTypesOfEventsAreEachLegsOwn) {
  Start();
  const auto session = NewSession();
  const auto leg_with = [&](std::uint8_t events) {
    Leg leg;
    leg.connection = NewConnection(session);
    MediaConfig remote = RemoteOf(leg);
    AddCodec(leg.local);
    for (MediaConfig* config : {&leg.local, &remote}) {
      config->SetRfc2833Flag(true);
      config->SetRfc2833Payload(events);
    }
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
    return leg;
  };
  const Leg a = leg_with(101), b = leg_with(97);
  ASSERT_TRUE(Join(a, b));
  a.Send(1);
  EXPECT_EQ(b.Receive().value().payload_type, 0);
  const auto digit = [](const Leg& from, std::uint8_t type) {
    // The end of a digit 1 (RFC 4733).
    const test_support::RtpPacket packet{true, type, 2, 320, 0x12345678, {1, 0x8a, 0, 160}};
    return from.far_end->SendTo(from.target(), test_support::serialise_rtp(packet));
  };
  ASSERT_TRUE(digit(a, 101));
  EXPECT_EQ(b.Receive().value().payload_type, 97);
  b.Send(1);
  EXPECT_EQ(a.Receive().value().payload_type, 0);
  ASSERT_TRUE(digit(b, 97));
  EXPECT_EQ(a.Receive().value().payload_type, 101);
}

TEST_P(CallContract, AJoinWithAThirdDissolvesTheFormerOneAndMayBeMadeAgain) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session), c = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
  ASSERT_TRUE(Join(c, a));
  EXPECT_TRUE(Flows(a, c, 2));
  EXPECT_TRUE(Flows(c, a, 3));
  EXPECT_FALSE(a.connection->Unjoin(b.connection));
  b.Send(4);
  EXPECT_TRUE(NothingComes(b, a));
  ASSERT_TRUE(a.connection->Unjoin(c.connection));
  EXPECT_FALSE(c.connection->Unjoin(a.connection));
  a.Send(5);
  EXPECT_TRUE(NothingComes(a, c));
  ASSERT_TRUE(Join(b, a));
  EXPECT_TRUE(Flows(a, b, 6));
  EXPECT_TRUE(Flows(b, a, 7));
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
}

TEST_P(CallContract, OneLegsEndLeavesTheOtherItsPortAndFreesItsOwn) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session), c = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
  a.connection->Close();
  EXPECT_TRUE(PortIsFree(a));
  MediaConfig again;
  AddCodec(again);
  EXPECT_FALSE(a.connection->GetLocalOffer(again));
  EXPECT_FALSE(Join(a, c));
  std::vector<RtcpStatsReport> reports(3);
  EXPECT_FALSE(a.connection->GetRtcpStatsReport(reports));
  EXPECT_EQ(reports.size(), 3u);
  ASSERT_TRUE(b.connection->GetLocalOffer(again));
  EXPECT_EQ(again.GetRtpPort(), b.local.GetRtpPort());
  ASSERT_TRUE(Join(b, c));
  EXPECT_TRUE(Flows(b, c, 2));
  EXPECT_TRUE(Flows(c, b, 3));
}

TEST_P(CallContract, AnImportedConnectionKeepsItsPortAndIsJoinedAcrossServers) {
  Start({}, 2);
  for (int round = 0; round < 5; ++round) {
    const auto here = NewSession();
    auto there = NewSession();
    const Leg a = NewLeg(here), b = NewLeg(there), c = NewLeg(there);
    EXPECT_STRNE(a.local.GetIPAddress(), b.local.GetIPAddress());
    ASSERT_TRUE(Join(b, c));
    EXPECT_TRUE(Flows(b, c, 1));
    EXPECT_FALSE(Join(a, b));
    const ConnectionPtr imported(here->ImportNetworkConnection(b.connection));
    ASSERT_TRUE(imported);
    // Through the old handle, as an application does that kept it.
    ASSERT_TRUE(Join(a, b)) << round;
    EXPECT_TRUE(Flows(a, b, 2));
    EXPECT_TRUE(Flows(b, a, 3));
    c.Send(4);
    EXPECT_TRUE(NothingComes(c, b));
    there.reset();
    EXPECT_TRUE(Flows(a, b, 5));
    MediaConfig again;
    AddCodec(again);
    ASSERT_TRUE(imported->GetLocalOffer(again));
    EXPECT_STREQ(again.GetIPAddress(), b.local.GetIPAddress());
    EXPECT_EQ(again.GetRtpPort(), b.local.GetRtpPort());
    EXPECT_TRUE(a.connection->Unjoin(imported));
  }
}

TEST_P(CallContract, TheEndOfASessionEndsItsConnections) {
  Start();
  auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  session.reset();
  EXPECT_TRUE(Eventually([&] { return PortIsFree(a) && PortIsFree(b); }));
  MediaConfig again;
  AddCodec(again);
  EXPECT_FALSE(a.connection->GetLocalOffer(again));
}

TEST_P(CallContract, StatisticsAreEmptyBeforeTheFirstPacketAndCountWhatWentOut) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  std::vector<RtcpStatsReport> reports(3);
  ASSERT_TRUE(a.connection->GetRtcpStatsReport(reports));
  EXPECT_THAT(reports, testing::IsEmpty());
  ASSERT_TRUE(Join(a, b));
  for (std::uint16_t number = 1; number <= 4; ++number) EXPECT_TRUE(Flows(a, b, number));
  ASSERT_TRUE(b.connection->GetRtcpStatsReport(reports));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].lssRTPPacketsSent, 4u);
  EXPECT_EQ(reports[0].lssBytesSent, 4u * 160u);
  ASSERT_TRUE(a.connection->GetRtcpStatsReport(reports));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].lssRTPPacketsSent, 0u);
}

TEST_P(CallContract, ANewDescriptionOfAJoinedLegMovesItsMedia) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
  const Leg moved{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  MediaConfig remote = RemoteOf(moved);
  ASSERT_TRUE(a.connection->SetRemoteOffer(remote));
  EXPECT_TRUE(Flows(b, moved, 2));
  EXPECT_TRUE(Flows(moved, b, 3));
  a.Send(4);
  EXPECT_TRUE(NothingComes(a, b));
  remote.SetIPAddress("0.0.0.0");
  ASSERT_TRUE(a.connection->SetRemoteOffer(remote));
  b.Send(5);
  EXPECT_TRUE(NothingComes(b, moved));
  ASSERT_TRUE(a.connection->SetRemoteOffer(RemoteOf(moved)));
  EXPECT_TRUE(Flows(b, moved, 6));
}

INSTANTIATE_TEST_SUITE_P(MediaServers, CallContract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
