#include <g711.h>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/tokenizer.hpp>
#include <cstring>
#include <string>

#include "codecs.h"

namespace {

constexpr switch_payload_t kPcmu = 0;
constexpr switch_payload_t kPcma = 8;

switch_status_t g711_init(switch_codec_flag_t flags) {
  return (flags & (SWITCH_CODEC_FLAG_ENCODE | SWITCH_CODEC_FLAG_DECODE)) != 0 ? SWITCH_STATUS_SUCCESS
                                                                              : SWITCH_STATUS_FALSE;
}

template <typename Compress>
switch_status_t g711_encode(Compress compress, const void* decoded_data, uint32_t decoded_data_len, void* encoded_data,
                            uint32_t* encoded_data_len) {
  const int16_t* linear = static_cast<const int16_t*>(decoded_data);
  uint8_t* encoded = static_cast<uint8_t*>(encoded_data);
  const uint32_t samples = decoded_data_len / sizeof(int16_t);
  for (uint32_t i = 0; i < samples; ++i) encoded[i] = compress(linear[i]);
  *encoded_data_len = samples;
  return SWITCH_STATUS_SUCCESS;
}

template <typename Expand>
switch_status_t g711_decode(Expand expand, const switch_codec_t* codec, const void* encoded_data,
                            uint32_t encoded_data_len, void* decoded_data, uint32_t* decoded_data_len,
                            const unsigned int* flag) {
  if ((*flag & SWITCH_CODEC_FLAG_SILENCE) != 0) {
    *decoded_data_len = codec->implementation->decoded_bytes_per_packet;
    std::memset(decoded_data, 0, *decoded_data_len);
    return SWITCH_STATUS_SUCCESS;
  }
  const uint8_t* encoded = static_cast<const uint8_t*>(encoded_data);
  int16_t* linear = static_cast<int16_t*>(decoded_data);
  for (uint32_t i = 0; i < encoded_data_len; ++i) linear[i] = expand(encoded[i]);
  *decoded_data_len = encoded_data_len * static_cast<uint32_t>(sizeof(int16_t));
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t refuse_conversion(const switch_codec_t* codec) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Codec %s is only usable in pass through mode!\n",
                    codec->implementation->iananame);
  return SWITCH_STATUS_FALSE;
}

void apply_fmtp_parameter(const std::string& name, const std::string& value, switch_codec_fmtp_t& codec_fmtp) {
  int number = 0;
  if (!boost::conversion::try_lexical_convert(value, number) || number <= 0) return;
  if (boost::algorithm::iequals(name, "bitrate")) {
    codec_fmtp.bits_per_second = number;
  } else if (boost::algorithm::iequals(name, "mode") && (number == 20 || number == 30)) {
    codec_fmtp.microseconds_per_packet = number * 1000;
  }
}

}  // namespace

switch_status_t switch_fmtp_parse(const char* fmtp, switch_codec_fmtp_t* codec_fmtp) {
  if (fmtp == nullptr || codec_fmtp == nullptr) return SWITCH_STATUS_FALSE;
  std::memset(codec_fmtp, 0, sizeof(*codec_fmtp));
  const std::string text(fmtp);
  for (const std::string& parameter :
       boost::tokenizer<boost::char_separator<char>>(text, boost::char_separator<char>(";"))) {
    const std::string::size_type equals = parameter.find('=');
    if (equals == std::string::npos) continue;
    apply_fmtp_parameter(boost::algorithm::trim_copy(parameter.substr(0, equals)),
                         boost::algorithm::trim_copy(parameter.substr(equals + 1)), *codec_fmtp);
  }
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t g711u_init(switch_codec_t*, switch_codec_flag_t flags, const switch_codec_settings_t*) {
  return g711_init(flags);
}

switch_status_t g711u_encode(switch_codec_t*, switch_codec_t*, void* decoded_data, uint32_t decoded_data_len, uint32_t,
                             void* encoded_data, uint32_t* encoded_data_len, uint32_t*, unsigned int*) {
  return g711_encode(linear_to_ulaw, decoded_data, decoded_data_len, encoded_data, encoded_data_len);
}

switch_status_t g711u_decode(switch_codec_t* codec, switch_codec_t*, void* encoded_data, uint32_t encoded_data_len,
                             uint32_t, void* decoded_data, uint32_t* decoded_data_len, uint32_t*, unsigned int* flag) {
  return g711_decode(ulaw_to_linear, codec, encoded_data, encoded_data_len, decoded_data, decoded_data_len, flag);
}

switch_status_t g711u_destroy(switch_codec_t*) {
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t g711a_init(switch_codec_t*, switch_codec_flag_t flags, const switch_codec_settings_t*) {
  return g711_init(flags);
}

switch_status_t g711a_encode(switch_codec_t*, switch_codec_t*, void* decoded_data, uint32_t decoded_data_len, uint32_t,
                             void* encoded_data, uint32_t* encoded_data_len, uint32_t*, unsigned int*) {
  return g711_encode(linear_to_alaw, decoded_data, decoded_data_len, encoded_data, encoded_data_len);
}

switch_status_t g711a_decode(switch_codec_t* codec, switch_codec_t*, void* encoded_data, uint32_t encoded_data_len,
                             uint32_t, void* decoded_data, uint32_t* decoded_data_len, uint32_t*, unsigned int* flag) {
  return g711_decode(alaw_to_linear, codec, encoded_data, encoded_data_len, decoded_data, decoded_data_len, flag);
}

switch_status_t g711a_destroy(switch_codec_t*) {
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t dummy_codec_init(switch_codec_t* codec, switch_codec_flag_t flags,
                                 const switch_codec_settings_t* codec_settings) {
  switch (codec->implementation->ianacode) {
    case kPcmu:
      return g711u_init(codec, flags, codec_settings);
    case kPcma:
      return g711a_init(codec, flags, codec_settings);
    default:
      switch_set_flag(codec, SWITCH_CODEC_FLAG_PASSTHROUGH);
      if (codec->fmtp_in != nullptr) codec->fmtp_out = switch_core_strdup(codec->memory_pool, codec->fmtp_in);
      return SWITCH_STATUS_SUCCESS;
  }
}

switch_status_t dummy_codec_encode(switch_codec_t* codec, switch_codec_t* other_codec, void* decoded_data,
                                   uint32_t decoded_data_len, uint32_t decoded_rate, void* encoded_data,
                                   uint32_t* encoded_data_len, uint32_t* encoded_rate, unsigned int* flag) {
  switch (codec->implementation->ianacode) {
    case kPcmu:
      return g711u_encode(codec, other_codec, decoded_data, decoded_data_len, decoded_rate, encoded_data,
                          encoded_data_len, encoded_rate, flag);
    case kPcma:
      return g711a_encode(codec, other_codec, decoded_data, decoded_data_len, decoded_rate, encoded_data,
                          encoded_data_len, encoded_rate, flag);
    default:
      return refuse_conversion(codec);
  }
}

switch_status_t dummy_codec_decode(switch_codec_t* codec, switch_codec_t* other_codec, void* encoded_data,
                                   uint32_t encoded_data_len, uint32_t encoded_rate, void* decoded_data,
                                   uint32_t* decoded_data_len, uint32_t* decoded_rate, unsigned int* flag) {
  switch (codec->implementation->ianacode) {
    case kPcmu:
      return g711u_decode(codec, other_codec, encoded_data, encoded_data_len, encoded_rate, decoded_data,
                          decoded_data_len, decoded_rate, flag);
    case kPcma:
      return g711a_decode(codec, other_codec, encoded_data, encoded_data_len, encoded_rate, decoded_data,
                          decoded_data_len, decoded_rate, flag);
    default:
      return refuse_conversion(codec);
  }
}

switch_status_t dummy_codec_destroy(switch_codec_t* codec) {
  switch (codec->implementation->ianacode) {
    case kPcmu:
      return g711u_destroy(codec);
    case kPcma:
      return g711a_destroy(codec);
    default:
      return SWITCH_STATUS_SUCCESS;
  }
}
