#include <atomic>
#include <string>

#include <switch.h>

#include "core/guard.h"

namespace {

/// Runs a function of a codec's module; an exception stops here.
template <typename Function>
switch_status_t guarded(const char* codec_name, Function function) {
  switch_status_t status = SWITCH_STATUS_GENERR;
  std::string what;
  if (kvx_switch::RunGuarded([&] { status = function(); }, what)) return status;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the codec %s: %s\n",
                    switch_str_nil(codec_name), what.c_str());
  return SWITCH_STATUS_GENERR;
}

struct Wanted {
  const char* name;
  uint32_t rate;
  int milliseconds;
  int channels;
  uint32_t bitrate;

  bool Fits(const switch_codec_implementation_t& implementation) const {
    if (!implementation.iananame || strcasecmp(implementation.iananame, name)) return false;
    if (rate && rate != implementation.samples_per_second) return false;
    if (milliseconds && milliseconds != implementation.microseconds_per_packet / 1000) return false;
    if (channels && channels != implementation.number_of_channels) return false;
    return !bitrate || static_cast<int>(bitrate) == implementation.bits_per_second;
  }
};

const switch_codec_implementation_t* find(const switch_codec_interface_t& interface, const Wanted& wanted) {
  for (const auto* at = interface.implementations; at; at = at->next) {
    if (wanted.Fits(*at)) return at;
  }
  return nullptr;
}

/// Gives back what a codec holds, in whatever state it is.
void release(switch_codec_t* codec) {
  UNPROTECT_INTERFACE(codec->codec_interface);
  switch_memory_pool_t* own_pool = switch_test_flag(codec, SWITCH_CODEC_FLAG_FREE_POOL) ? codec->memory_pool : nullptr;
  memset(codec, 0, sizeof(*codec));
  if (own_pool) switch_core_destroy_memory_pool(&own_pool);
}

/// Takes over the protection of `interface`.
switch_status_t start(switch_codec_t* codec, switch_codec_interface_t* interface,
                      const switch_codec_implementation_t* implementation, const char* fmtp, uint32_t flags,
                      const switch_codec_settings_t* settings, switch_memory_pool_t* pool) {
  memset(codec, 0, sizeof(*codec));
  codec->codec_interface = interface;
  codec->implementation = implementation;
  codec->flags = flags & ~static_cast<uint32_t>(SWITCH_CODEC_FLAG_FREE_POOL | SWITCH_CODEC_FLAG_READY);
  codec->memory_pool = pool;
  if (!pool) {
    if (switch_core_new_memory_pool(&codec->memory_pool) != SWITCH_STATUS_SUCCESS) {
      release(codec);
      return SWITCH_STATUS_MEMERR;
    }
    switch_set_flag(codec, SWITCH_CODEC_FLAG_FREE_POOL);
  }
  codec->fmtp_in = switch_core_strdup(codec->memory_pool, fmtp);
  switch_mutex_init(&codec->mutex, SWITCH_MUTEX_NESTED, codec->memory_pool);
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  if (implementation->init) {
    status = guarded(implementation->iananame, [&] { return implementation->init(codec, flags, settings); });
  }
  if (status != SWITCH_STATUS_SUCCESS) {
    release(codec);
    return status;
  }
  switch_set_flag(codec, SWITCH_CODEC_FLAG_READY);
  return SWITCH_STATUS_SUCCESS;
}

class CodecLock {
 public:
  explicit CodecLock(switch_mutex_t* mutex) : mutex_(mutex) { switch_mutex_lock(mutex_); }
  ~CodecLock() { switch_mutex_unlock(mutex_); }
  CodecLock(const CodecLock&) = delete;
  CodecLock& operator=(const CodecLock&) = delete;

 private:
  switch_mutex_t* const mutex_;
};

}  // namespace

uint32_t switch_core_codec_next_id(void) {
  static std::atomic<uint32_t> last{0};
  return ++last;
}

switch_status_t switch_core_codec_init_with_bitrate(switch_codec_t* codec, const char* codec_name, const char* modname,
                                                    const char* fmtp, uint32_t rate, int ms, int channels,
                                                    uint32_t bitrate, uint32_t flags,
                                                    const switch_codec_settings_t* codec_settings,
                                                    switch_memory_pool_t* pool) {
  if (!codec || zstr(codec_name)) return SWITCH_STATUS_FALSE;
  switch_codec_interface_t* interface = switch_loadable_module_get_codec_interface(codec_name, modname);
  if (!interface) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "There is no codec %s\n", codec_name);
    memset(codec, 0, sizeof(*codec));
    return SWITCH_STATUS_GENERR;
  }
  const auto* implementation = find(*interface, Wanted{codec_name, rate, ms, channels, bitrate});
  if (!implementation) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Codec %s has no implementation at %u Hz, %d ms, %u bit/s\n", codec_name, rate, ms, bitrate);
    UNPROTECT_INTERFACE(interface);
    memset(codec, 0, sizeof(*codec));
    return SWITCH_STATUS_NOTIMPL;
  }
  return start(codec, interface, implementation, fmtp, flags, codec_settings, pool);
}

switch_status_t switch_core_codec_copy(switch_codec_t* codec, switch_codec_t* new_codec,
                                       const switch_codec_settings_t* codec_settings, switch_memory_pool_t* pool) {
  if (!switch_core_codec_ready(codec) || !new_codec) return SWITCH_STATUS_FALSE;
  const uint32_t flags = codec->flags & (SWITCH_CODEC_FLAG_ENCODE | SWITCH_CODEC_FLAG_DECODE);
  switch_codec_interface_t* interface = codec->codec_interface;
  PROTECT_INTERFACE(interface);
  const switch_status_t status =
      start(new_codec, interface, codec->implementation, codec->fmtp_in, flags, codec_settings, pool);
  if (status == SWITCH_STATUS_SUCCESS) {
    new_codec->agreed_pt = codec->agreed_pt;
    if (codec->fmtp_out && !new_codec->fmtp_out) {
      new_codec->fmtp_out = switch_core_strdup(new_codec->memory_pool, codec->fmtp_out);
    }
  }
  return status;
}

switch_status_t switch_core_codec_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                                         uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                                         uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag) {
  if (!switch_core_codec_ready(codec)) return SWITCH_STATUS_NOT_INITALIZED;
  if (!codec->implementation->encode) return SWITCH_STATUS_NOTIMPL;
  const CodecLock lock(codec->mutex);
  return guarded(codec->implementation->iananame, [&] {
    return codec->implementation->encode(codec, other_codec, decoded_data, decoded_data_len, decoded_rate, encoded_data,
                                         encoded_data_len, encoded_rate, flag);
  });
}

switch_status_t switch_core_codec_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                                         uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                                         uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag) {
  if (!switch_core_codec_ready(codec)) return SWITCH_STATUS_NOT_INITALIZED;
  if (!codec->implementation->decode) return SWITCH_STATUS_NOTIMPL;
  const CodecLock lock(codec->mutex);
  return guarded(codec->implementation->iananame, [&] {
    return codec->implementation->decode(codec, other_codec, encoded_data, encoded_data_len, encoded_rate, decoded_data,
                                         decoded_data_len, decoded_rate, flag);
  });
}

switch_status_t switch_core_codec_parse_fmtp(const char* codec_name, const char* fmtp, uint32_t,
                                             switch_codec_fmtp_t* codec_fmtp) {
  if (zstr(codec_name) || !codec_fmtp) return SWITCH_STATUS_FALSE;
  memset(codec_fmtp, 0, sizeof(*codec_fmtp));
  switch_codec_interface_t* interface = switch_loadable_module_get_codec_interface(codec_name, nullptr);
  switch_status_t status = SWITCH_STATUS_FALSE;
  if (interface && interface->parse_fmtp) {
    status = guarded(codec_name, [&] { return interface->parse_fmtp(fmtp, codec_fmtp); });
  }
  UNPROTECT_INTERFACE(interface);
  return status;
}

switch_status_t switch_core_codec_reset(switch_codec_t* codec) {
  if (!switch_core_codec_ready(codec)) return SWITCH_STATUS_NOT_INITALIZED;
  const switch_codec_implementation_t* implementation = codec->implementation;
  const CodecLock lock(codec->mutex);
  return guarded(implementation->iananame, [&] {
    if (implementation->destroy) implementation->destroy(codec);
    return implementation->init ? implementation->init(codec, codec->flags, nullptr) : SWITCH_STATUS_SUCCESS;
  });
}

switch_status_t switch_core_codec_destroy(switch_codec_t* codec) {
  if (!switch_core_codec_ready(codec)) return SWITCH_STATUS_NOT_INITALIZED;
  if (codec->implementation->destroy) {
    guarded(codec->implementation->iananame, [&] { return codec->implementation->destroy(codec); });
  }
  release(codec);
  return SWITCH_STATUS_SUCCESS;
}
