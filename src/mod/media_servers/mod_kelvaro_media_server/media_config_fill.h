#pragma once

#include <switch.h>
#if __has_include(<switch_media_server.h>)
#include <switch_media_server.h>
#endif

#include "kelvaro/jsr309/media_config.h"

// What the local and the remote media description have in common: how a codec, the telephone events and SRTP keys of
// the switch are written into the media server's record. Where the two differ (annexes, which payload type, whether
// there are keys at all) stays with them.

namespace kvx_media_server {

/// A negotiated codec may be absent, and may come without an implementation: then there is nothing to describe.
inline bool is_described(const switch_codec_t* codec) {
  return codec && codec->implementation;
}

/// Whether the codec, an implementation given, has that name in any case.
bool is_named(const switch_codec_t& codec, const char* name);

/// Whether the far end's fmtp contains the text in any case.
bool fmtp_in_says(const switch_codec_t& codec, const char* text);

int packet_time_ms(const switch_codec_implementation_t& implementation);

void add_codec(kelvaro::jsr309::MediaConfig& cfg, const switch_codec_implementation_t& implementation,
               switch_payload_t payload_type);

/// Adds the negotiated codec under the given payload type and, for AMR and AMR-WB, the packing that its outgoing fmtp
/// asks for.
void add_negotiated_codec(kelvaro::jsr309::MediaConfig& cfg, const switch_codec_t& codec,
                          switch_payload_t payload_type);

void set_telephone_events_and_silence(kelvaro::jsr309::MediaConfig& cfg, int rfc2833flag,
                                      switch_payload_t rfc2833payload, int enable_silence_supp,
                                      switch_bool_t enable_cng_supp, switch_bool_t enable_sid);

/// Sets a suite always ("NO_CRYPTO" for a type that is none), the mandatory flag only when it is on.
void set_crypto(kelvaro::jsr309::MediaConfig& cfg, const switch_core_crypto_setting& crypto_setting);

}  // namespace kvx_media_server
