/// A far end's SRTP, by libsrtp2 itself and by nothing of ours: what it takes, any decent endpoint takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

struct srtp_ctx_t_;

namespace test_support {

struct SrtpPeerKeys {
  std::vector<std::uint8_t> key;  // master key, 16 octets, and salt, 14
  bool short_tag = false;         // AES_CM_128_HMAC_SHA1_32, else _80
  std::vector<std::uint8_t> mki;  // as it stands in packets
};

/// A key that no other number has.
std::vector<std::uint8_t> SrtpPeerKey(std::uint8_t number);

/// One direction under one set of keys.
class SrtpPeer {
 public:
  enum class Way { kSends, kReceives };
  SrtpPeer(Way way, const SrtpPeerKeys& keys);
  ~SrtpPeer();
  SrtpPeer(const SrtpPeer&) = delete;
  SrtpPeer& operator=(const SrtpPeer&) = delete;

  /// Protected, or checked and in the clear; none when the library refuses.
  std::optional<std::vector<std::uint8_t>> Rtp(const std::vector<std::uint8_t>& packet) { return Apply(packet, true); }
  std::optional<std::vector<std::uint8_t>> Rtcp(const std::vector<std::uint8_t>& packet) {
    return Apply(packet, false);
  }
  /// Before the source's first packet: its sequence number has wrapped that often.
  void ContinueAt(std::uint32_t ssrc, std::uint32_t rollovers);

 private:
  std::optional<std::vector<std::uint8_t>> Apply(const std::vector<std::uint8_t>& packet, bool rtp);
  int Call(std::uint8_t* packet, int* length, bool rtp) const;

  const Way way_;
  const SrtpPeerKeys keys_;
  srtp_ctx_t_* context_ = nullptr;
};

}  // namespace test_support
