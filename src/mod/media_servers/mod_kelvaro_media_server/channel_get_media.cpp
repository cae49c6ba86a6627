#include <boost/algorithm/string/case_conv.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "media_config_fill.h"
#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::MediaConfig;
using kvx_media_server::add_codec;
using kvx_media_server::fmtp_in_says;
using kvx_media_server::is_described;
using kvx_media_server::is_named;

namespace {

const kvx_media_server::LegLookupMessages kMessages = {
    "Cannot find FS UUID %s in FS UUID table\n", kvx_media_server::kNoMediaSessionMessage,
    "Cannot find Network connection (fsuuid=%s; msuuid=%s) within Media Session Network connection objects\n"};

/// The codecs that the switch names.
struct Codecs {
  const switch_codec_implementation_t** list;
  int size;
  const switch_codec_t* answer;  ///< what was settled on; may be null
  int support_g729_annexb;
};

void set_ip_header_fields(MediaConfig& cfg, uint8_t ipv4_tos, uint8_t ipv6_tc, uint8_t hop) {
  cfg.SetIpv4Tos(ipv4_tos);
  cfg.SetIpv6TrafficClass(ipv6_tc);
  cfg.SetIpv4TimeToLive(hop);
  cfg.SetIpv6HopLimit(hop);
}

void set_rtp_timeouts(MediaConfig& cfg, switch_channel_t* chan, uint32_t inactive_sec) {
  cfg.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, inactive_sec);
  const char* answer_timeout = switch_channel_get_variable(chan, "bridge_answer_timeout");
  const int pending_sec = answer_timeout ? std::atoi(answer_timeout) : 0;
  if (pending_sec != 0) cfg.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, static_cast<uint32_t>(pending_sec));
}

/// The leg may forbid what the switch allows, not the other way round.
void set_inband_dtmf_conversion(MediaConfig& cfg, switch_channel_t* chan, bool allowed_by_default) {
  const char* allowed = switch_channel_get_variable(chan, "rtp_allow_inband_to_2833_dtmf_conversion");
  const bool forbidden = !zstr(allowed) && switch_false(allowed);
  cfg.SetAllowInbandTo2833Conversion(!forbidden && allowed_by_default);
}

void set_stream_switches(MediaConfig& cfg, switch_channel_t* chan) {
  const char* fax_mask = switch_channel_get_variable(chan, "rtp_fax_mode_auto_switch_mask");
  if (!zstr(fax_mask)) cfg.SetFaxModeAutoSwitchMask(fax_mask);

  const char* reset = switch_channel_get_variable(chan, "reset_rtp_on_remote_ssrc_change");
  cfg.SetResetRtpOnRemoteSSRCChange(!zstr(reset) && !switch_false(reset));
}

/// An answer takes annexes back where either side declined them; what it leaves alone stays as the offer had it.
void clear_declined_annexes(MediaConfig& cfg, const switch_codec_t& codec, int support_g729_annexb) {
  if (is_named(codec, "G729")) {
    if (!support_g729_annexb || fmtp_in_says(codec, "annexb=no")) cfg.SetG729AnnexBFlag(false);
  } else if (is_named(codec, "G723")) {
    if (fmtp_in_says(codec, "annexa=no")) cfg.SetG723AnnexAFlag(false);
  }
}

bool is_same_format(const switch_codec_implementation_t& a, const switch_codec_implementation_t& b) {
  return strcasecmp(switch_str_nil(a.iananame), switch_str_nil(b.iananame)) == 0 &&
         a.microseconds_per_packet == b.microseconds_per_packet && a.samples_per_second == b.samples_per_second &&
         a.bits_per_second == b.bits_per_second;
}

/// The codec that was settled on comes first, under its negotiated payload type; the others follow as they are.
void add_answer_codecs(MediaConfig& cfg, const Codecs& codecs) {
  const bool settled = is_described(codecs.answer);
  if (settled) {
    kvx_media_server::add_negotiated_codec(cfg, *codecs.answer, codecs.answer->agreed_pt);
    clear_declined_annexes(cfg, *codecs.answer, codecs.support_g729_annexb);
  }
  for (int i = 0; i < codecs.size; ++i) {
    const switch_codec_implementation_t& codec = *codecs.list[i];
    if (!settled || !is_same_format(codec, *codecs.answer->implementation)) add_codec(cfg, codec, codec.ianacode);
  }
}

void add_offer_codecs(MediaConfig& cfg, const Codecs& codecs) {
  for (int i = 0; i < codecs.size; ++i) add_codec(cfg, *codecs.list[i], codecs.list[i]->ianacode);
  cfg.SetG729AnnexBFlag(codecs.support_g729_annexb != 0);
}

/// Has the media server make the answer or the offer, by what is ours to give. Only a failed answer leaves the leg's
/// objects in place.
bool request_description(MediaConfig& cfg, const kvx_media_server::Leg& leg, switch_sdp_negotiation_state_t sdpOAState,
                         const Codecs& codecs, bool renew_local_port) {
  switch (sdpOAState) {
    case SWITCH_SDP_OFFER_RECEIVED:
      add_answer_codecs(cfg, codecs);
      cfg.SetAutoLocalPortRenew(renew_local_port);
      if (leg.connection->GetLocalAnswer(cfg)) return true;
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "ERROR - Unable to get local answer configuration for Network Connection.");
      return false;

    case SWITCH_SDP_STATE_UNKNOWN:
    case SWITCH_SDP_ANSWER_RECEIVED:
    case SWITCH_SDP_ANSWER_SENT:
    case SWITCH_SDP_COMPLETED:
      add_offer_codecs(cfg, codecs);
      if (leg.connection->GetLocalOffer(cfg)) return true;
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "ERROR - Unable to get local offer configuration for Network Connection.");
      break;

    case SWITCH_SDP_OFFER_SENT:
    default:
      // While our own offer is out, a second description would leave both sides with different ones (RFC 3264).
      KVX_MS_LOG(SWITCH_LOG_ERROR, "Invalid direction.");
      break;
  }
  objects_cleanup(leg.fs_uuid.c_str());
  return false;
}

/// The media server's address, by which operators name it: they find its sessions by the upper-case text.
void remember_media_server(const kvx_media_server::Leg& leg, const MediaConfig& cfg) {
  const std::string address = boost::to_upper_copy(std::string(switch_str_nil(cfg.GetIPAddress())));
  mod_globals->GetMSTable()->SetMediaSessionIPAddress(leg.ms_uuid, address.c_str());
}

void return_local_media(const MediaConfig& cfg, switch_channel_t* chan, char* ip_addr, int ip_addr_size,
                        switch_port_t* out_port) {
  const char* ip = switch_str_nil(cfg.GetIPAddress());
  const char* pubip = cfg.GetPublicIPAddress();
  const size_t size = static_cast<size_t>(ip_addr_size);
  const int length = pubip ? std::snprintf(ip_addr, size, "%s,%s", ip, pubip) : std::snprintf(ip_addr, size, "%s", ip);
  if (length >= ip_addr_size) KVX_MS_LOG(SWITCH_LOG_ERROR, "Internal Error: IP string size exceeds buffer limit");

  *out_port = cfg.GetRtpPort();
  switch_channel_set_variable_printf(chan, "local_rtcp_port", "%d", static_cast<int>(cfg.GetRtcpPort()));
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "IP address=%s, Port=%d\n", ip_addr,
                    static_cast<int>(*out_port));
}

}  // namespace

switch_status_t channel_get_media(switch_media_connection_t* mc, const switch_codec_implementation_t** codecs,
                                  int num_codecs, switch_codec_t* answer_codec,
                                  switch_bool_t default_inband_to_rfc2833_conversion, int rfc2833flag,
                                  switch_payload_t rfc2833payload, int enable_silence_supp, char* ip_addr,
                                  int ip_addr_size, switch_port_t* out_port, switch_core_crypto_setting* crypto_setting,
                                  switch_bool_t enable_udp_passthru, switch_sdp_negotiation_state_t sdpOAState,
                                  uint8_t ipv4_tos, uint8_t ipv6_tc, uint8_t hop, int support_g729_annexb,
                                  switch_bool_t enable_cng_supp, switch_bool_t enable_sid, uint32_t rtp_timeout_sec,
                                  switch_bool_t enable_auto_local_port_renew, int enable_asymmetric_dynamic_payload) {
  switch_assert(mc != NULL);
  switch_core_session_t* session = static_cast<switch_core_session_t*>(mc->private_info);
  const char* fsuuid = switch_core_session_get_uuid(session);
  switch_channel_t* chan = switch_core_session_get_channel(session);
  *out_port = 0;
  switch_assert(chan != NULL);

  const auto leg = kvx_media_server::find_leg(fsuuid, kMessages);
  if (!leg) return SWITCH_STATUS_FALSE;

  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Initializing MediaConfig");
  MediaConfig cfg;
  kvx_media_server::set_telephone_events_and_silence(cfg, rfc2833flag, rfc2833payload, enable_silence_supp,
                                                     enable_cng_supp, enable_sid);
  set_ip_header_fields(cfg, ipv4_tos, ipv6_tc, hop);
  set_rtp_timeouts(cfg, chan, rtp_timeout_sec);
  set_inband_dtmf_conversion(cfg, chan, default_inband_to_rfc2833_conversion != 0);
  set_stream_switches(cfg, chan);
  kvx_media_server::set_crypto(cfg, crypto_setting ? *crypto_setting : switch_core_crypto_setting());
  if (enable_udp_passthru) cfg.SetUdpPassThru();
  if (enable_asymmetric_dynamic_payload) cfg.SetAsymmetricDynamicPayload();
  get_jitterbuffer_settings(cfg, chan);

  const Codecs all_codecs = {codecs, num_codecs, answer_codec, support_g729_annexb};
  if (!request_description(cfg, *leg, sdpOAState, all_codecs, enable_auto_local_port_renew != 0)) {
    return SWITCH_STATUS_FALSE;
  }
  remember_media_server(*leg, cfg);
  return_local_media(cfg, chan, ip_addr, ip_addr_size, out_port);
  return SWITCH_STATUS_SUCCESS;
}
