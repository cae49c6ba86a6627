#include "media_config_fill.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::MediaConfig;

int codec_belongs_to_amr_suite(const char* codec) {
  return codec && (strcasecmp(codec, "AMR") == 0 || strcasecmp(codec, "AMR-WB") == 0) ? 1 : 0;
}

int amr_codec_is_octet_align(const char* fmtp) {
  if (!fmtp) return 0;
  const std::unique_ptr<char, void (*)(void*)> fmtp_dup(strdup(fmtp), std::free);
  switch_assert(fmtp_dup);

  char* pieces[10] = {};
  const unsigned count = switch_separate_string(fmtp_dup.get(), ';', pieces, sizeof(pieces) / sizeof(pieces[0]));
  for (unsigned i = 0; i < count; ++i) {
    char* data = pieces[i];
    switch_assert(data);
    while (*data == ' ') ++data;
    char* value = std::strchr(data, '=');
    if (!value) continue;
    *value++ = '\0';
    if (strcasecmp(data, "octet-align") == 0) return std::atoi(value) != 0 ? 1 : 0;
  }
  return 0;
}

namespace kvx_media_server {

namespace {

/// SRTP master key, 16 bytes, and master salt, 14 (RFC 3711, section 8.2).
const int kCryptoKeyLength = 30;

/// The switch's numbers for the suites.
enum CryptoType { kAesCm128HmacSha1_80 = 1, kAesCm128HmacSha1_32 = 2 };

const char* suite_of(int crypto_type) {
  switch (crypto_type) {
    case kAesCm128HmacSha1_80:
      return "AES_CM_128_HMAC_SHA1_80";
    case kAesCm128HmacSha1_32:
      return "AES_CM_128_HMAC_SHA1_32";
    default:
      return NULL;
  }
}

}  // namespace

bool is_named(const switch_codec_t& codec, const char* name) {
  return strcasecmp(switch_str_nil(codec.implementation->iananame), name) == 0;
}

bool fmtp_in_says(const switch_codec_t& codec, const char* text) {
  return codec.fmtp_in && strcasestr(codec.fmtp_in, text);
}

int packet_time_ms(const switch_codec_implementation_t& implementation) {
  return implementation.microseconds_per_packet / 1000;
}

void add_codec(MediaConfig& cfg, const switch_codec_implementation_t& implementation, switch_payload_t payload_type) {
  cfg.AddCodec(implementation.iananame, payload_type, packet_time_ms(implementation),
               static_cast<int>(implementation.samples_per_second), implementation.bits_per_second, false, 0, 0, 0,
               NULL, 0, 1.0);
}

void add_negotiated_codec(MediaConfig& cfg, const switch_codec_t& codec, switch_payload_t payload_type) {
  add_codec(cfg, *codec.implementation, payload_type);
  if (codec_belongs_to_amr_suite(codec.implementation->iananame)) {
    cfg.SetAMROctetAlign(amr_codec_is_octet_align(codec.fmtp_out) != 0);
  }
}

void set_telephone_events_and_silence(MediaConfig& cfg, int rfc2833flag, switch_payload_t rfc2833payload,
                                      int enable_silence_supp, switch_bool_t enable_cng_supp,
                                      switch_bool_t enable_sid) {
  cfg.SetRfc2833Flag(rfc2833flag != 0);
  cfg.SetRfc2833Payload(rfc2833payload);
  cfg.SetSilenceSuppressionFlag(enable_silence_supp != 0);
  cfg.SetCngSuppressionFlag(enable_cng_supp != 0);
  cfg.SetSidFlag(enable_sid != 0);
}

void set_crypto(MediaConfig& cfg, const switch_core_crypto_setting& crypto_setting) {
  if (const char* suite = suite_of(crypto_setting.crypto_type)) {
    cfg.SetCrypto(suite, crypto_setting.crypto_raw_key, kCryptoKeyLength, crypto_setting.crypto_lifetime_exponent,
                  crypto_setting.crypto_mki_length_str);
  } else {
    cfg.SetCrypto("NO_CRYPTO", NULL, 0, 0, NULL);
  }
  if (crypto_setting.crypto_mandatory != 0) cfg.SetCryptoMandFlag(true);
}

}  // namespace kvx_media_server
