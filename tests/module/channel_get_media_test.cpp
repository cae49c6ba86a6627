#include <boost/uuid/string_generator.hpp>

#include "module/channel_get_media_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaConfig;
using kvx_media_server::uuid_to_text;
using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const char kUnusedUuid[] = "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30";

class ChannelGetMediaBehindNat : public ChannelGetMedia {
 protected:
  ChannelGetMediaBehindNat() : ChannelGetMedia(Options()) {}

  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.public_address = "203.0.113.7";
    return options;
  }
};

using ChannelGetMediaDeathTest = ChannelGetMedia;

TEST_F(ChannelGetMediaDeathTest, TakesNoNullConnection) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  LocalMedia media;
  EXPECT_DEATH(
      channel_get_media(nullptr, nullptr, 0, nullptr, SWITCH_FALSE, 0, 0, 0, media.ip_addr, media.ip_addr_size,
                        &media.out_port, &media.crypto, SWITCH_FALSE, SWITCH_SDP_STATE_UNKNOWN, 0, 0, 0, 0,
                        SWITCH_FALSE, SWITCH_FALSE, 0, SWITCH_FALSE, 0),
      "switch_status_t channel_get_media\\(switch_media_connection_t ?\\*, const switch_codec_implementation_t "
      "?\\*\\*, "
      "int, switch_codec_t ?\\*, switch_bool_t, int, switch_payload_t, int, char ?\\*, int, switch_port_t ?\\*, "
      "switch_core_crypto_setting ?\\*, switch_bool_t, switch_sdp_negotiation_state_t, uint8_t, uint8_t, uint8_t, int, "
      "switch_bool_t, switch_bool_t, uint32_t, switch_bool_t, int\\).*mc != __null");
}

TEST_F(ChannelGetMedia, ReturnsAddressPortAndRtcpPort) {
  LocalMedia media;
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(media.ip_addr, servers_.Address().c_str());
  EXPECT_EQ(media.out_port, servers_.PortOf(servers_.LastEndpoint()));
  EXPECT_NE(media.out_port, 0);
  EXPECT_EQ(leg_.Get("local_rtcp_port"), std::to_string(media.out_port + 1));
  EXPECT_THAT(GetMediaLines(), ElementsAre(debug_line("Initializing MediaConfig\n"),
                                           debug_line("IP address=" + servers_.Address() +
                                                      ", Port=" + std::to_string(media.out_port) + "\n")));
}

TEST_F(ChannelGetMediaBehindNat, JoinsPrivateAndPublicAddressByAComma) {
  LocalMedia media;
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(std::string(media.ip_addr), servers_.Address() + ",203.0.113.7");
}

TEST_F(ChannelGetMediaBehindNat, SucceedsWithACutAddressAndSaysSo) {
  const std::string whole = servers_.Address() + ",203.0.113.7";
  LocalMedia media;
  media.ip_addr_size = static_cast<int>(whole.size());
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(std::string(media.ip_addr), whole.substr(0, whole.size() - 1));
  EXPECT_NE(media.out_port, 0);
  EXPECT_THAT(GetMediaLines(), Contains(error_line("Internal Error: IP string size exceeds buffer limit\n")));

  log_.Clear();
  media.ip_addr_size = static_cast<int>(whole.size()) + 1;
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(std::string(media.ip_addr), whole);
  EXPECT_THAT(GetMediaLines(), Not(Contains(error_line("Internal Error: IP string size exceeds buffer limit\n"))));
}

TEST_F(ChannelGetMedia, PrintsAnAddressAsItStands) {
  servers_.Answer(ScriptedOperation::kGetLocalOffer, [](MediaConfig& config) { config.SetIPAddress("fe80::1%eth0"); });
  LocalMedia media;
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(media.ip_addr, "fe80::1%eth0");
}

TEST_F(ChannelGetMedia, ReturnsAnEmptyAddressWhenTheMediaServerGivesNone) {
  servers_.Answer(ScriptedOperation::kGetLocalOffer, [](MediaConfig& config) { config.SetIPAddress(nullptr); });
  LocalMedia media;
  ASSERT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(media.ip_addr, "");
}

TEST_F(ChannelGetMedia, MakesTheSessionKnownByItsMediaServersAddressInUpperCase) {
  servers_.Answer(ScriptedOperation::kGetLocalOffer, [](MediaConfig& config) { config.SetIPAddress("2001:db8::ab"); });
  std::vector<boost::uuids::uuid> sessions;
  mod_globals->GetMSTable()->ListAllMatchingMSUuid(sessions, "2001:DB8::AB");
  EXPECT_THAT(sessions, IsEmpty());
  Offer();
  mod_globals->GetMSTable()->ListAllMatchingMSUuid(sessions, "2001:DB8::AB");
  EXPECT_THAT(sessions, ElementsAre(leg_.MediaSession()));
}

TEST_F(ChannelGetMedia, FailsAndCleansUpForAnUnknownLeg) {
  Forget(leg_);
  LocalMedia media;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find FS UUID " + leg_.Uuid() + " in FS UUID table\n")));
  EXPECT_TRUE(log_.Has(nothing_to_clean_up(leg_.Uuid())));
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, FailsWithoutCleaningUpWhenTheMediaSessionIsGone) {
  Forget(leg_);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(leg_.Uuid(), boost::uuids::string_generator()(kUnusedUuid));
  LocalMedia media;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find Media Session in (fsuuid=" + leg_.Uuid() +
                                                    "; msuuid=" + kUnusedUuid + ") in media sessions Table\n")));
  EXPECT_TRUE(leg_.Known());
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, FailsAndCleansUpWithoutAConnection) {
  MediaLeg other;
  other.Connection()->private_info = other.Session();
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(other.Uuid(), leg_.MediaSession());
  LocalMedia media;
  EXPECT_EQ(other.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find Network connection (fsuuid=" + other.Uuid() +
                                                    "; msuuid=" + uuid_to_text(leg_.MediaSession()) +
                                                    ") within Media Session Network connection objects\n")));
  EXPECT_FALSE(other.Known());
  EXPECT_TRUE(leg_.Known());
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, RefusesASecondDescriptionWhileTheOfferIsOutAndCleansUp) {
  LocalMedia media;
  media.state = SWITCH_SDP_OFFER_SENT;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(GetMediaLines(),
              ElementsAre(debug_line("Initializing MediaConfig\n"), error_line("Invalid direction.\n")));
  EXPECT_FALSE(leg_.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
  EXPECT_THAT(servers_.Operations(), Not(Contains(ScriptedOperation::kGetLocalOffer)));
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, OffersInEveryStateButThoseOfAnOpenOffer) {
  for (const auto state :
       {SWITCH_SDP_STATE_UNKNOWN, SWITCH_SDP_ANSWER_RECEIVED, SWITCH_SDP_ANSWER_SENT, SWITCH_SDP_COMPLETED}) {
    servers_.ForgetCalls();
    LocalMedia media;
    media.state = state;
    EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS) << state;
    EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kGetLocalOffer)) << state;
  }
  servers_.ForgetCalls();
  LocalMedia media;
  media.state = SWITCH_SDP_OFFER_RECEIVED;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kGetLocalAnswer));
}

TEST_F(ChannelGetMedia, FailsAndCleansUpWhenTheOfferFails) {
  servers_.Fail(ScriptedOperation::kGetLocalOffer);
  LocalMedia media;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(GetMediaLines(),
              ElementsAre(debug_line("Initializing MediaConfig\n"),
                          debug_line("ERROR - Unable to get local offer configuration for Network Connection.\n")));
  EXPECT_FALSE(leg_.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
  EXPECT_EQ(leg_.Get("local_rtcp_port"), "");
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, FailsWithoutCleaningUpWhenTheAnswerFails) {
  servers_.Fail(ScriptedOperation::kGetLocalAnswer);
  LocalMedia media;
  media.state = SWITCH_SDP_OFFER_RECEIVED;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_THAT(GetMediaLines(),
              ElementsAre(debug_line("Initializing MediaConfig\n"),
                          debug_line("ERROR - Unable to get local answer configuration for Network Connection.\n")));
  EXPECT_TRUE(leg_.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(leg_.Get("local_rtcp_port"), "");
  ExpectUntouched(media);
}

TEST_F(ChannelGetMedia, CleansUpThePartnerToo) {
  MediaLeg partner;
  partner.BondWith(leg_);
  ASSERT_EQ(partner.Create(), SWITCH_STATUS_SUCCESS);
  servers_.Fail(ScriptedOperation::kGetLocalOffer);
  LocalMedia media;
  EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_FALSE(leg_.Known());
  EXPECT_FALSE(partner.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
}

TEST_F(ChannelGetMedia, PassesFlagsOnBothWays) {
  MediaConfig config = Offer();
  EXPECT_EQ(config.GetRfc2833Flag(), false);
  EXPECT_EQ(config.GetSilenceSuppressionFlag(), false);
  EXPECT_EQ(config.GetCngSuppressionFlag(), false);
  EXPECT_EQ(config.GetSidFlag(), false);
  EXPECT_FALSE(config.GetUdpPassThru());
  EXPECT_FALSE(config.GetAsymmetricDynamicPayload());
  EXPECT_FALSE(config.GetCryptoMandFlag());

  LocalMedia media;
  media.rfc2833flag = 2;
  media.rfc2833payload = 96;
  media.enable_silence_supp = 2;
  media.enable_cng_supp = SWITCH_TRUE;
  media.enable_sid = SWITCH_TRUE;
  media.enable_udp_passthru = SWITCH_TRUE;
  media.enable_asymmetric_dynamic_payload = 2;
  config = Offer(media);
  EXPECT_EQ(config.GetRfc2833Flag(), true);
  EXPECT_EQ(config.GetRfc2833Payload(), 96);
  EXPECT_EQ(config.GetSilenceSuppressionFlag(), true);
  EXPECT_EQ(config.GetCngSuppressionFlag(), true);
  EXPECT_EQ(config.GetSidFlag(), true);
  EXPECT_TRUE(config.GetUdpPassThru());
  EXPECT_TRUE(config.GetAsymmetricDynamicPayload());
}

TEST_F(ChannelGetMedia, UsesOneHopCountForBothFamilies) {
  LocalMedia media;
  media.ipv4_tos = 184;
  media.ipv6_tc = 136;
  media.hop = 42;
  const MediaConfig config = Offer(media);
  EXPECT_EQ(config.GetIpv4Tos(), 184);
  EXPECT_EQ(config.GetIpv6TrafficClass(), 136);
  EXPECT_EQ(config.GetIpv4TimeToLive(), 42);
  EXPECT_EQ(config.GetIpv6HopLimit(), 42);
}

TEST_F(ChannelGetMedia, SetsThePendingTimeoutOnlyFromANumberThatIsNotZero) {
  LocalMedia media;
  media.rtp_timeout_sec = 120;
  EXPECT_EQ(Offer(media).GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE), 120u);
  EXPECT_FALSE(Offer(media).GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING));
  for (const char* text : {"0", "soon"}) {
    leg_.Set("bridge_answer_timeout", text);
    EXPECT_FALSE(Offer(media).GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING)) << text;
  }
  leg_.Set("bridge_answer_timeout", "30");
  EXPECT_EQ(Offer(media).GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING), 30u);
  leg_.Set("bridge_answer_timeout", "-5");
  EXPECT_EQ(Offer(media).GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING), static_cast<uint32_t>(-5));
}

TEST_F(ChannelGetMedia, LetsTheVariableOnlyForbidInbandDtmfConversion) {
  LocalMedia off, on;
  on.default_inband_to_rfc2833_conversion = SWITCH_TRUE;
  EXPECT_EQ(Offer(off).GetAllowInbandTo2833Conversion(), false);
  EXPECT_EQ(Offer(on).GetAllowInbandTo2833Conversion(), true);
  for (const char* text : {"true", "maybe"}) {
    leg_.Set("rtp_allow_inband_to_2833_dtmf_conversion", text);
    EXPECT_EQ(Offer(off).GetAllowInbandTo2833Conversion(), false) << text;
    EXPECT_EQ(Offer(on).GetAllowInbandTo2833Conversion(), true) << text;
  }
  leg_.Set("rtp_allow_inband_to_2833_dtmf_conversion", "false");
  EXPECT_EQ(Offer(on).GetAllowInbandTo2833Conversion(), false);
}

TEST_F(ChannelGetMedia, PassesTheFaxMaskAsItStands) {
  EXPECT_STREQ(Offer().GetFaxModeAutoSwitchMask(), nullptr);
  leg_.Set("rtp_fax_mode_auto_switch_mask", " cng|ced ");
  EXPECT_STREQ(Offer().GetFaxModeAutoSwitchMask(), " cng|ced ");
}

TEST_F(ChannelGetMedia, ResetsOnANewSsrcForAnyTextThatIsNotFalse) {
  EXPECT_EQ(Offer().GetResetRtpOnRemoteSSRCChange(), false);
  leg_.Set("reset_rtp_on_remote_ssrc_change", "yes");
  EXPECT_EQ(Offer().GetResetRtpOnRemoteSSRCChange(), true);
  leg_.Set("reset_rtp_on_remote_ssrc_change", "whenever");
  EXPECT_EQ(Offer().GetResetRtpOnRemoteSSRCChange(), true);
  leg_.Set("reset_rtp_on_remote_ssrc_change", "false");
  EXPECT_EQ(Offer().GetResetRtpOnRemoteSSRCChange(), false);
}

TEST_F(ChannelGetMedia, MapsCryptoTypesToSuites) {
  LocalMedia media;
  for (unsigned i = 0; i < sizeof(media.crypto.crypto_raw_key); ++i) media.crypto.crypto_raw_key[i] = 200 + i;
  media.crypto.crypto_lifetime_exponent = 20;
  media.crypto.crypto_mki_length_str = "1:4";
  const std::pair<int, const char*> suites[] = {{1, "AES_CM_128_HMAC_SHA1_80"}, {2, "AES_CM_128_HMAC_SHA1_32"}};
  for (const auto& suite : suites) {
    media.crypto.crypto_type = suite.first;
    const MediaConfig config = Offer(media);
    ASSERT_TRUE(config.GetCrypto());
    EXPECT_EQ(config.GetCrypto()->suite, suite.second);
    EXPECT_THAT(config.GetCrypto()->key, testing::ElementsAreArray(media.crypto.crypto_raw_key, 30));
    EXPECT_EQ(config.GetCrypto()->lifetime_exponent, 20);
    EXPECT_EQ(config.GetCrypto()->mki_length, "1:4");
    EXPECT_FALSE(config.GetCryptoMandFlag());
  }
}

TEST_F(ChannelGetMedia, SetsTheMandatoryFlagEvenWithoutCrypto) {
  for (const int type : {0, 3, -1}) {
    LocalMedia media;
    media.crypto.crypto_type = type;
    media.crypto.crypto_lifetime_exponent = 20;
    media.crypto.crypto_mki_length_str = "1:4";
    media.crypto.crypto_mandatory = 1;
    const MediaConfig config = Offer(media);
    ASSERT_TRUE(config.GetCrypto());
    EXPECT_EQ(config.GetCrypto()->suite, "NO_CRYPTO");
    EXPECT_THAT(config.GetCrypto()->key, IsEmpty());
    EXPECT_EQ(config.GetCrypto()->lifetime_exponent, 0);
    EXPECT_FALSE(config.GetCrypto()->mki_length);
    EXPECT_EQ(config.GetCryptoMandFlag(), true);
  }
}

TEST_F(ChannelGetMedia, SetsTheJitterBufferFromTheLegsVariables) {
  leg_.Set("jitterbuffer_mode", "adaptive");
  leg_.Set("jitterbuffer_msec", "100:40:20");
  leg_.Set("video_jitterbuffer_mode", "static");
  const MediaConfig config = Offer();
  EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_ADAPTIVE);
  EXPECT_EQ(config.GetJitterMaxPdvMs(), 100);
  EXPECT_STREQ(config.GetVideoJitterBufferType(), "static");
}

}  // namespace
}  // namespace module_test
