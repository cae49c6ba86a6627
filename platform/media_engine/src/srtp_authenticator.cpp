#include "srtp_authenticator.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>

// OpenSSL 3 would have SHA-1 used through EVP, whose contexts can neither be begun from a kept state nor copied without
// an allocation. These functions are the same SHA-1 without either.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace media_engine {
namespace {

constexpr uint8_t kInnerPad = 0x36, kOuterPad = 0x5c;

/// SHA-1 behind the one block that was hashed before.
template <typename State>
SHA_CTX Resume(const State& state) {
  SHA_CTX context{};
  context.h0 = state[0];
  context.h1 = state[1];
  context.h2 = state[2];
  context.h3 = state[3];
  context.h4 = state[4];
  context.Nl = SHA_CBLOCK * 8;
  return context;
}

template <typename State>
void HashPaddedKey(const uint8_t* key, uint8_t pad, State& state) {
  std::array<uint8_t, SHA_CBLOCK> block;
  block.fill(pad);
  for (std::size_t i = 0; i < SrtpAuthenticator::kKeyLength; ++i) block[i] ^= key[i];
  SHA_CTX context;
  SHA1_Init(&context);
  SHA1_Update(&context, block.data(), block.size());
  state = {context.h0, context.h1, context.h2, context.h3, context.h4};
  OPENSSL_cleanse(&context, sizeof context);
  OPENSSL_cleanse(block.data(), block.size());
}

}  // namespace

SrtpAuthenticator::~SrtpAuthenticator() {
  OPENSSL_cleanse(inner_.data(), sizeof inner_);
  OPENSSL_cleanse(outer_.data(), sizeof outer_);
}

void SrtpAuthenticator::SetKey(const uint8_t* key) {
  HashPaddedKey(key, kInnerPad, inner_);
  HashPaddedKey(key, kOuterPad, outer_);
}

SrtpAuthenticator::Digest SrtpAuthenticator::Compute(const uint8_t* data, std::size_t length, const uint8_t* suffix,
                                                     std::size_t suffix_length) const {
  Digest digest;
  SHA_CTX context = Resume(inner_);
  SHA1_Update(&context, data, length);
  SHA1_Update(&context, suffix, suffix_length);
  SHA1_Final(digest.data(), &context);
  context = Resume(outer_);
  SHA1_Update(&context, digest.data(), digest.size());
  SHA1_Final(digest.data(), &context);
  OPENSSL_cleanse(&context, sizeof context);
  return digest;
}

}  // namespace media_engine

#pragma GCC diagnostic pop
