#pragma once

/// Media kept outside the switch: a module that registers this interface carries the media of every leg, and the switch
/// does the signalling alone. The callbacks for one leg all come on that leg's thread. Order: create once, then any
/// number of get_media, set_media, bridge and unbridge, then destroy once, also when an earlier one failed.

#include "switch_module_interfaces.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

/// One more kind of interface, beyond those of switch_module_interface_name_t.
static const switch_module_interface_name_t SWITCH_MEDIA_SERVER_INTERFACE = (switch_module_interface_name_t)31;

/// Where a leg is in the exchange of session descriptions (RFC 3264).
typedef enum {
  SWITCH_SDP_STATE_UNKNOWN = 0,
  SWITCH_SDP_OFFER_RECEIVED = 1,
  SWITCH_SDP_OFFER_SENT = 2,
  SWITCH_SDP_ANSWER_RECEIVED = 3,
  SWITCH_SDP_ANSWER_SENT = 4,
  SWITCH_SDP_COMPLETED = 5
} switch_sdp_negotiation_state_t;

/// Which way media goes across a bridge, seen from the leg that bridges.
typedef enum { RTPDIR_DUPLEX = 0, RTPDIR_RECEIVE = 1, RTPDIR_SEND = 2, RTPDIR_INACTIVE = 3 } RTPDirection;

#define SWITCH_CORE_CRYPTO_RAW_KEY_LENGTH 30

/// SDES keys of one direction (RFC 4568).
typedef struct switch_core_crypto_setting {
  int crypto_type;  ///< 1: AES_CM_128_HMAC_SHA1_80; 2: AES_CM_128_HMAC_SHA1_32; anything else: none
  unsigned char crypto_raw_key[SWITCH_CORE_CRYPTO_RAW_KEY_LENGTH];  ///< master key, 16 bytes, and salt, 14
  int crypto_mandatory;
  int crypto_lifetime_exponent;       ///< packets per key, as a power of 2; 0 when not given
  const char* crypto_mki_length_str;  ///< "value:length" of the MKI, borrowed for the call; null when not given
} switch_core_crypto_setting;

typedef struct switch_media_server_interface switch_media_server_interface_t;

/// A leg's media, embedded in its session.
typedef struct switch_media_connection {
  switch_media_server_interface_t* media_server_interface;  ///< null until the leg takes a media server
  void* private_info;                                       ///< the interface's own, null before create
} switch_media_connection_t;

typedef switch_status_t (*switch_media_server_create_func_t)(switch_media_connection_t* mc,
                                                             switch_core_session_t* session);
typedef switch_status_t (*switch_media_server_destroy_func_t)(switch_media_connection_t* mc);
typedef switch_status_t (*switch_media_server_replace_func_t)(switch_media_connection_t* mc,
                                                              switch_core_session_t* session);
/// `ip_addr` receives the local address, or "local,public"; `out_port` the RTP port in host order.
typedef switch_status_t (*switch_media_server_get_media_func_t)(
    switch_media_connection_t* mc, const switch_codec_implementation_t** codecs, int num_codecs,
    switch_codec_t* answer_codec, switch_bool_t default_inband_to_rfc2833_conversion, int rfc2833flag,
    switch_payload_t rfc2833payload, int enable_silence_supp, char* ip_addr, int ip_addr_size, switch_port_t* out_port,
    switch_core_crypto_setting* crypto_setting, switch_bool_t enable_udp_passthru,
    switch_sdp_negotiation_state_t sdp_state, uint8_t ipv4_tos, uint8_t ipv6_tc, uint8_t hop, int support_g729_annexb,
    switch_bool_t enable_cng_supp, switch_bool_t enable_sid, uint32_t rtp_timeout_sec,
    switch_bool_t enable_auto_local_port_renew, int enable_asymmetric_dynamic_payload);
typedef switch_status_t (*switch_media_server_bridge_func_t)(switch_media_connection_t* mc, RTPDirection direction);
typedef switch_status_t (*switch_media_server_unbridge_func_t)(switch_media_connection_t* mc);
/// `rtcp_port` 0: not given. `codec` and `crypto_setting` may be null.
typedef switch_status_t (*switch_media_server_set_media_func_t)(
    switch_media_connection_t* mc, const char* remote_audio_ip, switch_port_t remote_audio_port,
    switch_port_t remote_rtcp_port, const char* session_name, switch_codec_t* codec, int rfc2833flag,
    switch_payload_t rfc2833payload, int enable_silence_supp, switch_core_crypto_setting* crypto_setting,
    switch_bool_t enable_udp_passthru, switch_sdp_negotiation_state_t sdp_state,
    switch_bool_t enable_remote_address_detect, switch_bool_t enable_cng_supp, switch_bool_t enable_sid);
typedef switch_bool_t (*switch_media_server_is_available_func_t)(void);

struct switch_media_server_interface {
  const char* interface_name;
  switch_media_server_create_func_t create;
  switch_media_server_destroy_func_t destroy;
  switch_media_server_replace_func_t replace;  ///< not called by this switch
  switch_media_server_get_media_func_t get_media;
  switch_media_server_bridge_func_t bridge;
  switch_media_server_unbridge_func_t unbridge;
  switch_media_server_set_media_func_t set_media;
  switch_media_server_is_available_func_t is_available;
  switch_thread_rwlock_t* rwlock;
  int refs;  // guarded by reflock
  switch_mutex_t* reflock;
  switch_loadable_module_interface_t* parent;
  struct switch_media_server_interface* next;
};

/// Never null; lives with the session.
SWITCH_DECLARE(switch_media_connection_t*)
switch_core_session_get_media_connection(switch_core_session_t* session);

SWITCH_END_EXTERN_C
