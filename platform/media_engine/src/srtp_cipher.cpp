#include "srtp_cipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "network_order.h"

namespace media_engine {
namespace {

constexpr std::size_t kCounterAt = 14;
constexpr std::size_t kMostBlocks = 1 << 16;
/// Of which the key stream is made at once: a packet of 20 ms of G.711 takes ten.
constexpr std::size_t kBatch = 16;

/// Keys are derived with it, too: nothing of it stays behind.
struct KeyStream {
  std::array<uint8_t, kBatch * SrtpCipher::kBlockLength> octets;
  ~KeyStream() { OPENSSL_cleanse(octets.data(), octets.size()); }
};

struct FreeKind {
  void operator()(EVP_CIPHER* kind) const { EVP_CIPHER_free(kind); }
};

/// Looked up once: OpenSSL takes locks for it.
EVP_CIPHER* Aes() {
  static const std::unique_ptr<EVP_CIPHER, FreeKind> aes(EVP_CIPHER_fetch(nullptr, "AES-128-ECB", nullptr));
  return aes.get();
}

/// In words, which compilers do not always make of octets by themselves.
void Mix(const uint8_t* stream, uint8_t* data, std::size_t length) {
  std::size_t i = 0;
  for (; i + sizeof(uint64_t) <= length; i += sizeof(uint64_t)) {
    uint64_t mixed, word;
    std::memcpy(&mixed, data + i, sizeof mixed);
    std::memcpy(&word, stream + i, sizeof word);
    mixed ^= word;
    std::memcpy(data + i, &mixed, sizeof mixed);
  }
  for (; i < length; ++i) data[i] ^= stream[i];
}

}  // namespace

void SrtpCipher::Free::operator()(evp_cipher_ctx_st* context) const {
  EVP_CIPHER_CTX_free(context);  // which overwrites the key
}

SrtpCipher::SrtpCipher(evp_cipher_ctx_st* context) : context_(context) {}
SrtpCipher::~SrtpCipher() = default;

std::unique_ptr<SrtpCipher> SrtpCipher::Make(std::string& reason) {
  std::unique_ptr<SrtpCipher> cipher(new SrtpCipher(EVP_CIPHER_CTX_new()));
  if (cipher->context_ && Aes() != nullptr &&
      EVP_EncryptInit_ex2(cipher->context_.get(), Aes(), nullptr, nullptr, nullptr) == 1 &&
      EVP_CIPHER_CTX_set_padding(cipher->context_.get(), 0) == 1) {
    return cipher;
  }
  reason = "OpenSSL makes no context for AES-128";
  return nullptr;
}

bool SrtpCipher::SetKey(const uint8_t* key) {
  return EVP_EncryptInit_ex2(context_.get(), nullptr, key, nullptr, nullptr) == 1;
}

bool SrtpCipher::Apply(const Block& first, uint8_t* data, std::size_t length) {
  if (length > kMostBlocks * kBlockLength) return false;
  KeyStream stream;
  std::size_t counter = 0;
  while (length > 0) {
    const std::size_t taken = std::min(length, stream.octets.size());
    const std::size_t blocks = (taken + kBlockLength - 1) / kBlockLength;
    for (std::size_t i = 0; i < blocks; ++i, ++counter) {
      uint8_t* const block = stream.octets.data() + i * kBlockLength;
      std::memcpy(block, first.data(), kCounterAt);
      Write16(static_cast<uint16_t>(counter), block + kCounterAt);
    }
    int made = 0;
    const int wanted = static_cast<int>(blocks * kBlockLength);
    uint8_t* const octets = stream.octets.data();
    if (EVP_EncryptUpdate(context_.get(), octets, &made, octets, wanted) != 1 || made != wanted) return false;
    Mix(octets, data, taken);
    data += taken;
    length -= taken;
  }
  return true;
}

}  // namespace media_engine
