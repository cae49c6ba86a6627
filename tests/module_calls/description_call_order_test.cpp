#include <switch.h>

#include "call_order_fixture.h"

namespace module_calls {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

switch_codec_implementation_t implementation(const char* name, switch_payload_t ianacode, int bit_rate) {
  switch_codec_implementation_t made = {};
  made.iananame = const_cast<char*>(name);
  made.ianacode = ianacode;
  made.microseconds_per_packet = 20000;
  made.samples_per_second = 8000;
  made.bits_per_second = bit_rate;
  return made;
}

switch_codec_t negotiated(const switch_codec_implementation_t& implementation, switch_payload_t payload,
                          const char* fmtp_in, const char* fmtp_out) {
  switch_codec_t made = {};
  made.implementation = &implementation;
  made.agreed_pt = payload;
  made.fmtp_in = const_cast<char*>(fmtp_in);
  made.fmtp_out = const_cast<char*>(fmtp_out);
  return made;
}

class DescriptionCallOrder : public CallOrder {
 protected:
  DescriptionCallOrder() {
    leg_.Connection().local = {"10.0.0.5", nullptr, 16384, 16385, 1, 2, 3, 4};
    peer_.Connection().local = {"10.0.0.6", nullptr, 16386, 0, 11, 12, 13, 14};
    peer_.Connection().remote = {"192.0.2.6", nullptr, 5004, 0, 0, 0, 0, 0};
    everything_.crypto_type = 2;
    everything_.crypto_mandatory = 1;
    everything_.crypto_lifetime_exponent = 20;
    everything_.crypto_mki_length_str = "1:4";
  }

  Calls GetMedia(switch_sdp_negotiation_state_t state, bool on, switch_codec_t* answer_codec) {
    const switch_codec_implementation_t* codecs[] = {&pcmu_, &amr_};
    char address[64];
    switch_port_t port = 0;
    switch_core_crypto_setting nothing = {};
    const switch_bool_t flag = on ? SWITCH_TRUE : SWITCH_FALSE;
    calls().clear();
    EXPECT_EQ(channel_get_media(leg_.Mc(), codecs, 2, answer_codec, flag, on, 101, on, address, sizeof(address), &port,
                                on ? &everything_ : &nothing, flag, state, 184, 136, 64, on, flag, flag, 120, flag, on),
              SWITCH_STATUS_SUCCESS);
    return calls();
  }
  Calls SetMedia(switch_sdp_negotiation_state_t state, bool on, switch_codec_t* codec, switch_bool_t passthru) {
    const switch_bool_t flag = on ? SWITCH_TRUE : SWITCH_FALSE;
    calls().clear();
    EXPECT_EQ(channel_set_media(leg_.Mc(), "192.0.2.5", 4000, on ? 4711 : 0, "call", codec, on, 101, on,
                                on ? &everything_ : nullptr, passthru, state, flag, flag, flag),
              SWITCH_STATUS_SUCCESS);
    return calls();
  }

  void SetEveryVariable() {
    leg_.Set("bridge_answer_timeout", "30");
    leg_.Set("rtp_fax_mode_auto_switch_mask", "ced");
    leg_.Set("reset_rtp_on_remote_ssrc_change", "yes");
    leg_.Set("jitterbuffer_mode", "adaptive");
    leg_.Set("jitterbuffer_msec", "100:40:20");
    leg_.Set("video_jitterbuffer_mode", "adaptive");
    leg_.Set("video_jitterbuffer_msec", "60:30");
  }

  /// What the far end's offer and answer have in common after the codec, as far as it depends on no codec.
  Calls RemoteSettings(bool on) const {
    const std::string flag = on ? "(true)" : "(false)";
    return {"SetRtcpFlag(true)",
            on ? "SetRtcpPort(4711)" : "SetRtcpPort(4001)",
            "SetCname(call@" + leg_.Uuid() + ")",
            "SetRfc2833Flag" + flag,
            "SetRfc2833Payload(101)",
            "SetSilenceSuppressionFlag" + flag,
            "SetCngSuppressionFlag" + flag,
            "SetSidFlag" + flag};
  }

  switch_codec_implementation_t pcmu_ = implementation("PCMU", 0, 64000);
  switch_codec_implementation_t amr_ = implementation("AMR", 98, 12200);
  switch_codec_implementation_t g729_ = implementation("G729", 18, 8000);
  switch_codec_implementation_t g723_ = implementation("G723", 4, 6300);
  switch_core_crypto_setting everything_ = {};
};

/// What an offer and an answer of ours have in common, with every argument on and every variable set.
const Calls kLocalSettingsOn = {"SetRfc2833Flag(true)",
                                "SetRfc2833Payload(101)",
                                "SetSilenceSuppressionFlag(true)",
                                "SetCngSuppressionFlag(true)",
                                "SetSidFlag(true)",
                                "SetIpv4Tos(184)",
                                "SetIpv6TrafficClass(136)",
                                "SetIpv4TimeToLive(64)",
                                "SetIpv6HopLimit(64)",
                                "SetRtpTimeoutSec(INACTIVE, 120)",
                                "SetRtpTimeoutSec(PENDING, 30)",
                                "SetAllowInbandTo2833Conversion(true)",
                                "SetFaxModeAutoSwitchMask(ced)",
                                "SetResetRtpOnRemoteSSRCChange(true)",
                                "SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)",
                                "SetCryptoMandFlag(true)",
                                "SetUdpPassThru()",
                                "SetAsymmetricDynamicPayload()",
                                "SetJitterMode(adaptive)",
                                "SetJitterInitialDelayMs(40)",
                                "SetJitterMinDelayMs(20)",
                                "SetJitterMaxPdvMs(100)",
                                "SetVideoJitterBufferType(adaptive)",
                                "SetVideoJitterBufferInitialDelayMs(60)",
                                "SetVideoJitterBufferMinDelayMs(30)"};

/// The same with everything off and nothing set.
const Calls kLocalSettingsOff = {"SetRfc2833Flag(false)",
                                 "SetRfc2833Payload(101)",
                                 "SetSilenceSuppressionFlag(false)",
                                 "SetCngSuppressionFlag(false)",
                                 "SetSidFlag(false)",
                                 "SetIpv4Tos(184)",
                                 "SetIpv6TrafficClass(136)",
                                 "SetIpv4TimeToLive(64)",
                                 "SetIpv6HopLimit(64)",
                                 "SetRtpTimeoutSec(INACTIVE, 120)",
                                 "SetAllowInbandTo2833Conversion(false)",
                                 "SetResetRtpOnRemoteSSRCChange(false)",
                                 "SetCrypto(NO_CRYPTO, null, 0, 0, null)"};

const char kAddPcmu[] = "AddCodec(PCMU, 0, 20, 8000, 64000, false, 0, 0, 0, null, 0, 1)";
const char kAddAmr[] = "AddCodec(AMR, 98, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)";

TEST_F(DescriptionCallOrder, OfLocalOfferWithEverythingOn) {
  SetEveryVariable();
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_STATE_UNKNOWN, true, nullptr),
      ElementsAreArray(kLocalSettingsOn + Calls{kAddPcmu, kAddAmr, "SetG729AnnexBFlag(true)", "GetLocalOffer()"}));
}

TEST_F(DescriptionCallOrder, OfLocalOfferWithEverythingOff) {
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_COMPLETED, false, nullptr),
      ElementsAreArray(kLocalSettingsOff + Calls{kAddPcmu, kAddAmr, "SetG729AnnexBFlag(false)", "GetLocalOffer()"}));
}

TEST_F(DescriptionCallOrder, OfLocalAnswerWithEverythingOn) {
  SetEveryVariable();
  switch_codec_t amr = negotiated(amr_, 112, nullptr, "octet-align=1");
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_OFFER_RECEIVED, true, &amr),
      ElementsAreArray(kLocalSettingsOn + Calls{"AddCodec(AMR, 112, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)",
                                                "SetAMROctetAlign(true)", kAddPcmu, "SetAutoLocalPortRenew(true)",
                                                "GetLocalAnswer()"}));
}

TEST_F(DescriptionCallOrder, OfLocalAnswerWithEverythingOff) {
  switch_codec_t amr = negotiated(amr_, 112, nullptr, nullptr);
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_OFFER_RECEIVED, false, &amr),
      ElementsAreArray(kLocalSettingsOff + Calls{"AddCodec(AMR, 112, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)",
                                                 "SetAMROctetAlign(false)", kAddPcmu, "SetAutoLocalPortRenew(false)",
                                                 "GetLocalAnswer()"}));
}

TEST_F(DescriptionCallOrder, OfLocalAnswerWithADeclinedAnnex) {
  switch_codec_t g729 = negotiated(g729_, 18, "annexb=no", nullptr);
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_OFFER_RECEIVED, false, &g729),
      ElementsAreArray(kLocalSettingsOff + Calls{"AddCodec(G729, 18, 20, 8000, 8000, false, 0, 0, 0, null, 0, 1)",
                                                 "SetG729AnnexBFlag(false)", kAddPcmu, kAddAmr,
                                                 "SetAutoLocalPortRenew(false)", "GetLocalAnswer()"}));
  switch_codec_t g723 = negotiated(g723_, 4, "annexa=no", nullptr);
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_OFFER_RECEIVED, false, &g723),
      ElementsAreArray(kLocalSettingsOff + Calls{"AddCodec(G723, 4, 20, 8000, 6300, false, 0, 0, 0, null, 0, 1)",
                                                 "SetG723AnnexAFlag(false)", kAddPcmu, kAddAmr,
                                                 "SetAutoLocalPortRenew(false)", "GetLocalAnswer()"}));
}

TEST_F(DescriptionCallOrder, OfRemoteOfferWithEverythingOn) {
  switch_codec_t amr = negotiated(amr_, 112, nullptr, "octet-align=1");
  EXPECT_THAT(
      SetMedia(SWITCH_SDP_OFFER_RECEIVED, true, &amr, SWITCH_TRUE),
      ElementsAreArray(Calls{"SetRemoteAddressDetection()", "SetUdpPassThru()", "SetIPAddress(192.0.2.5)",
                             "SetRtpPort(4000)", "AddCodec(AMR, 112, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)",
                             "SetAMROctetAlign(true)"} +
                       RemoteSettings(true) +
                       Calls{"SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)", "SetCryptoMandFlag(true)",
                             "SetRemoteOffer()"}));
}

TEST_F(DescriptionCallOrder, OfRemoteOfferWithEverythingOff) {
  EXPECT_THAT(SetMedia(SWITCH_SDP_ANSWER_SENT, false, nullptr, SWITCH_FALSE),
              ElementsAreArray(Calls{"SetIPAddress(192.0.2.5)", "SetRtpPort(4000)"} + RemoteSettings(false) +
                               Calls{"SetRemoteOffer()"}));
}

TEST_F(DescriptionCallOrder, OfRemoteOfferWithAndWithoutAnAnnex) {
  const std::pair<const char*, const char*> annexes[] = {{"annexa=no", "SetG723AnnexAFlag(false)"},
                                                         {"annexa=yes", "SetG723AnnexAFlag(true)"}};
  for (const auto& [fmtp_in, set] : annexes) {
    switch_codec_t g723 = negotiated(g723_, 112, fmtp_in, nullptr);
    EXPECT_THAT(SetMedia(SWITCH_SDP_OFFER_RECEIVED, false, &g723, SWITCH_FALSE),
                ElementsAreArray(Calls{"SetIPAddress(192.0.2.5)", "SetRtpPort(4000)",
                                       "AddCodec(G723, 112, 20, 8000, 6300, false, 0, 0, 0, null, 0, 1)"} +
                                 RemoteSettings(false) + Calls{set, "SetRemoteOffer()"}));
  }
}

TEST_F(DescriptionCallOrder, OfRemoteAnswerWithEverythingOn) {
  switch_codec_t g729 = negotiated(g729_, 112, nullptr, nullptr);
  EXPECT_THAT(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, true, &g729, SWITCH_FALSE),
              ElementsAreArray(Calls{"SetRemoteAddressDetection()", "SetIPAddress(192.0.2.5)", "SetRtpPort(4000)",
                                     "AddCodec(G729, 18, 20, 8000, 8000, false, 0, 0, 0, null, 0, 1)"} +
                               RemoteSettings(true) +
                               Calls{"SetG729AnnexBFlag(true)", "SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)",
                                     "SetCryptoMandFlag(true)", "SetRemoteAnswer()"}));
}

TEST_F(DescriptionCallOrder, OfRemoteAnswerWithEverythingOff) {
  switch_codec_t amr = negotiated(amr_, 112, nullptr, nullptr);
  EXPECT_THAT(
      SetMedia(SWITCH_SDP_ANSWER_RECEIVED, false, &amr, SWITCH_FALSE),
      ElementsAreArray(Calls{"SetIPAddress(192.0.2.5)", "SetRtpPort(4000)", kAddAmr, "SetAMROctetAlign(false)"} +
                       RemoteSettings(false) + Calls{"SetRemoteAnswer()"}));
}

TEST_F(DescriptionCallOrder, OfRemoteMediaWithKeysThatNeedNotBeUsed) {
  everything_.crypto_type = 1;
  everything_.crypto_mandatory = 0;
  const Calls expected =
      Calls{"SetRemoteAddressDetection()", "SetIPAddress(192.0.2.5)", "SetRtpPort(4000)"} + RemoteSettings(true);
  const Calls keys = {"SetCrypto(AES_CM_128_HMAC_SHA1_80, key, 30, 20, 1:4)"};
  EXPECT_EQ(SetMedia(SWITCH_SDP_OFFER_RECEIVED, true, nullptr, SWITCH_FALSE),
            expected + keys + Calls{"SetRemoteOffer()"});
  EXPECT_EQ(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, true, nullptr, SWITCH_FALSE),
            expected + keys + Calls{"SetRemoteAnswer()"});
}

TEST_F(DescriptionCallOrder, OfT38Passthrough) {
  ASSERT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, true, nullptr, SWITCH_TRUE),
              ElementsAre("SetRemoteAddressDetection()", "SetUdpPassThru()", "Unjoin(peer)", "GetRemoteImageConfig()",
                          "GetLocalImageConfig()", "SetUdpPassThruPeerRemotePort(5004)",
                          "SetUdpPassThruPeerRemoteIPAddress(192.0.2.6)", "SetUdpPassThruPeerLocalPort(16386)",
                          "SetUdpPassThruPeerLocalIPAddress(10.0.0.6)", "SetUdpPassThruPeerLocalTos(11)",
                          "SetUdpPassThruPeerLocalTrafficClass(12)", "SetUdpPassThruPeerLocalTimeToLive(13)",
                          "SetUdpPassThruPeerLocalHopLimit(14)", "SetIPAddress(192.0.2.5)", "SetRtpPort(4000)",
                          "SetRemoteAnswer()"));
}

}  // namespace
}  // namespace module_calls
