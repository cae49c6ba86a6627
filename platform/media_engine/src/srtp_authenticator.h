/// The tag of SRTP: HMAC-SHA1 under one key (RFC 2104; RFC 3711, section 4.2.1).
///
/// What HMAC does with its key before it sees the packet is done once: the two states of SHA-1 behind the inner and the
/// outer block are kept, 20 octets each, instead of the key.
///
/// Threads: one at a time that changes the key; any number that compute.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace media_engine {

class SrtpAuthenticator {
 public:
  static constexpr std::size_t kKeyLength = 20, kDigestLength = 20;
  using Digest = std::array<uint8_t, kDigestLength>;

  SrtpAuthenticator() = default;
  ~SrtpAuthenticator();
  SrtpAuthenticator(const SrtpAuthenticator&) = delete;
  SrtpAuthenticator& operator=(const SrtpAuthenticator&) = delete;

  /// Of kKeyLength octets.
  void SetKey(const uint8_t* key);
  /// Over the data and, behind them, the suffix, which may be empty.
  Digest Compute(const uint8_t* data, std::size_t length, const uint8_t* suffix, std::size_t suffix_length) const;

 private:
  using State = std::array<uint32_t, 5>;
  State inner_{}, outer_{};
};

}  // namespace media_engine
