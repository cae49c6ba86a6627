#pragma once

#include <switch_media_server.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sip/sdp.h"

/// SRTP keys as session descriptions carry them (SDES, RFC 4568), and when a stream is to be encrypted.
///
/// The switch only negotiates: it makes the keys of its own side, reads those of the far end, and hands both to the
/// media server. One key a direction; the suites are AES_CM_128_HMAC_SHA1_80 and _32. Texts that carry keys are never
/// logged. Values only; no thread cares.
namespace kvx_switch {

enum class SrtpSuite { kAesCm128Sha1_80 = 1, kAesCm128Sha1_32 = 2 };

const char* SrtpSuiteName(SrtpSuite suite);
/// Any case; null for a suite that is not known.
std::optional<SrtpSuite> SrtpSuiteOfName(std::string_view name);

/// The key of one direction. Wiped when it goes.
struct SrtpKey {
  using Block = std::array<unsigned char, SWITCH_CORE_CRYPTO_RAW_KEY_LENGTH>;

  SrtpKey() = default;
  SrtpKey(const SrtpKey&) = default;
  SrtpKey& operator=(const SrtpKey&) = default;
  ~SrtpKey();

  std::string tag;  ///< as written; pairs the lines of offer and answer
  SrtpSuite suite = SrtpSuite::kAesCm128Sha1_80;
  Block block{};               ///< master key and salt
  int lifetime_exponent = 0;   ///< packets per key, as a power of 2; 0: not said
  std::string mki_and_length;  ///< "value:length"; empty: none
};

/// The value of "a=crypto:"; null with the problem, which holds no key, when it cannot be used.
std::optional<SrtpKey> ParseCrypto(std::string_view value, std::string& problem);
/// What stands after "a=crypto:".
std::string CryptoText(const SrtpKey& key);
/// A fresh random key for our side. Throws std::system_error when the system has no random numbers.
SrtpKey MakeSrtpKey(SrtpSuite suite, const std::string& tag);

/// Whether streams are encrypted: never, when the far end does too, or always.
enum class SecureMedia { kOff, kOptional, kMandatory };

/// "off", "optional", "mandatory", and the customary "true" (mandatory), "false" and "forbidden" (off), in any case.
std::optional<SecureMedia> SecureMediaOfName(const std::string& name);

struct SecurityWish {
  SecureMedia wanted = SecureMedia::kOff;
  std::vector<SrtpSuite> suites{SrtpSuite::kAesCm128Sha1_80, SrtpSuite::kAesCm128Sha1_32};  ///< in order of preference
};

/// What an offered stream comes down to under a wish: refused with a problem, in the clear (no key), or encrypted.
struct StreamSecurity {
  std::string problem;
  std::optional<SrtpKey> remote;
};

/// RTP/SAVP needs a key that we can use. RTP/AVP may bring keys too (RFC 8643) and is encrypted then.
StreamSecurity SecurityOfOffer(const SdpMedia& stream, const SecurityWish& wish);
/// The answer to a stream that we offered with `offered` (null: in the clear) in `protocol`.
StreamSecurity SecurityOfAnswer(const SdpMedia& stream, const std::string& protocol, const SrtpKey* offered);

/// For the media server. `key` null: not encrypted. The MKI is borrowed from `key`.
switch_core_crypto_setting CryptoSetting(const SrtpKey* key, bool mandatory);

}  // namespace kvx_switch
