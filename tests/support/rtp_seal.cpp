#include "support/rtp_seal.h"

#include <srtp2/srtp.h>

#include <array>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <random>
#include <sstream>
#include <stdexcept>

namespace test_support {
namespace {

namespace base64 = boost::archive::iterators;

constexpr std::size_t kKeyOctets = 30;  // master key and salt
constexpr std::size_t kKeyText = 40;

struct Crypto {
  std::string suite;
  std::array<std::uint8_t, kKeyOctets> key{};
};

Crypto read(const std::string& value) {
  Crypto crypto;
  std::istringstream in(value);
  std::string tag;
  std::string key;
  in >> tag >> crypto.suite >> key;
  if (key.rfind("inline:", 0) != 0 || key.size() < 7 + kKeyText) throw std::invalid_argument("no SRTP key: " + value);
  using Octets = base64::transform_width<base64::binary_from_base64<const char*>, 8, 6>;
  const char* const text = key.c_str() + 7;
  std::copy(Octets(text), Octets(text + kKeyText), crypto.key.begin());
  return crypto;
}

srtp_t open_context(const Crypto& crypto, srtp_ssrc_type_t direction) {
  srtp_policy_t policy{};
  if (crypto.suite == "AES_CM_128_HMAC_SHA1_80") {
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
  } else if (crypto.suite == "AES_CM_128_HMAC_SHA1_32") {
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
  } else {
    throw std::invalid_argument("unknown SRTP suite " + crypto.suite);
  }
  srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
  auto key = crypto.key;
  policy.ssrc.type = direction;
  policy.key = key.data();
  policy.window_size = 128;
  srtp_t context = nullptr;
  if (srtp_create(&context, &policy) != srtp_err_status_ok) throw std::invalid_argument("no SRTP context");
  return context;
}

}  // namespace

struct RtpSeal::Contexts {
  srtp_t out = nullptr;
  srtp_t in = nullptr;
};

std::string RtpSeal::MakeCrypto(const std::string& suite) {
  std::random_device random;
  std::array<char, kKeyOctets> key{};
  for (char& octet : key) octet = static_cast<char>(random());
  using Text = base64::base64_from_binary<base64::transform_width<const char*, 6, 8>>;
  return "1 " + suite + " inline:" + std::string(Text(key.data()), Text(key.data() + key.size()));
}

RtpSeal::RtpSeal(const std::string& own, const std::string& far) : contexts_(std::make_unique<Contexts>()) {
  static const srtp_err_status_t initialised = srtp_init();
  if (initialised != srtp_err_status_ok) throw std::runtime_error("the SRTP library does not start");
  contexts_->out = open_context(read(own), ssrc_any_outbound);
  contexts_->in = open_context(read(far), ssrc_any_inbound);
}

RtpSeal::~RtpSeal() {
  srtp_dealloc(contexts_->out);
  srtp_dealloc(contexts_->in);
}

std::vector<std::uint8_t> RtpSeal::Seal(std::vector<std::uint8_t> packet) {
  int length = static_cast<int>(packet.size());
  packet.resize(packet.size() + SRTP_MAX_TRAILER_LEN);
  if (srtp_protect(contexts_->out, packet.data(), &length) != srtp_err_status_ok) {
    throw std::runtime_error("a packet could not be sealed");
  }
  packet.resize(static_cast<std::size_t>(length));
  return packet;
}

std::optional<std::vector<std::uint8_t>> RtpSeal::Open(std::vector<std::uint8_t> packet) {
  int length = static_cast<int>(packet.size());
  if (srtp_unprotect(contexts_->in, packet.data(), &length) != srtp_err_status_ok) return std::nullopt;
  packet.resize(static_cast<std::size_t>(length));
  return packet;
}

}  // namespace test_support
