/// SRTP keys as they are used, made from the texts and octets of a session description (RFC 4568, section 6).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media_engine/description.h"
#include "media_engine/outcome.h"

namespace media_engine {

enum class SrtpSuite : uint8_t { kAesCm128HmacSha1_80, kAesCm128HmacSha1_32 };

/// Master key and salt of one direction, and for how many packets they may serve (RFC 3711, section 9.2).
struct SrtpKeys {
  static constexpr std::size_t kLength = 30;       // 16 octets of key, 14 of salt
  static constexpr std::size_t kLongestMki = 128;  // RFC 4568, section 6.1

  SrtpSuite suite = SrtpSuite::kAesCm128HmacSha1_80;
  SecretBytes master;
  std::vector<uint8_t> mki;  // as it stands in packets; empty: it does not
  uint64_t rtp_lifetime = 0;
  uint64_t rtcp_lifetime = 0;

  /// Whether packets look the same under both.
  bool SameAs(const SrtpKeys& other) const;
};

/// Whether the settings say that there are keys; an empty suite says nothing.
bool NamesSuite(const CryptoSettings& settings);

/// Whether they name a suite and no key: one is to be made.
bool LeavesKeyToUs(const CryptoSettings& settings);

/// Why they were refused names suite, length or text, never the key. An empty key stays empty.
Outcome ParseSrtpKeys(const CryptoSettings& settings, SrtpKeys& keys);

/// Fills in a key that nobody can guess. Refused when the system has no random numbers to give.
Outcome MakeMasterKey(SrtpKeys& keys);

}  // namespace media_engine
