#include "module/channel_set_media_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaConfig;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class T38Passthrough : public ChannelSetMedia {
 protected:
  T38Passthrough() {
    media_.state = SWITCH_SDP_ANSWER_RECEIVED;
    media_.enable_udp_passthru = SWITCH_TRUE;
    peer_.BondWith(leg_);
  }

  void CreatePeer() {
    ASSERT_EQ(peer_.Create(), SWITCH_STATUS_SUCCESS);
    log_.Clear();
    servers_.ForgetCalls();
  }

  RemoteMedia media_;
  MediaLeg peer_;
};

TEST_F(T38Passthrough, RelaysToTheImageStreamOfThePeer) {
  CreatePeer();
  servers_.Answer(ScriptedOperation::kGetRemoteImageConfig, [](MediaConfig& config) {
    config.SetIPAddress("192.0.2.9");
    config.SetRtpPort(5000);
    config.SetIpv4Tos(1);
    config.SetIpv6TrafficClass(2);
    config.SetIpv4TimeToLive(3);
    config.SetIpv6HopLimit(4);
  });
  servers_.Answer(ScriptedOperation::kGetLocalImageConfig, [](MediaConfig& config) {
    config.SetIPAddress("10.0.0.9");
    config.SetRtpPort(6000);
    config.SetIpv4Tos(11);
    config.SetIpv6TrafficClass(12);
    config.SetIpv4TimeToLive(13);
    config.SetIpv6HopLimit(14);
  });
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  switch_codec_t codec = negotiated(pcmu, 0);
  switch_core_crypto_setting crypto = {};
  media_.codec = &codec;
  media_.crypto = &crypto;
  media_.rfc2833flag = 1;
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_SUCCESS);

  EXPECT_THAT(servers_.Operations(),
              ElementsAre(ScriptedOperation::kGetRemoteImageConfig, ScriptedOperation::kGetLocalImageConfig,
                          ScriptedOperation::kSetRemoteAnswer));
  const MediaConfig config = LastConfig(ScriptedOperation::kSetRemoteAnswer);
  EXPECT_TRUE(config.GetUdpPassThru());
  ASSERT_TRUE(config.GetUdpPassThruPeer());
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_port, 5000);
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_ip_address, "192.0.2.9");
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_port, 6000);
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_ip_address, "10.0.0.9");
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_tos, 11);
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_traffic_class, 12);
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_time_to_live, 13);
  EXPECT_EQ(config.GetUdpPassThruPeer()->local_hop_limit, 14);
  EXPECT_STREQ(config.GetIPAddress(), "192.0.2.7");
  EXPECT_EQ(config.GetRtpPort(), 4000);
  EXPECT_THAT(config.GetCodecs(), IsEmpty());
  EXPECT_FALSE(config.GetRtcpFlag());
  EXPECT_STREQ(config.GetCname(), nullptr);
  EXPECT_FALSE(config.GetRfc2833Flag());
  EXPECT_FALSE(config.GetCrypto());
  EXPECT_THAT(SetMediaLines(), IsEmpty());
}

TEST_F(T38Passthrough, DissolvesTheAudioJoinFirst) {
  CreatePeer();
  ASSERT_EQ(leg_.Bridge(), SWITCH_STATUS_SUCCESS);
  servers_.ForgetCalls();
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(servers_.Operations().front(), ScriptedOperation::kUnjoin);
  EXPECT_FALSE(leg_.Node()->GetPeer());
}

TEST_F(T38Passthrough, GoesOnWhateverBecomesOfTheAudioJoin) {
  CreatePeer();
  ASSERT_EQ(leg_.Bridge(), SWITCH_STATUS_SUCCESS);
  servers_.Fail(ScriptedOperation::kUnjoin);
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_SUCCESS);
}

TEST_F(T38Passthrough, AcceptsAPeerWithoutImageStream) {
  CreatePeer();
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_SUCCESS);
  const MediaConfig config = LastConfig(ScriptedOperation::kSetRemoteAnswer);
  ASSERT_TRUE(config.GetUdpPassThruPeer());
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_port, 0);
  EXPECT_FALSE(config.GetUdpPassThruPeer()->remote_ip_address);
}

TEST_F(T38Passthrough, FailsWithoutAPartner) {
  leg_.Set(SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_FALSE);
  EXPECT_THAT(SetMediaLines(), ElementsAre(error_line("Can't find peer session to setup T38 passthrough\n")));
  ExpectInPlace();
}

TEST_F(T38Passthrough, FailsForAnUnknownPartner) {
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_FALSE);
  EXPECT_THAT(SetMediaLines(), ElementsAre(error_line("Failed to locate reference leg for T38 passthrough!\n")));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
  ExpectInPlace();
  peer_.End();  // would wait for ever if the partner were still locked
}

TEST_F(T38Passthrough, FailsWhenThePartnerHasNoConnectionInThisSession) {
  MediaLeg& elsewhere = peer_;
  leg_.Set(SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  elsewhere.Set(SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  CreatePeer();
  elsewhere.BondWith(leg_);
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_FALSE);
  EXPECT_THAT(SetMediaLines(), ElementsAre(error_line("Failed to locate reference leg for T38 passthrough!\n")));
  EXPECT_THAT(servers_.Operations(), Not(Contains(ScriptedOperation::kSetRemoteAnswer)));
  ExpectInPlace();
}

TEST_F(T38Passthrough, FailsWithoutCleaningUpWhenTheAnswerIsRefused) {
  CreatePeer();
  servers_.Fail(ScriptedOperation::kSetRemoteAnswer);
  EXPECT_EQ(leg_.SetMedia(media_), SWITCH_STATUS_FALSE);
  EXPECT_THAT(SetMediaLines(), ElementsAre(error_line("Failed to set image remote answer!\n")));
  ExpectInPlace();
  EXPECT_TRUE(peer_.Known());
}

}  // namespace
}  // namespace module_test
