#pragma once

/// Codecs: a module lists implementations under an interface, a leg initialises one of them. Rates are in Hz and bits
/// per second, packet times in microseconds at registration and milliseconds at initialisation.

#include "switch_log.h"
#include "switch_module_interfaces.h"
#include "switch_types.h"
#include "switch_utils.h"

SWITCH_BEGIN_EXTERN_C

SWITCH_DECLARE(void*)
switch_core_perform_alloc(switch_memory_pool_t* pool, switch_size_t memory, const char* file, const char* func,
                          int line);
SWITCH_DECLARE(char*)
switch_core_perform_strdup(switch_memory_pool_t* pool, const char* todup, const char* file, const char* func, int line);

/// One counter for interfaces and implementations alike, from 1.
SWITCH_DECLARE(uint32_t) switch_core_codec_next_id(void);

/// Copies `fmtp` into fmtp_in, calls the implementation's init with `flags` and marks the codec ready. 0 means any
/// rate, packet time, channel count or bit rate. Without `pool` the codec makes one of its own.
SWITCH_DECLARE(switch_status_t)
switch_core_codec_init_with_bitrate(switch_codec_t* codec, const char* codec_name, const char* modname,
                                    const char* fmtp, uint32_t rate, int ms, int channels, uint32_t bitrate,
                                    uint32_t flags, const switch_codec_settings_t* codec_settings,
                                    switch_memory_pool_t* pool);
#define switch_core_codec_init(_codec, _name, _modname, _fmtp, _rate, _ms, _channels, _flags, _settings, _pool)    \
  switch_core_codec_init_with_bitrate(_codec, _name, _modname, _fmtp, _rate, _ms, _channels, 0, _flags, _settings, \
                                      _pool)

SWITCH_DECLARE(switch_status_t)
switch_core_codec_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                         uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                         uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag);
SWITCH_DECLARE(switch_status_t)
switch_core_codec_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                         uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                         uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag);
/// Asks the interface's parser; FALSE when there is no such codec or it has none.
SWITCH_DECLARE(switch_status_t)
switch_core_codec_parse_fmtp(const char* codec_name, const char* fmtp, uint32_t rate, switch_codec_fmtp_t* codec_fmtp);
SWITCH_DECLARE(switch_status_t)
switch_core_codec_copy(switch_codec_t* codec, switch_codec_t* new_codec, const switch_codec_settings_t* codec_settings,
                       switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_core_codec_reset(switch_codec_t* codec);
SWITCH_DECLARE(switch_status_t) switch_core_codec_destroy(switch_codec_t* codec);

static inline switch_bool_t switch_core_codec_ready(switch_codec_t* codec) {
  return codec && switch_test_flag(codec, SWITCH_CODEC_FLAG_READY) && codec->mutex && codec->codec_interface &&
                 codec->implementation
             ? SWITCH_TRUE
             : SWITCH_FALSE;
}

/// Lists one more implementation, at the head. Refused with a CRIT line, and not otherwise visible to the caller, when
/// a decoded packet would not fit a buffer or the packet time is not one that the rate may have. `fmtp` may be null;
/// texts are copied.
static inline void switch_core_codec_add_implementation(
    switch_memory_pool_t* pool, switch_codec_interface_t* codec_interface, const switch_codec_type_t codec_type,
    switch_payload_t ianacode, const char* iananame, char* fmtp, uint32_t samples_per_second,
    uint32_t actual_samples_per_second, int bits_per_second, int microseconds_per_packet, uint32_t samples_per_packet,
    uint32_t decoded_bytes_per_packet, uint32_t encoded_bytes_per_packet, uint8_t number_of_channels,
    int codec_frames_per_packet, switch_core_codec_init_func_t init, switch_core_codec_encode_func_t encode,
    switch_core_codec_decode_func_t decode, switch_core_codec_destroy_func_t destroy) {
  switch_codec_implementation_t* implementation;

  if (decoded_bytes_per_packet > SWITCH_RECOMMENDED_BUFFER_SIZE) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT,
                      "Rejected codec name: %s rate: %u ptime: %d, not enough buffer space %u > %d\n", iananame,
                      actual_samples_per_second, microseconds_per_packet / 1000, decoded_bytes_per_packet,
                      SWITCH_RECOMMENDED_BUFFER_SIZE);
    return;
  }
  if (codec_type != SWITCH_CODEC_TYPE_VIDEO &&
      !switch_check_interval(actual_samples_per_second, (uint32_t)(microseconds_per_packet / 1000))) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "Rejected codec name: %s rate: %u ptime: %d channels: %d\n",
                      iananame, actual_samples_per_second, microseconds_per_packet / 1000, number_of_channels);
    return;
  }

  implementation = (switch_codec_implementation_t*)switch_core_perform_alloc(pool, sizeof(*implementation), __FILE__,
                                                                             __SWITCH_FUNC__, __LINE__);
  implementation->codec_type = codec_type;
  implementation->ianacode = ianacode;
  implementation->iananame = switch_core_perform_strdup(pool, iananame, __FILE__, __SWITCH_FUNC__, __LINE__);
  implementation->fmtp = switch_core_perform_strdup(pool, fmtp, __FILE__, __SWITCH_FUNC__, __LINE__);
  implementation->samples_per_second = samples_per_second;
  implementation->actual_samples_per_second = actual_samples_per_second;
  implementation->bits_per_second = bits_per_second;
  implementation->microseconds_per_packet = microseconds_per_packet;
  implementation->samples_per_packet = samples_per_packet;
  implementation->decoded_bytes_per_packet = decoded_bytes_per_packet;
  implementation->encoded_bytes_per_packet = encoded_bytes_per_packet;
  implementation->number_of_channels = number_of_channels;
  implementation->codec_frames_per_packet = codec_frames_per_packet;
  implementation->init = init;
  implementation->encode = encode;
  implementation->decode = decode;
  implementation->destroy = destroy;
  implementation->codec_id = codec_interface->codec_id;
  implementation->impl_id = switch_core_codec_next_id();
  implementation->modname = codec_interface->modname;
  implementation->next = codec_interface->implementations;
  codec_interface->implementations = implementation;
}

SWITCH_END_EXTERN_C
