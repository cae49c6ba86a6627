#pragma once

// The codecs that the media server carries, as the switch offers and accepts them.

#include <switch.h>

#include <boost/property_tree/ptree_fwd.hpp>

/// One way of a codec that the media server carries. Entries of one name differ in their rates.
struct media_server_codec {
  int codec_id;  ///< our own number; -1 ends the catalogue
  int iana;      ///< payload type
  const char* iana_name;
  const char* fs_name;       ///< of the interface registered with the switch
  int maxms;                 ///< longest packet, milliseconds
  int bps;                   ///< bits per second
  int mpf;                   ///< microseconds per frame
  int spf;                   ///< samples per frame
  int bpfd;                  ///< decoded bytes per frame
  int bpfc;                  ///< encoded bytes per frame
  int sampling_rate;         ///< Hz, as SDP says it
  int actual_sampling_rate;  ///< Hz
  int autoinit;              ///< 1: implementations by the generic rule; 0: by a rule of its own
  int iananame_check_only;   ///< 1: configured by name; 0: sampling rate and bit rate must match too
  int to_load;               ///< set by the intersection with the configuration
};

/// Written by the module's load only.
extern media_server_codec g_codec_map[];

/// Marks nothing to be loaded.
void reset_codec_catalogue();
/// The first entry with that number; null when there is none.
const media_server_codec* get_codec_from_id(int id);

/// Marks the entries that the control library's configuration lists below "jsr309.media.codec.audio". Always true.
bool mscodec_intersectwith_morvanecodec(const boost::property_tree::ptree& tree);

/// Registers the marked entries, each with its packet times; a pair of entries shares one interface.
void mod_media_server_load_codec(switch_loadable_module_interface_t* module_interface, switch_memory_pool_t* pool,
                                 switch_codec_interface_t* codec_interface, switch_core_codec_init_func_t init,
                                 switch_core_codec_encode_func_t encode, switch_core_codec_decode_func_t decode,
                                 switch_core_codec_destroy_func_t destroy);

/// Fills the record from an fmtp text: "bitrate" and, as iLBC has it, "mode" of 20 or 30. What it does not know is
/// passed over. SWITCH_STATUS_FALSE for a null argument.
switch_status_t switch_fmtp_parse(const char* fmtp, switch_codec_fmtp_t* codec_fmtp);

// What every registered codec is called by: G.711 is converted by the callbacks further below, everything else only
// passes through.

switch_status_t dummy_codec_init(switch_codec_t* codec, switch_codec_flag_t flags,
                                 const switch_codec_settings_t* codec_settings);
switch_status_t dummy_codec_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                                   uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                                   uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag);
switch_status_t dummy_codec_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                                   uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                                   uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag);
switch_status_t dummy_codec_destroy(switch_codec_t* codec);

// ITU-T G.711, mu-law and A-law. A packet flagged as silence decodes to zeroes of the implementation's decoded size.

switch_status_t g711u_init(switch_codec_t* codec, switch_codec_flag_t flags,
                           const switch_codec_settings_t* codec_settings);
switch_status_t g711u_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                             uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                             uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag);
switch_status_t g711u_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                             uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                             uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag);
switch_status_t g711u_destroy(switch_codec_t* codec);

switch_status_t g711a_init(switch_codec_t* codec, switch_codec_flag_t flags,
                           const switch_codec_settings_t* codec_settings);
switch_status_t g711a_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                             uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                             uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag);
switch_status_t g711a_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                             uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                             uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag);
switch_status_t g711a_destroy(switch_codec_t* codec);
