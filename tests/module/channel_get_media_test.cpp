#include <boost/uuid/string_generator.hpp>

#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaCodec;
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

/// What a codec of the record says, in one line.
std::string text_of(const MediaCodec& codec) {
  return codec.name + "/" + std::to_string(codec.payload_type) + " " + std::to_string(codec.packet_time_ms) + "ms " +
         std::to_string(codec.sample_rate) + "Hz " + std::to_string(codec.bit_rate) + "bps";
}

std::vector<std::string> codecs_of(const MediaConfig& config) {
  std::vector<std::string> texts;
  for (const MediaCodec& codec : config.GetCodecs()) texts.push_back(text_of(codec));
  return texts;
}

class ChannelGetMedia : public MediaCallbacks {
 protected:
  explicit ChannelGetMedia(const test_support::ScriptedOptions& options = {}) : MediaCallbacks(options) {
    leg_.Create();
    log_.Clear();
    servers_.ForgetCalls();
  }

  /// The record that an offer for this leg carries to the media server.
  MediaConfig Offer(LocalMedia media = {}) {
    EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(ScriptedOperation::kGetLocalOffer);
  }
  MediaConfig Answer(LocalMedia media) {
    media.state = SWITCH_SDP_OFFER_RECEIVED;
    EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(ScriptedOperation::kGetLocalAnswer);
  }
  MediaConfig AnswerWith(switch_codec_t codec, int support_g729_annexb = 1) {
    LocalMedia media;
    media.answer_codec = &codec;
    media.support_g729_annexb = support_g729_annexb;
    return Answer(media);
  }
  std::vector<test_support::LogLine> GetMediaLines() const { return LinesOf({"channel_get_media.cpp"}); }
  std::vector<test_support::LogLine> LookupLines() const { return LinesOf({"leg_lookup.cpp"}); }

  static void ExpectUntouched(const LocalMedia& media) {
    EXPECT_EQ(media.out_port, 0);
    EXPECT_STREQ(media.ip_addr, "untouched");
  }

  MediaLeg leg_;
};

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

TEST_F(ChannelGetMedia, OffersEveryCodecInOrderUnderItsOwnPayloadType) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const auto amr = implementation("AMR", 98, 60, 8000, 12200);
  auto odd = implementation("PCMU", 0, 0, 8000, 64000);
  odd.microseconds_per_packet = 22500;
  switch_codec_t answer = negotiated(pcmu, 0);
  LocalMedia media;
  media.codecs = {&amr, &pcmu, &odd, &pcmu};
  media.answer_codec = &answer;  // plays no part in an offer
  const MediaConfig config = Offer(media);
  EXPECT_THAT(codecs_of(config), ElementsAre("AMR/98 60ms 8000Hz 12200bps", "PCMU/0 20ms 8000Hz 64000bps",
                                             "PCMU/0 22ms 8000Hz 64000bps", "PCMU/0 20ms 8000Hz 64000bps"));
  EXPECT_FALSE(config.GetAMROctetAlign());
  EXPECT_FALSE(config.GetAutoLocalPortRenew());
  for (const MediaCodec& codec : config.GetCodecs()) {
    EXPECT_FALSE(codec.video);
    EXPECT_EQ(codec.frame_width, 0);
    EXPECT_EQ(codec.frame_height, 0);
    EXPECT_EQ(codec.frame_rate, 0);
    EXPECT_FALSE(codec.format_parameters);
    EXPECT_EQ(codec.channels, 0);
    EXPECT_EQ(codec.pixel_aspect_ratio, 1.0);
  }
}

TEST_F(ChannelGetMedia, SetsAnnexBOfAnOfferBothWays) {
  LocalMedia media;
  EXPECT_EQ(Offer(media).GetG729AnnexBFlag(), false);
  media.support_g729_annexb = 2;
  media.enable_auto_local_port_renew = SWITCH_TRUE;
  const MediaConfig config = Offer(media);
  EXPECT_EQ(config.GetG729AnnexBFlag(), true);
  EXPECT_FALSE(config.GetAutoLocalPortRenew());
}

TEST_F(ChannelGetMedia, ListsTheAnswerCodecFirstAndOnce) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const auto same_in_other_case = implementation("pcmu", 0, 20, 8000, 64000);
  const auto longer = implementation("PCMU", 0, 30, 8000, 64000);
  const auto faster = implementation("PCMU", 0, 20, 16000, 64000);
  const auto fatter = implementation("PCMU", 0, 20, 8000, 128000);
  const auto pcma = implementation("PCMA", 8, 20, 8000, 64000);
  switch_codec_t answer = negotiated(pcmu, 96);
  LocalMedia media;
  media.codecs = {&pcma, &pcmu, &longer, &same_in_other_case, &faster, &fatter};
  media.answer_codec = &answer;
  EXPECT_THAT(codecs_of(Answer(media)),
              ElementsAre("PCMU/96 20ms 8000Hz 64000bps", "PCMA/8 20ms 8000Hz 64000bps", "PCMU/0 30ms 8000Hz 64000bps",
                          "PCMU/0 20ms 16000Hz 64000bps", "PCMU/0 20ms 8000Hz 128000bps"));
}

TEST_F(ChannelGetMedia, AnswersWithTheListAloneWithoutAnAnswerCodec) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  LocalMedia media;
  media.codecs = {&pcmu};
  EXPECT_THAT(codecs_of(Answer(media)), ElementsAre("PCMU/0 20ms 8000Hz 64000bps"));

  switch_codec_t bare = {};
  media.answer_codec = &bare;
  const MediaConfig config = Answer(media);
  EXPECT_THAT(codecs_of(config), ElementsAre("PCMU/0 20ms 8000Hz 64000bps"));
  EXPECT_FALSE(config.GetG729AnnexBFlag());
}

TEST_F(ChannelGetMedia, RenewsTheLocalPortOfAnAnswerOnRequest) {
  LocalMedia media;
  EXPECT_EQ(Answer(media).GetAutoLocalPortRenew(), false);
  media.enable_auto_local_port_renew = SWITCH_TRUE;
  EXPECT_EQ(Answer(media).GetAutoLocalPortRenew(), true);
}

TEST_F(ChannelGetMedia, ReadsOctetAlignOfAnAmrAnswerFromTheOutgoingFmtp) {
  for (const char* name : {"AMR", "amr-wb"}) {
    const auto amr = implementation(name, 98, 20, 8000, 12200);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=0", "mode-set=7; octet-align=1")).GetAMROctetAlign(), true);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", "mode-set=7; octet-align=0")).GetAMROctetAlign(), false);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", "mode-set=7")).GetAMROctetAlign(), false);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", nullptr)).GetAMROctetAlign(), false);
  }
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  EXPECT_FALSE(AnswerWith(negotiated(pcmu, 0, nullptr, "octet-align=1")).GetAMROctetAlign());
}

TEST_F(ChannelGetMedia, OnlyEverClearsAnnexBOfAnAnswer) {
  const auto g729 = implementation("g729", 18, 20, 8000, 8000);
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18)).GetG729AnnexBFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexb=yes")).GetG729AnnexBFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexb=yes", "annexb=no")).GetG729AnnexBFlag());
  EXPECT_EQ(AnswerWith(negotiated(g729, 18, "x=1; ANNEXB=NO")).GetG729AnnexBFlag(), false);
  EXPECT_EQ(AnswerWith(negotiated(g729, 18, "annexb=yes"), 0).GetG729AnnexBFlag(), false);
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexa=no")).GetG723AnnexAFlag());
}

TEST_F(ChannelGetMedia, OnlyEverClearsAnnexAOfAnAnswer) {
  const auto g723 = implementation("G723", 4, 30, 8000, 6300);
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4), 0).GetG723AnnexAFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4, "annexa=yes"), 0).GetG723AnnexAFlag());
  EXPECT_EQ(AnswerWith(negotiated(g723, 4, "AnnexA=No"), 1).GetG723AnnexAFlag(), false);
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4, "annexb=no"), 0).GetG729AnnexBFlag());
}

TEST_F(ChannelGetMedia, TouchesNoAnnexOfOtherCodecs) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const MediaConfig config = AnswerWith(negotiated(pcmu, 0, "annexa=no;annexb=no"), 0);
  EXPECT_FALSE(config.GetG729AnnexBFlag());
  EXPECT_FALSE(config.GetG723AnnexAFlag());
}

TEST(AmrSuite, IsAmrAndAmrWideBandInAnyCase) {
  EXPECT_EQ(codec_belongs_to_amr_suite("AMR"), 1);
  EXPECT_EQ(codec_belongs_to_amr_suite("amr-wb"), 1);
  EXPECT_EQ(codec_belongs_to_amr_suite("AMR-WB+"), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite("PCMU"), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite(""), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite(nullptr), 0);
}

TEST(AmrOctetAlign, IsTheFirstValueOfThatName) {
  EXPECT_EQ(amr_codec_is_octet_align(nullptr), 0);
  EXPECT_EQ(amr_codec_is_octet_align(""), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("OCTET-ALIGN=2"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("mode-set=7;   octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=yes"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=0;octet-align=1"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=1;octet-align=0"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("not-octet-align=1"), 0);
  EXPECT_EQ(amr_codec_is_octet_align(";;octet-align=1"), 1);
}

TEST(AmrOctetAlign, LooksAtTenParameters) {
  EXPECT_EQ(amr_codec_is_octet_align("a=1;b=1;c=1;d=1;e=1;f=1;g=1;h=1;i=1;octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("a=1;b=1;c=1;d=1;e=1;f=1;g=1;h=1;i=1;j=1;octet-align=1"), 0);
}

}  // namespace
}  // namespace module_test
