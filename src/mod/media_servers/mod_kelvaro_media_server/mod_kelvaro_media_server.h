#pragma once

// What the module's files share: the switch's headers, the registries, and the callbacks that the switch calls.

#include <switch.h>
#if __has_include(<switch_media_server.h>)
#include <switch_media_server.h>  // a switch built with the interface brings these names in switch.h itself
#endif

#include <boost/uuid/uuid.hpp>
#include <cstdint>
#include <vector>

#include "fs_uuid_table.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"
#include "media_server_lost_listener.h"
#include "media_session_table.h"
#include "mod_global.h"
#include "module_log.h"
#include "network_connection_node.h"

// The callbacks of the media-server interface. They run on the session's own thread; the leg's session is the
// connection's private_info. They never throw.

switch_status_t channel_create(switch_media_connection_t* mc, switch_core_session_t* sess);
switch_status_t channel_destroy(switch_media_connection_t* mc);
switch_status_t channel_get_media(switch_media_connection_t* mc, const switch_codec_implementation_t** codecs,
                                  int num_codecs, switch_codec_t* answer_codec,
                                  switch_bool_t default_inband_to_rfc2833_conversion, int rfc2833flag,
                                  switch_payload_t rfc2833payload, int enable_silence_supp, char* ip_addr,
                                  int ip_addr_size, switch_port_t* out_port, switch_core_crypto_setting* crypto_setting,
                                  switch_bool_t enable_udp_passthru, switch_sdp_negotiation_state_t sdpOAState,
                                  uint8_t ipv4_tos, uint8_t ipv6_tc, uint8_t hop, int support_g729_annexb,
                                  switch_bool_t enable_cng_supp, switch_bool_t enable_sid, uint32_t rtp_timeout_sec,
                                  switch_bool_t enable_auto_local_port_renew, int enable_asymmetric_dynamic_payload);
switch_status_t channel_set_media(switch_media_connection_t* mc, const char* rsdp_audio_ip,
                                  switch_port_t rsdp_audio_port, switch_port_t rsdp_rtcp_port, const char* session_name,
                                  switch_codec_t* codec, int rfc2833flag, switch_payload_t rfc2833payload,
                                  int enable_silence_supp, switch_core_crypto_setting* crypto_setting,
                                  switch_bool_t enable_udp_passthru, switch_sdp_negotiation_state_t sdpOAState,
                                  switch_bool_t enable_remote_address_detect, switch_bool_t enable_cng_supp,
                                  switch_bool_t enable_sid);
switch_status_t channel_bridge(switch_media_connection_t* mc, RTPDirection joinmode);
switch_status_t channel_unbridge(switch_media_connection_t* mc);
/// Whether a new call would find a media server; false while the module is not up.
switch_bool_t media_server_is_available();

// Steps of the callbacks that others of them use.

switch_status_t handle_leg_no_ref_channel_create(switch_media_connection_t* mc);
switch_status_t handle_leg_with_ref_channel_create(switch_media_connection_t* mc, const boost::uuids::uuid& ms_uuid);
switch_status_t handle_leg_with_ref_mc_channel_create(switch_media_connection_t* mc, switch_media_connection_t* ref_mc);

/// Undoes the creation of a leg and of its partner: closes their connections and takes both out of the tables. Does
/// nothing for null. Takes the legs' session records' mutexes one after the other: hold none when calling.
void objects_cleanup(const char* fs_uuid);

/// 1 for "AMR" and "AMR-WB" in any case, else 0.
int codec_belongs_to_amr_suite(const char* codec);
/// 1 when the fmtp text holds an octet-align that is not zero, else 0; null is 0.
int amr_codec_is_octet_align(const char* fmtp);

void get_jitterbuffer_msec(const char* jitter_buffer_str, int32_t& first_num, int32_t& second_num, int32_t& third_num);
void get_jitterbuffer_settings(kelvaro::jsr309::MediaConfig& cfg, switch_channel_t* chan);

switch_status_t resolve_inet_address(const char* host, char* tmpbuf, size_t tmplen);

void distribute_rtcpstats_event(const char* uuid, const kelvaro::jsr309::RtcpStatsReport* rtcpstats,
                                const char* localrtpip, const char* remotertpip, const char* time_start,
                                const char* mycodec, unsigned mycodecrate);

/// Hangs up every leg of the given media sessions, one at a time with a short rest in between.
void HangupAllMSCalls(std::vector<boost::uuids::uuid>& msuuids);
