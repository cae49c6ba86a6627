// Calls through the whole control library on embedded media servers, with real packets.
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using test_support::RecordingRtpTimeoutListener;
using testing::ElementsAre;
using testing::HasSubstr;

class EmbeddedCall : public test_support::EmbeddedTest {
 protected:
  static std::vector<RtcpStatsReport> Reports(const Leg& leg) {
    std::vector<RtcpStatsReport> reports;
    EXPECT_TRUE(leg.connection->GetRtcpStatsReport(reports));
    return reports;
  }
  static std::vector<std::uint8_t> Arrived(const Leg& leg) {
    const auto packet = leg.Receive(0);
    return packet ? packet->payload : std::vector<std::uint8_t>();
  }
};

TEST_F(EmbeddedCall, CarriesBothDirectionsOfAnOfferedAndAnAnsweredLeg) {
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

TEST_F(EmbeddedCall, TheAnswerMayComeBeforeTheRemoteOffer) {
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

TEST_F(EmbeddedCall, LocalDescriptionsTellAddressesAndPorts) {
  EmbeddedOptions options;
  options.public_address = "203.0.113.7";
  Start(options);
  const auto session = NewSession();
  const Leg leg = NewLeg(session);
  EXPECT_STREQ(leg.local.GetIPAddress(), "127.0.0.1");
  EXPECT_STREQ(leg.local.GetPublicIPAddress(), "203.0.113.7");
  EXPECT_GE(leg.local.GetRtpPort(), port_min());
  EXPECT_LT(leg.local.GetRtpPort(), port_min() + 16);
  EXPECT_EQ(leg.local.GetRtpPort() % 2, 0);
  EXPECT_EQ(leg.local.GetRtcpPort(), leg.local.GetRtpPort() + 1);
}

TEST_F(EmbeddedCall, WithoutAPublicAddressThereIsNone) {
  Start();
  const Leg leg = NewLeg(NewSession());
  EXPECT_EQ(leg.local.GetPublicIPAddress(), nullptr);
}

TEST_F(EmbeddedCall, RepeatedDescriptionsKeepThePortUnlessAnAnswerRenewsIt) {
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
  EXPECT_TRUE(test_support::udp_port_is_free(port));
}

TEST_F(EmbeddedCall, EachDirectionIsSeenFromTheNetworkSideOfTheCaller) {
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
  const std::vector<std::uint8_t> kNothing;
  for (const Case& one : cases) {
    ASSERT_TRUE(Join(a, b, one.direction)) << one.direction;
    a.Send(++number);
    b.Send(number);
    // A request is served after the packets that were sent before it: what has not arrived then never will.
    Reports(a);
    EXPECT_EQ(Arrived(b), one.forward ? Payload(number) : kNothing) << one.direction;
    EXPECT_EQ(Arrived(a), one.backward ? Payload(number) : kNothing) << one.direction;
  }
}

TEST_F(EmbeddedCall, PayloadTypesOfEventsAndCodecsAreEachLegsOwn) {
  Start();
  const auto session = NewSession();
  const auto leg_with = [&](int payload_type, std::uint8_t events) {
    Leg leg;
    leg.connection = NewConnection(session);
    MediaConfig remote;
    remote.SetIPAddress("127.0.0.1");
    remote.SetRtpPort(leg.far_end->Port());
    for (MediaConfig* config : {&leg.local, &remote}) {
      AddCodec(*config, "AMR", payload_type);
      config->SetAMROctetAlign(true);
      config->SetRfc2833Flag(true);
      config->SetRfc2833Payload(events);
    }
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
    return leg;
  };
  const Leg a = leg_with(96, 101), b = leg_with(104, 97);
  ASSERT_TRUE(Join(a, b));
  a.Send(1, 96);
  EXPECT_EQ(b.Receive().value().payload_type, 104);
  a.Send(2, 101);
  EXPECT_EQ(b.Receive().value().payload_type, 97);
  b.Send(1, 104);
  EXPECT_EQ(a.Receive().value().payload_type, 96);
  b.Send(2, 97);
  EXPECT_EQ(a.Receive().value().payload_type, 101);
}

TEST_F(EmbeddedCall, UnlikeCodecsAreRefusedAtTheJoinAndNamed) {
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

TEST_F(EmbeddedCall, WhatIsNotSupportedIsNamedOncePerServer) {
  Start();
  const auto session = NewSession();
  for (int i = 0; i < 3; ++i) {
    Leg leg;
    leg.connection = NewConnection(session);
    AddCodec(leg.local);
    leg.local.SetJitterMode(MediaConfig::JITTER_MODE_ADAPTIVE);
    leg.local.SetJitterInitialDelayMs(40);
    leg.local.SetVideoJitterBufferType("adaptive");
    leg.local.SetFaxModeAutoSwitchMask("CNG");
    leg.local.SetAllowInbandTo2833Conversion(true);
    leg.local.SetSilenceSuppressionFlag(true);
    leg.local.SetCngSuppressionFlag(true);
    leg.local.SetSidFlag(true);
    ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  }
  std::vector<std::string> named;
  for (const std::string& message : logger().Messages(kelvaro::INFO_LOG_LEVEL)) {
    const std::string phrase = "does not support ";
    const auto at = message.find(phrase);
    if (at == std::string::npos) continue;
    const auto begin = at + phrase.size();
    named.push_back(message.substr(begin, message.find(" yet", begin) - begin));
  }
  EXPECT_THAT(named, testing::UnorderedElementsAre("VideoJitterBufferType", "FaxModeAutoSwitchMask",
                                                   "AllowInbandTo2833Conversion", "SilenceSuppressionFlag", "SidFlag"));
}

TEST_F(EmbeddedCall, WhatHasNoOtherEffectThanItAsksForIsNotNamed) {
  Start();
  const auto session = NewSession();
  Leg leg;
  leg.connection = NewConnection(session);
  AddCodec(leg.local);
  leg.local.SetJitterMode(MediaConfig::JITTER_MODE_NONE);
  leg.local.SetAllowInbandTo2833Conversion(false);
  leg.local.SetResetRtpOnRemoteSSRCChange(false);
  leg.local.SetG729AnnexBFlag(false);
  leg.local.SetAsymmetricDynamicPayload();
  leg.local.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
  ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  for (const std::string& message : logger().Messages(kelvaro::INFO_LOG_LEVEL)) {
    EXPECT_THAT(message, testing::Not(HasSubstr("does not support")));
  }
}

TEST_F(EmbeddedCall, TheRemoteAddressIsLearnedOnlyWhenAskedFor) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  const Leg moved{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  moved.Send(1);
  Reports(a);
  EXPECT_FALSE(b.Receive(0));
  EXPECT_TRUE(Flows(a, b, 2));
  ASSERT_TRUE(a.connection->SetRemoteAddressDetection());
  EXPECT_TRUE(Flows(moved, b, 3));
  EXPECT_TRUE(Flows(b, moved, 4));
}

TEST_F(EmbeddedCall, StatisticsCountWhatWasSentAndLost) {
  Start();
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  EXPECT_THAT(Reports(a), testing::IsEmpty());
  ASSERT_TRUE(Join(a, b));
  for (std::uint16_t number : {1, 2, 5, 6}) EXPECT_TRUE(Flows(a, b, number));
  const auto in = Reports(a), out = Reports(b);
  ASSERT_EQ(in.size(), 1u);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(in[0].lrsTotalLostRTPPacketsCnt, 2u);
  EXPECT_EQ(in[0].lssRTPPacketsSent, 0u);
  EXPECT_EQ(out[0].lssRTPPacketsSent, 4u);
  EXPECT_EQ(out[0].lssBytesSent, 4u * 160u);
  a.connection->Close();
  std::vector<RtcpStatsReport> reports(3);
  EXPECT_FALSE(a.connection->GetRtcpStatsReport(reports));
  EXPECT_EQ(reports.size(), 3u);
}

TEST_F(EmbeddedCall, SilencesReachTheListener) {
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

}  // namespace
