/// The key stream of SRTP: AES-128 in counter mode (RFC 3711, section 4.1.1).
///
/// A packet must cost neither a lock nor an allocation, and a call of a cipher library is easily more than what it
/// does: so the cipher's context is made with the keys and set up once, as AES of single blocks. The counters of a
/// packet are written out here and encrypted in one call, which needs no initial vector to be handed over before.
///
/// Threads: one at a time; different objects do not disturb each other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct evp_cipher_ctx_st;

namespace media_engine {

class SrtpCipher {
 public:
  static constexpr std::size_t kKeyLength = 16, kBlockLength = 16;
  using Block = std::array<uint8_t, kBlockLength>;

  /// Without a key yet. Null when OpenSSL has no AES or no memory; reason says so.
  static std::unique_ptr<SrtpCipher> Make(std::string& reason);
  ~SrtpCipher();
  SrtpCipher(const SrtpCipher&) = delete;
  SrtpCipher& operator=(const SrtpCipher&) = delete;

  /// Instead of the former one, of which nothing is left.
  [[nodiscard]] bool SetKey(const uint8_t* key);
  /// Encrypts or decrypts in place. The last two octets of first are the counter of blocks and begin at 0. False for
  /// more than they can count, 1 MiB, with the data as they were, and when OpenSSL fails.
  [[nodiscard]] bool Apply(const Block& first, uint8_t* data, std::size_t length);

 private:
  struct Free {
    void operator()(evp_cipher_ctx_st* context) const;
  };
  explicit SrtpCipher(evp_cipher_ctx_st* context);

  const std::unique_ptr<evp_cipher_ctx_st, Free> context_;
};

}  // namespace media_engine
