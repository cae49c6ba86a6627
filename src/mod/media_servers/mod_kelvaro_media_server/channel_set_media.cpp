#include <netinet/in.h>

#include <cstdio>
#include <string>

#include "ip_address.h"
#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "locked_session.h"
#include "media_config_fill.h"
#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::MediaConfig;
using kvx_media_server::fmtp_in_says;
using kvx_media_server::is_described;
using kvx_media_server::is_named;
using kvx_media_server::Leg;
using kvx_media_server::LockedSession;
using kvx_media_server::packet_time_ms;

namespace {

const kvx_media_server::LegLookupMessages kMessages = {
    "Cannot find FS UUID in FS UUID table!\n", kvx_media_server::kNoMediaSessionMessage,
    "Cannot find Network Connection (fsuuid=%s; msuuid=%s) within media sessions objects\n"};

/// What the far end said of itself, and where the address that it gave resolved to.
struct RemoteMedia {
  const char* ip;
  switch_port_t rtp_port;
  switch_port_t rtcp_port;  ///< 0: not given
  const char* session_name;
  const switch_codec_t* codec;  ///< may be null
  int rfc2833flag;
  switch_payload_t rfc2833payload;
  int enable_silence_supp;
  const switch_core_crypto_setting* crypto_setting;  ///< may be null
  switch_bool_t enable_cng_supp;
  switch_bool_t enable_sid;
  char address[INET6_ADDRSTRLEN];
};

bool resolve(RemoteMedia& remote, const Leg& leg) {
  if (resolve_inet_address(remote.ip, remote.address, sizeof(remote.address)) == SWITCH_STATUS_SUCCESS) return true;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Could not resolve IP address for '%s' in SDP!\n",
                    switch_str_nil(remote.ip));
  objects_cleanup(leg.fs_uuid.c_str());
  return false;
}

void set_cname(MediaConfig& cfg, const char* session_name, const std::string& fs_uuid) {
  char cname[300];
  std::snprintf(cname, sizeof(cname), "%s@%s", switch_str_nil(session_name), fs_uuid.c_str());
  cfg.SetCname(cname);
}

/// The far end has an annex unless it declines it.
void set_annexes(MediaConfig& cfg, const switch_codec_t& codec) {
  if (is_named(codec, "G729")) {
    cfg.SetG729AnnexBFlag(!fmtp_in_says(codec, "annexb=no"));
  } else if (is_named(codec, "G723")) {
    cfg.SetG723AnnexAFlag(!fmtp_in_says(codec, "annexa=no"));
  }
}

/// What a remote offer and a remote answer have in common; they differ in the payload type of the codec.
void fill_remote_media(MediaConfig& cfg, const RemoteMedia& remote, const Leg& leg, switch_payload_t payload_type) {
  cfg.SetIPAddress(remote.address);
  cfg.SetRtpPort(remote.rtp_port);
  if (is_described(remote.codec)) kvx_media_server::add_negotiated_codec(cfg, *remote.codec, payload_type);
  cfg.SetRtcpFlag(true);
  cfg.SetRtcpPort(remote.rtcp_port ? remote.rtcp_port : static_cast<switch_port_t>(remote.rtp_port + 1));
  set_cname(cfg, remote.session_name, leg.fs_uuid);
  kvx_media_server::set_telephone_events_and_silence(cfg, remote.rfc2833flag, remote.rfc2833payload,
                                                     remote.enable_silence_supp, remote.enable_cng_supp,
                                                     remote.enable_sid);
  if (is_described(remote.codec)) set_annexes(cfg, *remote.codec);
  if (remote.crypto_setting) kvx_media_server::set_crypto(cfg, *remote.crypto_setting);
}

void log_remote_offer(const RemoteMedia& remote, const Leg& leg) {
  if (!is_described(remote.codec)) return;
  const switch_codec_implementation_t& implementation = *remote.codec->implementation;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                    "\nSet Remote Offer for uuid(%s):\n"
                    "Remote IP Address is:    %s (%s)\n"
                    "Remote Port is:          %d\n"
                    "Codec name is:           %s\n"
                    "Codec IANA code is:      %d\n"
                    "Codec ptime is:          %dms\n"
                    "Codec sample rate is:    %d samples per second\n"
                    "Codec bit rate is:       %d bps\n",
                    leg.fs_uuid.c_str(), remote.ip, remote.address, remote.rtp_port,
                    switch_str_nil(implementation.iananame), remote.codec->agreed_pt, packet_time_ms(implementation),
                    static_cast<int>(implementation.samples_per_second), implementation.bits_per_second);
}

void log_remote_answer(const RemoteMedia& remote, const Leg& leg) {
  if (!is_described(remote.codec)) return;
  const switch_codec_implementation_t& implementation = *remote.codec->implementation;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                    "\nSet Remote Answer for uuid(%s):\n"
                    "Remote IP Address is:    %s\n"
                    "Remote Port is:          %d\n"
                    "Codec name is:           %s\n"
                    "Codec IANA code is:      %d\n"
                    "Codec ptime is:          %dms\n"
                    "Codec sample rate is:    %d samples per second\n"
                    "Codec bit rate is:       %d bps\n",
                    leg.fs_uuid.c_str(), remote.ip, remote.rtp_port, switch_str_nil(implementation.iananame),
                    implementation.ianacode, packet_time_ms(implementation),
                    static_cast<int>(implementation.samples_per_second), implementation.bits_per_second);
}

void log_telephone_events(const char* leg_name, const RemoteMedia& remote) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "%s leg RFC2833 set to %s, and payload type is %d.\n",
                    leg_name, remote.rfc2833flag ? "true" : "false", remote.rfc2833payload);
}

switch_status_t set_remote_offer(RemoteMedia& remote, const Leg& leg, bool udp_passthru) {
  MediaConfig sdpOffer;
  if (udp_passthru) sdpOffer.SetUdpPassThru();
  if (!resolve(remote, leg)) return SWITCH_STATUS_FALSE;

  fill_remote_media(sdpOffer, remote, leg, remote.codec ? remote.codec->agreed_pt : switch_payload_t());
  log_remote_offer(remote, leg);
  log_telephone_events("Incoming", remote);
  if (!leg.connection->SetRemoteOffer(sdpOffer)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to set remote offer!");
    objects_cleanup(leg.fs_uuid.c_str());
    return SWITCH_STATUS_FALSE;
  }
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t set_remote_answer(const RemoteMedia& remote, const Leg& leg) {
  MediaConfig sdpAnswer;
  fill_remote_media(sdpAnswer, remote, leg,
                    is_described(remote.codec) ? remote.codec->implementation->ianacode : switch_payload_t());
  log_remote_answer(remote, leg);
  log_telephone_events("Outgoing", remote);
  if (!leg.connection->SetRemoteAnswer(sdpAnswer)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to set remote answer!");
    objects_cleanup(leg.fs_uuid.c_str());
    return SWITCH_STATUS_FALSE;
  }
  return SWITCH_STATUS_SUCCESS;
}

/// Where the media server relays the fax packets to: the image stream of the other leg, both ends of it.
void set_pass_thru_peer(MediaConfig& cfg, const MediaConfig& peerRemote, const MediaConfig& peerLocal) {
  cfg.SetUdpPassThruPeerRemotePort(peerRemote.GetRtpPort());
  cfg.SetUdpPassThruPeerRemoteIPAddress(peerRemote.GetIPAddress());
  cfg.SetUdpPassThruPeerLocalPort(peerLocal.GetRtpPort());
  cfg.SetUdpPassThruPeerLocalIPAddress(peerLocal.GetIPAddress());
  cfg.SetUdpPassThruPeerLocalTos(peerLocal.GetIpv4Tos());
  cfg.SetUdpPassThruPeerLocalTrafficClass(peerLocal.GetIpv6TrafficClass());
  cfg.SetUdpPassThruPeerLocalTimeToLive(peerLocal.GetIpv4TimeToLive());
  cfg.SetUdpPassThruPeerLocalHopLimit(peerLocal.GetIpv6HopLimit());
}

/// T.38: the remote answer of a leg that relays its UDP packets to the other leg. A failure leaves the leg's objects in
/// place, so that the call can go on without fax.
switch_status_t set_remote_image_answer(switch_media_connection_t* mc, const RemoteMedia& remote, const Leg& leg) {
  MediaConfig sdpAnswer;
  sdpAnswer.SetUdpPassThru();

  LockedSession peer = kvx_media_server::partner_of(static_cast<switch_core_session_t*>(mc->private_info));
  if (!peer) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Can't find peer session to setup T38 passthrough");
    return SWITCH_STATUS_FALSE;
  }
  const std::string peer_uuid = switch_core_session_get_uuid(peer.get());
  peer.reset();

  if (!kvx_media_server::find_media_session_uuid(peer_uuid)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to locate reference leg for T38 passthrough!");
    return SWITCH_STATUS_FALSE;
  }
  channel_unbridge(mc);
  const auto peer_connection = kvx_media_server::find_connection(leg.ms_uuid, peer_uuid);
  if (!peer_connection) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to locate reference leg for T38 passthrough!");
    return SWITCH_STATUS_FALSE;
  }

  MediaConfig peerRemote, peerLocal;
  peer_connection->GetRemoteImageConfig(peerRemote);
  peer_connection->GetLocalImageConfig(peerLocal);
  set_pass_thru_peer(sdpAnswer, peerRemote, peerLocal);
  sdpAnswer.SetIPAddress(remote.address);
  sdpAnswer.SetRtpPort(remote.rtp_port);
  if (!leg.connection->SetRemoteAnswer(sdpAnswer)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to set image remote answer!");
    return SWITCH_STATUS_FALSE;
  }
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

switch_status_t resolve_inet_address(const char* host, char* tmpbuf, size_t tmplen) {
  if (!host) return SWITCH_STATUS_FALSE;
  kelvaro::IpAddress literal;
  if (!literal.set(std::string(host))) return switch_resolve_host(host, tmpbuf, tmplen);
  switch_copy_string(tmpbuf, host, tmplen);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t channel_set_media(switch_media_connection_t* mc, const char* rsdp_audio_ip,
                                  switch_port_t rsdp_audio_port, switch_port_t rsdp_rtcp_port, const char* session_name,
                                  switch_codec_t* codec, int rfc2833flag, switch_payload_t rfc2833payload,
                                  int enable_silence_supp, switch_core_crypto_setting* crypto_setting,
                                  switch_bool_t enable_udp_passthru, switch_sdp_negotiation_state_t sdpOAState,
                                  switch_bool_t enable_remote_address_detect, switch_bool_t enable_cng_supp,
                                  switch_bool_t enable_sid) {
  switch_assert(mc != NULL);
  switch_core_session_t* session = static_cast<switch_core_session_t*>(mc->private_info);
  const char* fsuuid = switch_core_session_get_uuid(session);
  switch_channel_t* chan = switch_core_session_get_channel(session);
  switch_assert(chan != NULL);

  const auto leg = kvx_media_server::find_leg(fsuuid, kMessages);
  if (!leg) return SWITCH_STATUS_FALSE;
  if (enable_remote_address_detect) leg->connection->SetRemoteAddressDetection();

  RemoteMedia remote = {rsdp_audio_ip,  rsdp_audio_port,     rsdp_rtcp_port, session_name,    codec,      rfc2833flag,
                        rfc2833payload, enable_silence_supp, crypto_setting, enable_cng_supp, enable_sid, {}};
  switch (sdpOAState) {
    case SWITCH_SDP_OFFER_RECEIVED:
    case SWITCH_SDP_ANSWER_SENT:
      return set_remote_offer(remote, *leg, enable_udp_passthru != 0);

    case SWITCH_SDP_ANSWER_RECEIVED:
      if (!resolve(remote, *leg)) return SWITCH_STATUS_FALSE;
      return enable_udp_passthru ? set_remote_image_answer(mc, remote, *leg) : set_remote_answer(remote, *leg);

    default:
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                        "Attempt to set remote SDP in an invalid SDP state %d. \n", static_cast<int>(sdpOAState));
      return SWITCH_STATUS_FALSE;
  }
}
