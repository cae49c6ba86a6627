#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <boost/uuid/random_generator.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "mod_kelvaro_media_server.h"
#include "recording_connection.h"
#include "support/process_child.h"

kvx_media_server::ModGlobal* mod_globals = nullptr;

namespace module_calls {
namespace {

using kvx_media_server::ModGlobal;
using testing::ElementsAre;

using Calls = std::vector<std::string>;

/// The switch's core, for the whole program; no configuration is needed.
class RunningSwitch : public testing::Environment {
 public:
  void SetUp() override {
    SWITCH_GLOBAL_dirs.conf_dir = strdup(directory_.Path().c_str());
    SWITCH_GLOBAL_dirs.log_dir = strdup(directory_.Path().c_str());
    SWITCH_GLOBAL_dirs.mod_dir = strdup(directory_.Path().c_str());
    const char* error = "unknown";
    if (switch_core_init(SCF_NONE, SWITCH_FALSE, &error) != SWITCH_STATUS_SUCCESS) {
      throw std::runtime_error(std::string("switch_core_init: ") + error);
    }
    mod_globals = ModGlobal::Instance(false);
  }
  void TearDown() override {
    ModGlobal::Destroy();
    switch_core_destroy();
  }

 private:
  test_support::TemporaryDirectory directory_;
};

const testing::Environment* const registered = testing::AddGlobalTestEnvironment(new RunningSwitch);

/// A leg in the tables, on a connection that records.
class RecordedLeg {
 public:
  explicit RecordedLeg(const boost::uuids::uuid& media_session)
      : session_(switch_core_session_request_uuid(nullptr, SWITCH_CALL_DIRECTION_INBOUND, SOF_NONE, nullptr, nullptr)),
        connection_(boost::make_shared<RecordingConnection>()) {
    if (!session_) throw std::runtime_error("the switch gives no session");
    Mc()->private_info = session_;
    mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(Uuid(), media_session);
    mod_globals->GetMSTable()->RegisterNetworkConnection(media_session, connection_, Uuid());
  }
  ~RecordedLeg() { switch_core_session_destroy(&session_); }
  RecordedLeg(const RecordedLeg&) = delete;
  RecordedLeg& operator=(const RecordedLeg&) = delete;

  switch_media_connection_t* Mc() const { return switch_core_session_get_media_connection(session_); }
  std::string Uuid() const { return switch_core_session_get_uuid(session_); }
  RecordingConnection& Connection() { return *connection_; }
  void Set(const char* variable, const char* value) {
    switch_channel_set_variable(switch_core_session_get_channel(session_), variable, value);
  }

 private:
  switch_core_session_t* session_;
  boost::shared_ptr<RecordingConnection> connection_;
};

class CallOrder : public testing::Test {
 protected:
  CallOrder() : media_session_(RegisterSession()), leg_(media_session_), peer_(media_session_) {
    leg_.Set(SWITCH_SIGNAL_BOND_VARIABLE, peer_.Uuid().c_str());
    peer_.Set(SWITCH_SIGNAL_BOND_VARIABLE, leg_.Uuid().c_str());
    leg_.Connection().local = {"10.0.0.5", nullptr, 16384, 16385, 1, 2, 3, 4};
    peer_.Connection().local = {"10.0.0.6", nullptr, 16386, 0, 11, 12, 13, 14};
    peer_.Connection().remote = {"192.0.2.6", nullptr, 5004, 0, 0, 0, 0, 0};
    everything_.crypto_type = 2;
    everything_.crypto_mandatory = 1;
    everything_.crypto_lifetime_exponent = 20;
    everything_.crypto_mki_length_str = "1:4";
    calls().clear();
  }
  ~CallOrder() override {
    mod_globals->GetMSTable()->EraseAllMSUuid();
    mod_globals->GetFSUuidTable()->EraseAllItems();
  }

  static boost::uuids::uuid RegisterSession() {
    const auto listener = boost::make_shared<kvx_media_server::MyMediaServerLostListener>(*mod_globals->GetMSTable());
    listener->SetUuid(mod_globals->DrawUuid());
    mod_globals->GetMSTable()->RegisterMediaSession(kvx_media_server::MediaSessionSharedPtr(), listener);
    return listener->GetUuid();
  }

  static switch_codec_implementation_t Implementation(const char* name, switch_payload_t ianacode, int bit_rate) {
    switch_codec_implementation_t made = {};
    made.iananame = const_cast<char*>(name);
    made.ianacode = ianacode;
    made.microseconds_per_packet = 20000;
    made.samples_per_second = 8000;
    made.bits_per_second = bit_rate;
    return made;
  }
  static switch_codec_t Negotiated(const switch_codec_implementation_t& implementation, switch_payload_t payload,
                                   const char* fmtp_in, const char* fmtp_out) {
    switch_codec_t made = {};
    made.implementation = &implementation;
    made.agreed_pt = payload;
    made.fmtp_in = const_cast<char*>(fmtp_in);
    made.fmtp_out = const_cast<char*>(fmtp_out);
    return made;
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

  switch_codec_implementation_t pcmu_ = Implementation("PCMU", 0, 64000);
  switch_codec_implementation_t amr_ = Implementation("AMR", 98, 12200);
  switch_codec_implementation_t g729_ = Implementation("G729", 18, 8000);
  switch_core_crypto_setting everything_ = {};
  boost::uuids::uuid media_session_;
  RecordedLeg leg_;
  RecordedLeg peer_;
};

TEST_F(CallOrder, OfLocalOfferWithEverythingOn) {
  SetEveryVariable();
  EXPECT_THAT(
      GetMedia(SWITCH_SDP_STATE_UNKNOWN, true, nullptr),
      ElementsAre("SetRfc2833Flag(true)", "SetRfc2833Payload(101)", "SetSilenceSuppressionFlag(true)",
                  "SetCngSuppressionFlag(true)", "SetSidFlag(true)", "SetIpv4Tos(184)", "SetIpv6TrafficClass(136)",
                  "SetIpv4TimeToLive(64)", "SetIpv6HopLimit(64)", "SetRtpTimeoutSec(INACTIVE, 120)",
                  "SetRtpTimeoutSec(PENDING, 30)", "SetAllowInbandTo2833Conversion(true)",
                  "SetFaxModeAutoSwitchMask(ced)", "SetResetRtpOnRemoteSSRCChange(true)",
                  "SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)", "SetCryptoMandFlag(true)", "SetUdpPassThru()",
                  "SetAsymmetricDynamicPayload()", "SetJitterMode(adaptive)", "SetJitterInitialDelayMs(40)",
                  "SetJitterMinDelayMs(20)", "SetJitterMaxPdvMs(100)", "SetVideoJitterBufferType(adaptive)",
                  "SetVideoJitterBufferInitialDelayMs(60)", "SetVideoJitterBufferMinDelayMs(30)",
                  "AddCodec(PCMU, 0, 20, 8000, 64000, false, 0, 0, 0, null, 0, 1)",
                  "AddCodec(AMR, 98, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)", "SetG729AnnexBFlag(true)",
                  "GetLocalOffer()"));
}

TEST_F(CallOrder, OfLocalOfferWithEverythingOff) {
  EXPECT_THAT(GetMedia(SWITCH_SDP_COMPLETED, false, nullptr),
              ElementsAre("SetRfc2833Flag(false)", "SetRfc2833Payload(101)", "SetSilenceSuppressionFlag(false)",
                          "SetCngSuppressionFlag(false)", "SetSidFlag(false)", "SetIpv4Tos(184)",
                          "SetIpv6TrafficClass(136)", "SetIpv4TimeToLive(64)", "SetIpv6HopLimit(64)",
                          "SetRtpTimeoutSec(INACTIVE, 120)", "SetAllowInbandTo2833Conversion(false)",
                          "SetResetRtpOnRemoteSSRCChange(false)", "SetCrypto(NO_CRYPTO, null, 0, 0, null)",
                          "AddCodec(PCMU, 0, 20, 8000, 64000, false, 0, 0, 0, null, 0, 1)",
                          "AddCodec(AMR, 98, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)", "SetG729AnnexBFlag(false)",
                          "GetLocalOffer()"));
}

TEST_F(CallOrder, OfLocalAnswer) {
  switch_codec_t amr = Negotiated(amr_, 112, nullptr, "octet-align=1");
  const Calls made = GetMedia(SWITCH_SDP_OFFER_RECEIVED, true, &amr);
  ASSERT_GE(made.size(), 5u);
  EXPECT_THAT(Calls(made.end() - 5, made.end()),
              ElementsAre("AddCodec(AMR, 112, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)", "SetAMROctetAlign(true)",
                          "AddCodec(PCMU, 0, 20, 8000, 64000, false, 0, 0, 0, null, 0, 1)",
                          "SetAutoLocalPortRenew(true)", "GetLocalAnswer()"));
}

TEST_F(CallOrder, OfLocalAnswerWithADeclinedAnnex) {
  switch_codec_t g729 = Negotiated(g729_, 18, "annexb=no", nullptr);
  const Calls made = GetMedia(SWITCH_SDP_OFFER_RECEIVED, false, &g729);
  ASSERT_GE(made.size(), 6u);
  EXPECT_THAT(Calls(made.end() - 6, made.end()),
              ElementsAre("AddCodec(G729, 18, 20, 8000, 8000, false, 0, 0, 0, null, 0, 1)", "SetG729AnnexBFlag(false)",
                          "AddCodec(PCMU, 0, 20, 8000, 64000, false, 0, 0, 0, null, 0, 1)",
                          "AddCodec(AMR, 98, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)",
                          "SetAutoLocalPortRenew(false)", "GetLocalAnswer()"));
}

TEST_F(CallOrder, OfRemoteOfferWithEverythingOn) {
  switch_codec_t amr = Negotiated(amr_, 112, nullptr, "octet-align=1");
  EXPECT_THAT(SetMedia(SWITCH_SDP_OFFER_RECEIVED, true, &amr, SWITCH_TRUE),
              ElementsAre("SetRemoteAddressDetection()", "SetUdpPassThru()", "SetIPAddress(192.0.2.5)",
                          "SetRtpPort(4000)", "AddCodec(AMR, 112, 20, 8000, 12200, false, 0, 0, 0, null, 0, 1)",
                          "SetAMROctetAlign(true)", "SetRtcpFlag(true)", "SetRtcpPort(4711)",
                          "SetCname(call@" + leg_.Uuid() + ")", "SetRfc2833Flag(true)", "SetRfc2833Payload(101)",
                          "SetSilenceSuppressionFlag(true)", "SetCngSuppressionFlag(true)", "SetSidFlag(true)",
                          "SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)", "SetCryptoMandFlag(true)",
                          "SetRemoteOffer()"));
}

TEST_F(CallOrder, OfRemoteOfferWithEverythingOff) {
  EXPECT_THAT(SetMedia(SWITCH_SDP_ANSWER_SENT, false, nullptr, SWITCH_FALSE),
              ElementsAre("SetIPAddress(192.0.2.5)", "SetRtpPort(4000)", "SetRtcpFlag(true)", "SetRtcpPort(4001)",
                          "SetCname(call@" + leg_.Uuid() + ")", "SetRfc2833Flag(false)", "SetRfc2833Payload(101)",
                          "SetSilenceSuppressionFlag(false)", "SetCngSuppressionFlag(false)", "SetSidFlag(false)",
                          "SetRemoteOffer()"));
}

TEST_F(CallOrder, OfRemoteAnswer) {
  switch_codec_t g729 = Negotiated(g729_, 112, nullptr, nullptr);
  EXPECT_THAT(
      SetMedia(SWITCH_SDP_ANSWER_RECEIVED, true, &g729, SWITCH_FALSE),
      ElementsAre("SetRemoteAddressDetection()", "SetIPAddress(192.0.2.5)", "SetRtpPort(4000)",
                  "AddCodec(G729, 18, 20, 8000, 8000, false, 0, 0, 0, null, 0, 1)", "SetRtcpFlag(true)",
                  "SetRtcpPort(4711)", "SetCname(call@" + leg_.Uuid() + ")", "SetRfc2833Flag(true)",
                  "SetRfc2833Payload(101)", "SetSilenceSuppressionFlag(true)", "SetCngSuppressionFlag(true)",
                  "SetSidFlag(true)", "SetG729AnnexBFlag(true)", "SetCrypto(AES_CM_128_HMAC_SHA1_32, key, 30, 20, 1:4)",
                  "SetCryptoMandFlag(true)", "SetRemoteAnswer()"));
}

TEST_F(CallOrder, OfT38Passthrough) {
  ASSERT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, true, nullptr, SWITCH_TRUE),
              ElementsAre("SetRemoteAddressDetection()", "SetUdpPassThru()", "Unjoin()", "GetRemoteImageConfig()",
                          "GetLocalImageConfig()", "SetUdpPassThruPeerRemotePort(5004)",
                          "SetUdpPassThruPeerRemoteIPAddress(192.0.2.6)", "SetUdpPassThruPeerLocalPort(16386)",
                          "SetUdpPassThruPeerLocalIPAddress(10.0.0.6)", "SetUdpPassThruPeerLocalTos(11)",
                          "SetUdpPassThruPeerLocalTrafficClass(12)", "SetUdpPassThruPeerLocalTimeToLive(13)",
                          "SetUdpPassThruPeerLocalHopLimit(14)", "SetIPAddress(192.0.2.5)", "SetRtpPort(4000)",
                          "SetRemoteAnswer()"));
}

TEST_F(CallOrder, OfDestruction) {
  leg_.Set("generate_rtcp_report", "true");
  EXPECT_EQ(channel_destroy(leg_.Mc()), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("GetRtcpStatsReport()", "RemoveListener()", "Close()"));
}

TEST_F(CallOrder, OfCleanUp) {
  objects_cleanup(leg_.Uuid().c_str());
  EXPECT_THAT(calls(), ElementsAre("RemoveListener()", "Close()", "RemoveListener()", "Close()"));
}

}  // namespace
}  // namespace module_calls
