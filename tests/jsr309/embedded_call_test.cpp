// What calls on embedded media servers have beyond the contract (contract_call_test.cpp).
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using testing::HasSubstr;

class EmbeddedCall : public test_support::EmbeddedTest {
 protected:
  static std::vector<RtcpStatsReport> Reports(const Leg& leg) {
    std::vector<RtcpStatsReport> reports;
    EXPECT_TRUE(leg.connection->GetRtcpStatsReport(reports));
    return reports;
  }
};

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

}  // namespace
