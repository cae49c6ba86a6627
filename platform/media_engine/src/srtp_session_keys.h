/// The keys with which packets are protected, derived from the master key (RFC 3711, section 4.3, with a key derivation
/// rate of zero: once and for all).
///
/// Threads: one at a time that changes them; any number that read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "srtp_authenticator.h"
#include "srtp_cipher.h"
#include "srtp_keys.h"

namespace media_engine {

/// Those of one protocol; RTP and RTCP have their own. Overwritten at their end.
struct SrtpSessionKeys {
  static constexpr std::size_t kSaltLength = 14;

  SrtpSessionKeys() = default;
  ~SrtpSessionKeys();
  SrtpSessionKeys(const SrtpSessionKeys&) = delete;
  SrtpSessionKeys& operator=(const SrtpSessionKeys&) = delete;

  std::array<uint8_t, SrtpCipher::kKeyLength> cipher_key{};
  std::array<uint8_t, kSaltLength> salt{};
  SrtpAuthenticator authenticator;
};

/// Section 4.3.2.
enum class SrtpKeyLabel : uint8_t {
  kRtpCipher = 0,
  kRtpAuthentication = 1,
  kRtpSalt = 2,
  kRtcpCipher = 3,
  kRtcpAuthentication = 4,
  kRtcpSalt = 5,
};

/// The cipher has the master key. False when it fails.
[[nodiscard]] bool DeriveSrtpKey(SrtpCipher& cipher, const uint8_t* master_salt, SrtpKeyLabel label, uint8_t* key,
                                 std::size_t length);

/// Of the master key and salt; the cipher is used for it and has no key of use afterwards. False when it fails.
[[nodiscard]] bool DeriveSrtpKeys(const SecretBytes& master, SrtpCipher& cipher, SrtpSessionKeys& rtp,
                                  SrtpSessionKeys& rtcp);

}  // namespace media_engine
