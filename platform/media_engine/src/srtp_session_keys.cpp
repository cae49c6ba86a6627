#include "srtp_session_keys.h"

#include <openssl/crypto.h>

#include <algorithm>

namespace media_engine {
namespace {

constexpr std::size_t kLabelAt = 7;

bool DeriveThree(SrtpCipher& cipher, const uint8_t* master_salt, const std::array<SrtpKeyLabel, 3>& labels,
                 SrtpSessionKeys& keys) {
  std::array<uint8_t, SrtpAuthenticator::kKeyLength> authentication;
  const bool done = DeriveSrtpKey(cipher, master_salt, labels[0], keys.cipher_key.data(), keys.cipher_key.size()) &&
                    DeriveSrtpKey(cipher, master_salt, labels[1], authentication.data(), authentication.size()) &&
                    DeriveSrtpKey(cipher, master_salt, labels[2], keys.salt.data(), keys.salt.size());
  if (done) keys.authenticator.SetKey(authentication.data());
  OPENSSL_cleanse(authentication.data(), authentication.size());
  return done;
}

}  // namespace

SrtpSessionKeys::~SrtpSessionKeys() {
  OPENSSL_cleanse(cipher_key.data(), cipher_key.size());
  OPENSSL_cleanse(salt.data(), salt.size());
}

bool DeriveSrtpKey(SrtpCipher& cipher, const uint8_t* master_salt, SrtpKeyLabel label, uint8_t* key,
                   std::size_t length) {
  SrtpCipher::Block first{};
  std::copy(master_salt, master_salt + SrtpSessionKeys::kSaltLength, first.begin());
  first[kLabelAt] ^= static_cast<uint8_t>(label);
  std::fill(key, key + length, uint8_t{0});
  return cipher.Apply(first, key, length);
}

bool DeriveSrtpKeys(const SecretBytes& master, SrtpCipher& cipher, SrtpSessionKeys& rtp, SrtpSessionKeys& rtcp) {
  if (master.size() != SrtpKeys::kLength) return false;
  const uint8_t* const salt = master.data() + SrtpCipher::kKeyLength;
  return cipher.SetKey(master.data()) &&
         DeriveThree(cipher, salt, {SrtpKeyLabel::kRtpCipher, SrtpKeyLabel::kRtpAuthentication, SrtpKeyLabel::kRtpSalt},
                     rtp) &&
         DeriveThree(cipher, salt,
                     {SrtpKeyLabel::kRtcpCipher, SrtpKeyLabel::kRtcpAuthentication, SrtpKeyLabel::kRtcpSalt}, rtcp);
}

}  // namespace media_engine
