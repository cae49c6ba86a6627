// Comfort noise, silence descriptors and dynamic payload types, from the record's flags to the packets.
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;

class EmbeddedSilence : public test_support::EmbeddedTest {
 protected:
  void SetUp() override {
    Start();
    session_ = NewSession();
  }
  /// fill is called on both records.
  template <typename Fill>
  Leg NewLegWith(const char* codec, int payload_type, Fill fill) {
    Leg leg;
    leg.connection = NewConnection(session_);
    MediaConfig remote = RemoteOf(leg, codec, payload_type);
    AddCodec(leg.local, codec, payload_type);
    fill(leg.local);
    fill(remote);
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
    return leg;
  }
  /// What arrives of a payload; none when it was dropped.
  std::optional<test_support::RtpPacket> Through(const Leg& from, const Leg& to, std::uint8_t payload_type,
                                                 const std::vector<std::uint8_t>& payload) {
    ++number_;
    const test_support::RtpPacket packet{false, payload_type, number_, 160u * number_, 7, payload};
    EXPECT_TRUE(from.far_end->SendTo(from.target(), test_support::serialise_rtp(packet)));
    // A request is served after the packets that were sent before it.
    std::vector<RtcpStatsReport> reports;
    EXPECT_TRUE(from.connection->GetRtcpStatsReport(reports));
    return to.Receive(0);
  }

  SessionPtr session_;
  std::uint16_t number_ = 0;
};

TEST_F(EmbeddedSilence, ComfortNoisePassesUnlessALegSuppressesIt) {
  const auto suppress = [](bool on) { return [on](MediaConfig& config) { config.SetCngSuppressionFlag(on); }; };
  const Leg a = NewLegWith("PCMU", 0, suppress(false)), b = NewLegWith("PCMA", 8, suppress(false));
  const Leg c = NewLegWith("PCMU", 0, suppress(true));
  ASSERT_TRUE(Join(a, b));
  const auto came = Through(a, b, 13, {40});
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload_type, 13);
  EXPECT_EQ(came->payload, std::vector<std::uint8_t>{40});
  ASSERT_TRUE(Join(a, c));
  EXPECT_FALSE(Through(a, c, 13, {40}));
  EXPECT_FALSE(Through(c, a, 13, {40}));
  EXPECT_TRUE(Through(a, c, 0, {40}));
}

TEST_F(EmbeddedSilence, ComfortNoiseAmongTheCodecsPassesUnderItsNumbers) {
  const auto with = [](int type) { return [type](MediaConfig& config) { AddCodec(config, "CN", type); }; };
  const Leg a = NewLegWith("PCMU", 0, with(13)), b = NewLegWith("PCMU", 0, with(98));
  ASSERT_TRUE(Join(a, b));
  EXPECT_EQ(Through(a, b, 13, {40}).value().payload_type, 98);
  EXPECT_EQ(Through(b, a, 98, {40}).value().payload_type, 13);
}

TEST_F(EmbeddedSilence, DeclinedAnnexesKeepSilenceDescriptorsAway) {
  const auto nothing = [](MediaConfig&) {};
  const auto no_annexes = [](MediaConfig& config) {
    config.SetG729AnnexBFlag(false);
    config.SetG723AnnexAFlag(false);
  };
  const std::vector<std::uint8_t> g729_sid(2, 1), g723_sid = {2, 1, 1, 1}, speech(10, 0);
  const Leg a = NewLegWith("G729", 18, nothing), b = NewLegWith("G729", 18, no_annexes);
  ASSERT_TRUE(Join(a, b));
  EXPECT_FALSE(Through(a, b, 18, g729_sid));
  EXPECT_TRUE(Through(a, b, 18, speech));
  EXPECT_TRUE(Through(b, a, 18, g729_sid));
  const Leg c = NewLegWith("G723", 4, nothing), d = NewLegWith("G723", 4, no_annexes);
  ASSERT_TRUE(Join(c, d));
  EXPECT_FALSE(Through(c, d, 4, g723_sid));
  EXPECT_TRUE(Through(d, c, 4, g723_sid));
  for (const std::string& message : logger().Messages(kelvaro::INFO_LOG_LEVEL)) {
    EXPECT_THAT(message, testing::Not(testing::HasSubstr("does not support")));
  }
}

TEST_F(EmbeddedSilence, AnOfferWithoutAnnexBThatIsAnsweredWithItHasNone) {
  // The far end says nothing of annexes, which is a yes; our side has said no.
  Leg declining = NewLeg(session_, "G729", 18);
  declining.local.SetG729AnnexBFlag(false);
  ASSERT_TRUE(declining.connection->GetLocalOffer(declining.local));
  MediaConfig remote = RemoteOf(declining, "G729", 18);
  remote.SetG729AnnexBFlag(true);
  ASSERT_TRUE(declining.connection->SetRemoteAnswer(remote));
  const Leg a = NewLeg(session_, "G729", 18);
  ASSERT_TRUE(Join(a, declining));
  EXPECT_FALSE(Through(a, declining, 18, {1, 1}));
}

TEST_F(EmbeddedSilence, DynamicPayloadTypesMayDifferBetweenTheDirections) {
  Leg a;
  a.connection = NewConnection(session_);
  a.local.SetAsymmetricDynamicPayload();
  AddCodec(a.local, "iLBC", 96);
  a.local.SetRfc2833Flag(true);
  a.local.SetRfc2833Payload(101);
  ASSERT_TRUE(a.connection->GetLocalOffer(a.local));
  MediaConfig remote = RemoteOf(a, "iLBC", 110);
  remote.SetRfc2833Flag(true);
  remote.SetRfc2833Payload(96);
  ASSERT_TRUE(a.connection->SetRemoteAnswer(remote));
  const Leg b = NewLegWith("iLBC", 97, [](MediaConfig& config) {
    config.SetRfc2833Flag(true);
    config.SetRfc2833Payload(98);
  });
  ASSERT_TRUE(Join(a, b));
  EXPECT_EQ(Through(a, b, 96, std::vector<std::uint8_t>(50)).value().payload_type, 97);
  EXPECT_EQ(Through(a, b, 101, {1, 10, 0, 160}).value().payload_type, 98);
  EXPECT_EQ(Through(b, a, 97, std::vector<std::uint8_t>(50)).value().payload_type, 110);
  EXPECT_EQ(Through(b, a, 98, {1, 10, 0, 160}).value().payload_type, 96);
}

}  // namespace
