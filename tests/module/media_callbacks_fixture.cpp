#include "module/media_callbacks_fixture.h"

#include <cstring>
#include <stdexcept>

namespace module_test {

namespace {

test_support::ScriptedOptions with_a_codec(test_support::ScriptedOptions options) {
  if (options.audio_codecs.empty()) options.audio_codecs = codec_list({{"PCMU", "", ""}});
  return options;
}

}  // namespace

switch_codec_implementation_t implementation(const char* name, switch_payload_t ianacode, int packet_time_ms,
                                             uint32_t sample_rate, int bit_rate) {
  switch_codec_implementation_t made;
  std::memset(&made, 0, sizeof(made));
  made.iananame = const_cast<char*>(name);
  made.ianacode = ianacode;
  made.microseconds_per_packet = packet_time_ms * 1000;
  made.samples_per_second = sample_rate;
  made.actual_samples_per_second = sample_rate;
  made.bits_per_second = bit_rate;
  return made;
}

switch_codec_t negotiated(const switch_codec_implementation_t& implementation, switch_payload_t agreed_payload,
                          const char* fmtp_in, const char* fmtp_out) {
  switch_codec_t made;
  std::memset(&made, 0, sizeof(made));
  made.implementation = &implementation;
  made.agreed_pt = agreed_payload;
  made.fmtp_in = const_cast<char*>(fmtp_in);
  made.fmtp_out = const_cast<char*>(fmtp_out);
  return made;
}

switch_status_t MediaLeg::Destroy() {
  const switch_status_t status = channel_destroy(Connection());
  Connection()->private_info = nullptr;
  return status;
}

switch_status_t MediaLeg::GetMedia(LocalMedia& media) {
  return channel_get_media(Connection(), media.codecs.data(), static_cast<int>(media.codecs.size()), media.answer_codec,
                           media.default_inband_to_rfc2833_conversion, media.rfc2833flag, media.rfc2833payload,
                           media.enable_silence_supp, media.ip_addr, media.ip_addr_size, &media.out_port, &media.crypto,
                           media.enable_udp_passthru, media.state, media.ipv4_tos, media.ipv6_tc, media.hop,
                           media.support_g729_annexb, media.enable_cng_supp, media.enable_sid, media.rtp_timeout_sec,
                           media.enable_auto_local_port_renew, media.enable_asymmetric_dynamic_payload);
}

switch_status_t MediaLeg::SetMedia(const RemoteMedia& media) {
  return channel_set_media(Connection(), media.ip, media.rtp_port, media.rtcp_port, media.session_name, media.codec,
                           media.rfc2833flag, media.rfc2833payload, media.enable_silence_supp, media.crypto,
                           media.enable_udp_passthru, media.state, media.enable_remote_address_detect,
                           media.enable_cng_supp, media.enable_sid);
}

bool MediaLeg::Known() const {
  return mod_globals->GetFSUuidTable()->IsFSUuidAlreadyThere(Uuid());
}

boost::uuids::uuid MediaLeg::MediaSession() const {
  return mod_globals->GetFSUuidTable()->GetMediaSessionUuid(Uuid());
}

kvx_media_server::NetworkConnectionNodeSharedPtr MediaLeg::Node() const {
  return mod_globals->GetMSTable()->GetNetworkConnectionNode(MediaSession(), Uuid());
}

MediaCallbacks::MediaCallbacks(const test_support::ScriptedOptions& options)
    : servers_(with_a_codec(options)),
      configuration_("autoload_configs/kelvaro_media_server.conf.xml",
                     module_configuration({{"config", servers_.config_path()}})) {
  if (module_.Status() != SWITCH_STATUS_SUCCESS) throw std::runtime_error("the module did not load");
  log_.Clear();
}

MediaCallbacks::~MediaCallbacks() = default;

kelvaro::jsr309::MediaConfig MediaCallbacks::LastConfig(test_support::ScriptedOperation operation) const {
  const std::vector<test_support::ScriptedCall> calls = servers_.Calls(operation);
  if (calls.empty() || !calls.back().config) {
    ADD_FAILURE() << "the media server got no " << operation;
    return {};
  }
  return *calls.back().config;
}

void MediaCallbacks::Forget(const MediaLeg& leg) {
  mod_globals->GetFSUuidTable()->UnregisterMediaSession(leg.Uuid());
}

test_support::LogLine nothing_to_clean_up(const std::string& fs_uuid) {
  return test_support::error_line("Could not find media session uuid from fs uuid " + fs_uuid +
                                  " from FS table. Destroy failed");
}

}  // namespace module_test
