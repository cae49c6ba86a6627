#include "support/srtp_peer.h"

#include <srtp2/srtp.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace test_support {
namespace {

// The policy points into the keys, which it does not change.
template <typename Use>
srtp_err_status_t WithPolicy(SrtpPeerKeys keys, srtp_ssrc_t ssrc, Use use) {
  srtp_policy_t policy{};
  srtp_master_key_t master{};
  srtp_master_key_t* masters[] = {&master};
  srtp_crypto_policy_set_rtp_default(&policy.rtp);
  if (keys.short_tag) srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy.rtp);
  srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
  policy.ssrc = ssrc;
  if (keys.mki.empty()) {
    policy.key = keys.key.data();
  } else {
    master.key = keys.key.data();
    master.mki_id = keys.mki.data();
    master.mki_size = static_cast<unsigned>(keys.mki.size());
    policy.keys = masters;
    policy.num_master_keys = 1;
  }
  return use(policy);
}

void Check(srtp_err_status_t status, const char* what) {
  if (status != srtp_err_status_ok) throw std::runtime_error(std::string(what) + ": " + std::to_string(status));
}

/// Started with the first peer, stopped at the end of the process.
class Library {
 public:
  Library() {
    Check(srtp_init(), "srtp_init");
    // Debian's starts its provider of ciphers with its first context and stops it with its last, which takes a hundred
    // times as long as a context: this one stays.
    Check(WithPolicy({SrtpPeerKey(0), false, {}}, {ssrc_any_inbound, 0},
                     [this](const srtp_policy_t& policy) { return srtp_create(&kept_, &policy); }),
          "srtp_create");
  }
  ~Library() {
    srtp_dealloc(kept_);
    srtp_shutdown();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

 private:
  srtp_t kept_ = nullptr;
};

}  // namespace

std::vector<std::uint8_t> SrtpPeerKey(std::uint8_t number) {
  std::vector<std::uint8_t> key(SRTP_MASTER_KEY_LEN);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(number * 37u + i * 5u + 1u);
  return key;
}

SrtpPeer::SrtpPeer(Way way, const SrtpPeerKeys& keys) : way_(way), keys_(keys) {
  static const Library library;
  const srtp_ssrc_t any{way == Way::kSends ? ssrc_any_outbound : ssrc_any_inbound, 0};
  Check(WithPolicy(keys, any, [this](const srtp_policy_t& policy) { return srtp_create(&context_, &policy); }),
        "srtp_create");
}

SrtpPeer::~SrtpPeer() {
  srtp_dealloc(context_);
}

void SrtpPeer::ContinueAt(std::uint32_t ssrc, std::uint32_t rollovers) {
  Check(WithPolicy(keys_, {ssrc_specific, ssrc},
                   [this](const srtp_policy_t& policy) { return srtp_add_stream(context_, &policy); }),
        "srtp_add_stream");
  Check(srtp_set_stream_roc(context_, ssrc, rollovers), "srtp_set_stream_roc");
}

int SrtpPeer::Call(std::uint8_t* packet, int* length, bool rtp) const {
  const unsigned mki = keys_.mki.empty() ? 0 : 1;
  if (way_ == Way::kSends) {
    return rtp ? srtp_protect_mki(context_, packet, length, mki, 0)
               : srtp_protect_rtcp_mki(context_, packet, length, mki, 0);
  }
  return rtp ? srtp_unprotect_mki(context_, packet, length, mki)
             : srtp_unprotect_rtcp_mki(context_, packet, length, mki);
}

std::optional<std::vector<std::uint8_t>> SrtpPeer::Apply(const std::vector<std::uint8_t>& packet, bool rtp) {
  std::vector<std::uint32_t> room((packet.size() + SRTP_MAX_TRAILER_LEN + 4) / 4 + 1);  // aligned
  auto* data = reinterpret_cast<std::uint8_t*>(room.data());
  std::copy(packet.begin(), packet.end(), data);
  int length = static_cast<int>(packet.size());
  if (Call(data, &length, rtp) != srtp_err_status_ok) return std::nullopt;
  return std::vector<std::uint8_t>(data, data + length);
}

}  // namespace test_support
