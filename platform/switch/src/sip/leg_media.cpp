#include "sip/leg_media.h"

#include <string.h>

#include <cstdlib>
#include <utility>

#include "core/media_server.h"
#include "core/session.h"

namespace kvx_switch {

namespace {

// Two addresses and a comma; an IPv6 address takes 45 characters.
constexpr size_t kAddressBuffer = 128;

switch_bool_t ToSwitch(bool value) {
  return value ? SWITCH_TRUE : SWITCH_FALSE;
}

}  // namespace

void SplitLocalAddress(const std::string& text, std::string& bound, std::string& told) {
  size_t comma = text.find(',');
  bound = text.substr(0, comma);
  told = comma == std::string::npos ? bound : text.substr(comma + 1);
}

LegMedia::LegMedia(switch_core_session_t* session, const MediaSettings& settings)
    : session_(session),
      channel_(switch_core_session_get_channel(session)),
      connection_(switch_core_session_get_media_connection(session)),
      settings_(settings) {}

LegMedia::~LegMedia() {
  Destroy();
}

void LegMedia::Failed(const char* step) {
  switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_ERROR, "The media server refused: %s\n", step);
}

LegMedia::Start LegMedia::Create(NewCall new_call) {
  server_ = AcquireMediaServer();
  if (!server_) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_ERROR, "No media server module is loaded\n");
    return Start::kUnavailable;
  }
  Start result = Start::kUnavailable;
  if (new_call == NewCall::kYes && !server_->is_available()) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_ERROR,
                      "Media server \"%s\" takes no calls now\n", server_->interface_name);
  } else {
    connection_->media_server_interface = server_;
    created_ = server_->create(connection_, session_) == SWITCH_STATUS_SUCCESS;
    if (created_) return Start::kStarted;
    Failed("creating the leg");
    result = Start::kFailed;
  }
  ForgetMediaServersInfo(session_);
  connection_->media_server_interface = nullptr;
  ReleaseMediaServer(std::exchange(server_, nullptr));
  return result;
}

void LegMedia::DestroyCodec() {
  if (!std::exchange(codec_ready_, false)) return;
  switch_core_codec_destroy(&codec_);
}

bool LegMedia::InitCodec(const CodecMatch& match) {
  DestroyCodec();
  const switch_codec_implementation_t& wanted = *match.implementation;
  switch_memory_pool_t* pool = switch_core_session_get_pool(session_);
  codec_ = {};
  switch_status_t status = switch_core_codec_init_with_bitrate(
      &codec_, wanted.iananame, wanted.modname, match.remote.fmtp.c_str(), wanted.samples_per_second,
      wanted.microseconds_per_packet / 1000, wanted.number_of_channels, static_cast<uint32_t>(wanted.bits_per_second),
      SWITCH_CODEC_FLAG_ENCODE | SWITCH_CODEC_FLAG_DECODE, nullptr, pool);
  if (status != SWITCH_STATUS_SUCCESS) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_ERROR, "Codec %s/%u cannot be used\n",
                      wanted.iananame, wanted.samples_per_second);
    return false;
  }
  codec_ready_ = true;
  codec_.agreed_pt = match.remote.type;
  if (!codec_.fmtp_out && !match.remote.fmtp.empty()) {
    codec_.fmtp_out = switch_core_strdup(pool, match.remote.fmtp.c_str());
  }
  switch_channel_set_variable(channel_, "sip_use_codec_name", wanted.iananame);
  switch_channel_set_variable(channel_, "sip_use_codec_rate", std::to_string(wanted.samples_per_second).c_str());
  return true;
}

bool LegMedia::SetRemote(switch_sdp_negotiation_state_t state, const SdpMedia& stream, const std::string& session_name,
                         const AgreedMedia& agreed) {
  if (!InitCodec(agreed.codec)) return false;
  switch_channel_set_variable(channel_, SWITCH_REMOTE_MEDIA_IP_VARIABLE, stream.address.c_str());
  switch_channel_set_variable(channel_, SWITCH_REMOTE_MEDIA_PORT_VARIABLE, std::to_string(stream.port).c_str());
  switch_core_crypto_setting crypto =
      CryptoSetting(agreed.remote_key ? &*agreed.remote_key : nullptr, agreed.secure_only);
  // Where SRTP was never in question, nothing is said about it.
  const bool in_question = agreed.remote_key || agreed.local_key || agreed.secure_only;
  switch_status_t status = server_->set_media(
      connection_, stream.address.c_str(), stream.port, stream.rtcp_port, session_name.c_str(), &codec_,
      agreed.HasTelephoneEvents(), agreed.telephone_event_type, settings_.silence_suppression,
      in_question ? &crypto : nullptr, SWITCH_FALSE, state, ToSwitch(settings_.remote_address_detection),
      ToSwitch(settings_.suppress_comfort_noise), ToSwitch(settings_.sid));
  explicit_bzero(crypto.crypto_raw_key, sizeof(crypto.crypto_raw_key));
  if (status != SWITCH_STATUS_SUCCESS) Failed("the far end's description");
  return status == SWITCH_STATUS_SUCCESS;
}

bool LegMedia::SetRemoteImage(switch_sdp_negotiation_state_t state, const SdpMedia& stream,
                              const std::string& session_name) {
  switch_channel_set_variable(channel_, SWITCH_REMOTE_MEDIA_IP_VARIABLE, stream.address.c_str());
  switch_channel_set_variable(channel_, SWITCH_REMOTE_MEDIA_PORT_VARIABLE, std::to_string(stream.port).c_str());
  switch_status_t status = server_->set_media(connection_, stream.address.c_str(), stream.port, 0, session_name.c_str(),
                                              nullptr, 0, 0, settings_.silence_suppression, nullptr, SWITCH_TRUE, state,
                                              ToSwitch(settings_.remote_address_detection),
                                              ToSwitch(settings_.suppress_comfort_noise), ToSwitch(settings_.sid));
  if (status != SWITCH_STATUS_SUCCESS) Failed("the far end's image stream");
  return status == SWITCH_STATUS_SUCCESS;
}

bool LegMedia::GetLocalImage(switch_sdp_negotiation_state_t state, LocalMedia& local) {
  return GetLocal({state, {}, &codec_, AgreedMedia{}, true}, local);
}

bool LegMedia::GetLocalForOffer(const CodecImplementations& codecs, const AgreedMedia& wished, LocalMedia& local) {
  // SWITCH_SDP_COMPLETED stands for an offer after the first; the media server makes the same of both.
  return GetLocal({SWITCH_SDP_STATE_UNKNOWN, codecs, nullptr, wished}, local);
}

bool LegMedia::GetLocalForAnswer(const AgreedMedia& agreed, LocalMedia& local) {
  return GetLocal({SWITCH_SDP_OFFER_RECEIVED, {codec_.implementation}, &codec_, agreed}, local);
}

bool LegMedia::GetLocal(LocalRequest request, LocalMedia& local) {
  char address[kAddressBuffer] = "";
  switch_port_t port = 0;
  const AgreedMedia& media = request.media;
  switch_core_crypto_setting crypto = CryptoSetting(media.local_key ? &*media.local_key : nullptr, media.secure_only);
  switch_status_t status = server_->get_media(
      connection_, request.codecs.data(), static_cast<int>(request.codecs.size()), request.answer_codec,
      ToSwitch(settings_.inband_dtmf_to_events), media.HasTelephoneEvents(), media.telephone_event_type,
      settings_.silence_suppression, address, static_cast<int>(sizeof(address)), &port, &crypto,
      ToSwitch(request.image), request.state, settings_.ipv4_tos, settings_.ipv6_traffic_class, settings_.hop_limit,
      settings_.g729_annex_b, ToSwitch(settings_.suppress_comfort_noise), ToSwitch(settings_.sid),
      settings_.rtp_timeout_seconds, ToSwitch(settings_.auto_local_port_renew), settings_.asymmetric_dynamic_payload);
  explicit_bzero(crypto.crypto_raw_key, sizeof(crypto.crypto_raw_key));
  if (status != SWITCH_STATUS_SUCCESS) {
    Failed("a local description");
    return false;
  }
  std::string bound;
  SplitLocalAddress(address, bound, local.address);
  if (local.address.empty() || port == 0) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_ERROR,
                      "The media server gave no usable address: \"%s\" port %u\n", address, port);
    return false;
  }
  local.port = port;
  const char* rtcp_port = switch_channel_get_variable(channel_, "local_rtcp_port");
  local.rtcp_port = rtcp_port ? static_cast<uint16_t>(std::atoi(rtcp_port)) : 0;
  switch_channel_set_variable(channel_, SWITCH_LOCAL_MEDIA_IP_VARIABLE, bound.c_str());
  Publish(local);
  return true;
}

void LegMedia::Publish(const LocalMedia& local) {
  switch_channel_set_variable(channel_, SWITCH_LOCAL_MEDIA_PORT_VARIABLE, std::to_string(local.port).c_str());
  switch_channel_set_variable(channel_, SWITCH_ADVERTISED_MEDIA_IP_VARIABLE, local.address.c_str());
}

void LegMedia::MarkStart() {
  if (std::exchange(started_, true)) return;
  switch_time_exp_t now;
  switch_time_exp_lt(&now, switch_time_now());
  char text[32];
  switch_size_t length = 0;
  switch_strftime(text, &length, sizeof(text), "%Y-%m-%d %H:%M:%S", &now);
  switch_channel_set_variable(channel_, "rtcpmon_start_time", text);
}

bool LegMedia::Bridge(RTPDirection direction) {
  const bool done = server_->bridge(connection_, direction) == SWITCH_STATUS_SUCCESS;
  // A bridge that cannot be turned is still one, and is undone like one.
  if (done) bridged_ = true;
  if (!done) Failed("joining the two legs");
  return done;
}

void LegMedia::Unbridge() {
  if (!std::exchange(bridged_, false)) return;
  if (server_->unbridge(connection_) != SWITCH_STATUS_SUCCESS) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_WARNING,
                      "The media server could not separate the two legs\n");
  }
}

void LegMedia::Destroy() {
  if (!std::exchange(created_, false)) return;
  Unbridge();
  if (server_->destroy(connection_) != SWITCH_STATUS_SUCCESS) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session_), SWITCH_LOG_DEBUG,
                      "The media server had nothing left of the leg to destroy\n");
  }
  ForgetMediaServersInfo(session_);
  DestroyCodec();
  connection_->media_server_interface = nullptr;
  ReleaseMediaServer(std::exchange(server_, nullptr));
}

}  // namespace kvx_switch
