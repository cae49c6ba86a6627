#include "seals.h"

#include <srtp2/srtp.h>

#include <cstring>
#include <random>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kKeyLength = 30;  // key and salt of both suites

srtp_t OpenContext(std::vector<uint8_t>& key, bool short_tag) {
  srtp_policy_t policy;
  std::memset(&policy, 0, sizeof policy);
  if (short_tag) {
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
  } else {
    srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtp);
  }
  srtp_crypto_policy_set_aes_cm_128_hmac_sha1_80(&policy.rtcp);
  policy.ssrc.type = ssrc_any_outbound;
  policy.key = key.data();
  srtp_t context = nullptr;
  if (srtp_create(&context, &policy) != srtp_err_status_ok) throw std::runtime_error("no SRTP context");
  return context;
}

}  // namespace

std::string Base64(const std::vector<uint8_t>& octets) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < octets.size(); i += 3) {
    const uint32_t group = uint32_t{octets[i]} << 16 | (i + 1 < octets.size() ? uint32_t{octets[i + 1]} << 8 : 0) |
                           (i + 2 < octets.size() ? octets[i + 2] : 0);
    text += digits[group >> 18 & 63];
    text += digits[group >> 12 & 63];
    text += i + 1 < octets.size() ? digits[group >> 6 & 63] : '=';
    text += i + 2 < octets.size() ? digits[group & 63] : '=';
  }
  return text;
}

Seals::Seals(std::size_t count, bool wanted) {
  if (!wanted) return;
  if (srtp_init() != srtp_err_status_ok) throw std::runtime_error("libsrtp does not start");
  std::random_device random;
  ends_.resize(count);
  for (std::size_t at = 0; at < count; ++at) {
    End& end = ends_[at];
    for (std::size_t i = 0; i < kKeyLength; ++i) end.key.push_back(static_cast<uint8_t>(random()));
    end.context = OpenContext(end.key, at % 2 != 0);
  }
}

Seals::~Seals() {
  for (End& end : ends_) srtp_dealloc(end.context);
}

std::vector<std::string> Seals::Keys() const {
  std::vector<std::string> keys;
  for (const End& end : ends_) {
    keys.push_back(std::string("AES_CM_128_HMAC_SHA1_") + (keys.size() % 2 == 0 ? "80:" : "32:") + Base64(end.key));
  }
  return keys;
}

void Seals::BeginRun(std::size_t packets_each, std::size_t packet_length) {
  packet_length_ = packet_length;
  for (std::size_t at = 0; at < ends_.size(); ++at) {
    End& end = ends_[at];
    end.packets.clear();
    end.packets.reserve(packets_each * (packet_length + TagLength(at)));
    end.taken = 0;
  }
}

void Seals::Add(std::size_t end, const uint8_t* packet, std::size_t length) {
  uint8_t room[2048];
  std::memcpy(room, packet, length);
  int sealed = static_cast<int>(length);
  End& one = ends_[end];
  if (srtp_protect(one.context, room, &sealed) != srtp_err_status_ok ||
      static_cast<std::size_t>(sealed) != length + TagLength(end)) {
    throw std::runtime_error("a packet cannot be protected");
  }
  one.packets.insert(one.packets.end(), room, room + sealed);
}

const uint8_t* Seals::Take(std::size_t end) {
  End& one = ends_[end];
  const std::size_t at = one.taken * (packet_length_ + TagLength(end));
  if (at >= one.packets.size()) return nullptr;
  ++one.taken;
  return one.packets.data() + at;
}

}  // namespace bench
