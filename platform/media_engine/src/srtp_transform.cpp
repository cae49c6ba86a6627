#include "srtp_transform.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <utility>

#include "network_order.h"

namespace media_engine {
namespace {

constexpr std::size_t kRtpFixedHeader = 12, kRtpNumberAt = 2, kRtpSsrcAt = 8;
constexpr std::size_t kRtcpFixedHeader = 8, kRtcpSsrcAt = 4;
constexpr std::size_t kSrtcpIndex = 4;
constexpr std::size_t kLongTag = 10, kShortTag = 4;  // the short one for RTP only (RFC 4568, section 6.2.2)
constexpr uint32_t kEncrypted = 0x80000000;
static_assert(kSrtpTrailerRoom >= kLongTag + SrtpKeys::kLongestMki + kSrtcpIndex);

/// What is sent in the clear of an RTP packet: the contributing sources and the extension are in it. None when they do
/// not fit.
std::optional<std::size_t> RtpHeaderLength(const uint8_t* packet, std::size_t length) {
  constexpr uint8_t kExtension = 0x10, kSources = 0x0f;
  std::size_t header = kRtpFixedHeader + 4u * (packet[0] & kSources);
  if ((packet[0] & kExtension) != 0) {
    if (length < header + 4) return std::nullopt;
    header += 4 + 4u * Read16(packet + header + 2);
  }
  if (length < header) return std::nullopt;
  return header;
}

std::array<uint8_t, 4> RolloversOf(uint64_t index) {
  std::array<uint8_t, 4> rollovers;
  Write32(static_cast<uint32_t>(index >> 16), rollovers.data());
  return rollovers;
}

bool Same(const uint8_t* a, const uint8_t* b, std::size_t length) {
  return CRYPTO_memcmp(a, b, length) == 0;  // in the same time wherever they differ
}

}  // namespace

SrtpTransform::SrtpTransform(Direction direction, const SrtpKeys& keys, std::unique_ptr<SrtpCipher> cipher)
    : direction_(direction), keys_(keys), cipher_(std::move(cipher)) {
  sources_.reserve(kSourcesAtOnce);
}

std::unique_ptr<SrtpTransform> SrtpTransform::Make(Direction direction, const SrtpKeys& keys, std::string& reason) {
  std::unique_ptr<SrtpCipher> cipher = SrtpCipher::Make(reason);
  if (!cipher) return nullptr;
  std::unique_ptr<SrtpTransform> transform(new SrtpTransform(direction, keys, std::move(cipher)));
  if (DeriveSrtpKeys(keys.master, *transform->cipher_, transform->rtp_keys_, transform->rtcp_keys_) &&
      transform->GiveKey(Protocol::kRtp)) {
    return transform;
  }
  reason = "OpenSSL derives no keys with AES-128";
  return nullptr;
}

void SrtpTransform::SetLifetime(const SrtpKeys& keys) {
  keys_.rtp_lifetime = keys.rtp_lifetime;
  keys_.rtcp_lifetime = keys.rtcp_lifetime;
}

std::size_t SrtpTransform::Find(uint32_t ssrc) const {
  // The latest source is the likeliest.
  for (std::size_t i = sources_.size(); i > 0; --i) {
    if (sources_[i - 1].ssrc == ssrc) return i - 1;
  }
  return sources_.size();
}

std::size_t SrtpTransform::TagLength(Protocol protocol) const {
  return protocol == Protocol::kRtp && keys_.suite == SrtpSuite::kAesCm128HmacSha1_32 ? kShortTag : kLongTag;
}

std::size_t SrtpTransform::ShortestPacket(Protocol protocol) const {
  const std::size_t header = protocol == Protocol::kRtp ? kRtpFixedHeader : kRtcpFixedHeader;
  if (direction_ == Direction::kOutgoing) return header;
  return header + keys_.mki.size() + TagLength(protocol) + (protocol == Protocol::kRtp ? 0 : kSrtcpIndex);
}

SrtpVerdict SrtpTransform::Invalid() const {
  return direction_ == Direction::kOutgoing ? SrtpVerdict::kFailed : SrtpVerdict::kUnauthentic;
}

SrtpVerdict SrtpTransform::Apply(Protocol protocol, uint8_t* packet, std::size_t& length) {
  if (length < ShortestPacket(protocol)) return Invalid();
  const bool rtp = protocol == Protocol::kRtp;
  uint64_t& packets = rtp ? rtp_packets_ : rtcp_packets_;
  if (packets >= (rtp ? keys_.rtp_lifetime : keys_.rtcp_lifetime)) return SrtpVerdict::kExpired;
  const uint32_t ssrc = Read32(packet + (rtp ? kRtpSsrcAt : kRtcpSsrcAt));
  const std::size_t place = Find(ssrc);
  const bool known = place < sources_.size();
  if (direction_ == Direction::kIncoming && !known && sources_.size() == kMostSources) {
    return SrtpVerdict::kSourcesExceeded;
  }
  SrtpSource fresh;
  fresh.ssrc = ssrc;
  const SrtpVerdict verdict = ApplyTo(known ? sources_[place] : fresh, protocol, packet, length);
  if (verdict != SrtpVerdict::kDone) return verdict;
  ++packets;
  if (!known) sources_.push_back(fresh);
  if (rtp) latest_rtp_ssrc_ = ssrc;
  return verdict;
}

SrtpVerdict SrtpTransform::ApplyTo(SrtpSource& source, Protocol protocol, uint8_t* packet, std::size_t& length) {
  if (direction_ == Direction::kOutgoing) {
    return protocol == Protocol::kRtp ? ProtectRtp(source, packet, length) : ProtectRtcp(source, packet, length);
  }
  return protocol == Protocol::kRtp ? UnprotectRtp(source, packet, length) : UnprotectRtcp(source, packet, length);
}

bool SrtpTransform::GiveKey(Protocol protocol) {
  if (cipher_has_key_of_ == protocol) return true;
  cipher_has_key_of_.reset();
  const SrtpSessionKeys& keys = protocol == Protocol::kRtp ? rtp_keys_ : rtcp_keys_;
  if (!cipher_->SetKey(keys.cipher_key.data())) return false;
  cipher_has_key_of_ = protocol;
  return true;
}

/// Section 4.1.1: the salt, the source and the packet's index make the first counter.
bool SrtpTransform::Encrypt(Protocol protocol, uint32_t ssrc, uint64_t index, uint8_t* data, std::size_t length) {
  if (!GiveKey(protocol)) return false;
  const SrtpSessionKeys& keys = protocol == Protocol::kRtp ? rtp_keys_ : rtcp_keys_;
  SrtpCipher::Block first{};
  std::copy(keys.salt.begin(), keys.salt.end(), first.begin());
  Write32(Read32(first.data() + 4) ^ ssrc, first.data() + 4);
  Write64(Read64(first.data() + 8) ^ index << 16, first.data() + 8);
  return cipher_->Apply(first, data, length);
}

bool SrtpTransform::HasMki(const uint8_t* at) const {
  return Same(at, keys_.mki.data(), keys_.mki.size());
}

/// Key identifier and tag; the packet's new length.
std::size_t SrtpTransform::Append(const uint8_t* tag, std::size_t tag_length, uint8_t* packet,
                                  std::size_t length) const {
  uint8_t* const end = std::copy(keys_.mki.begin(), keys_.mki.end(), packet + length);
  std::copy(tag, tag + tag_length, end);
  return length + keys_.mki.size() + tag_length;
}

SrtpVerdict SrtpTransform::ProtectRtp(SrtpSource& source, uint8_t* packet, std::size_t& length) {
  const auto header = RtpHeaderLength(packet, length);
  if (!header) return SrtpVerdict::kFailed;
  const auto index = SrtpIndexOf(source.rtp, Read16(packet + kRtpNumberAt));
  if (!index) return SrtpVerdict::kExpired;
  if (source.rtp.Holds(*index)) return SrtpVerdict::kReplayed;
  if (!Encrypt(Protocol::kRtp, source.ssrc, *index, packet + *header, length - *header)) return SrtpVerdict::kFailed;
  const auto rollovers = RolloversOf(*index);
  const auto digest = rtp_keys_.authenticator.Compute(packet, length, rollovers.data(), rollovers.size());
  length = Append(digest.data(), TagLength(Protocol::kRtp), packet, length);
  source.rtp.Add(*index);
  return SrtpVerdict::kDone;
}

SrtpVerdict SrtpTransform::UnprotectRtp(SrtpSource& source, uint8_t* packet, std::size_t& length) {
  const std::size_t tag_length = TagLength(Protocol::kRtp);
  const std::size_t clear_length = length - tag_length - keys_.mki.size();
  const auto header = RtpHeaderLength(packet, clear_length);
  if (!header || !HasMki(packet + clear_length)) return SrtpVerdict::kUnauthentic;
  const auto index = SrtpIndexOf(source.rtp, Read16(packet + kRtpNumberAt));
  if (!index) return SrtpVerdict::kExpired;
  if (source.rtp.Holds(*index)) return SrtpVerdict::kReplayed;
  const auto rollovers = RolloversOf(*index);
  const auto digest = rtp_keys_.authenticator.Compute(packet, clear_length, rollovers.data(), rollovers.size());
  if (!Same(digest.data(), packet + length - tag_length, tag_length)) return SrtpVerdict::kUnauthentic;
  if (!Encrypt(Protocol::kRtp, source.ssrc, *index, packet + *header, clear_length - *header)) {
    return SrtpVerdict::kUnauthentic;
  }
  length = clear_length;
  source.rtp.Add(*index);
  return SrtpVerdict::kDone;
}

SrtpVerdict SrtpTransform::ProtectRtcp(SrtpSource& source, uint8_t* packet, std::size_t& length) {
  const auto index = NextSrtcpIndex(source.rtcp);
  if (!index) return SrtpVerdict::kExpired;
  if (!Encrypt(Protocol::kRtcp, source.ssrc, *index, packet + kRtcpFixedHeader, length - kRtcpFixedHeader)) {
    return SrtpVerdict::kFailed;
  }
  Write32(*index | kEncrypted, packet + length);
  const std::size_t signed_length = length + kSrtcpIndex;
  const auto digest = rtcp_keys_.authenticator.Compute(packet, signed_length, nullptr, 0);
  length = Append(digest.data(), TagLength(Protocol::kRtcp), packet, signed_length);
  source.rtcp.Add(*index);
  return SrtpVerdict::kDone;
}

SrtpVerdict SrtpTransform::UnprotectRtcp(SrtpSource& source, uint8_t* packet, std::size_t& length) {
  const std::size_t tag_length = TagLength(Protocol::kRtcp);
  const std::size_t signed_length = length - tag_length - keys_.mki.size();
  const std::size_t clear_length = signed_length - kSrtcpIndex;
  const uint32_t trailer = Read32(packet + clear_length);
  // Unencrypted SRTCP is for those who have agreed on it (RFC 4568, section 6.3.2).
  if ((trailer & kEncrypted) == 0 || !HasMki(packet + signed_length)) return SrtpVerdict::kUnauthentic;
  const uint32_t index = trailer & ~kEncrypted;
  if (source.rtcp.Holds(index)) return SrtpVerdict::kReplayed;
  const auto digest = rtcp_keys_.authenticator.Compute(packet, signed_length, nullptr, 0);
  if (!Same(digest.data(), packet + length - tag_length, tag_length)) return SrtpVerdict::kUnauthentic;
  if (!Encrypt(Protocol::kRtcp, source.ssrc, index, packet + kRtcpFixedHeader, clear_length - kRtcpFixedHeader)) {
    return SrtpVerdict::kUnauthentic;
  }
  length = clear_length;
  source.rtcp.Add(index);
  return SrtpVerdict::kDone;
}

void SrtpTransform::Forget(uint32_t ssrc) {
  sources_.erase(std::remove_if(sources_.begin(), sources_.end(),
                                [ssrc](const SrtpSource& source) { return source.ssrc == ssrc; }),
                 sources_.end());
}

SrtpTransform::Position SrtpTransform::LatestPosition() const {
  Position position;
  position.ssrc = latest_rtp_ssrc_;
  const std::size_t place = Find(latest_rtp_ssrc_);
  if (place == sources_.size()) return position;
  const SrtpReplayList& list = sources_[place].rtp;
  position.rollovers = static_cast<uint32_t>(list.highest() >> 16);
  if (list.has_neighbour()) position.number = static_cast<uint16_t>(list.highest());
  return position;
}

void SrtpTransform::ContinueAt(const Position& position) {
  SrtpSource source;
  source.ssrc = position.ssrc;
  source.rtp = position.number ? SrtpReplayList::After(uint64_t{position.rollovers} << 16 | *position.number)
                               : SrtpReplayList::WithRollovers(position.rollovers);
  sources_.push_back(source);
  latest_rtp_ssrc_ = position.ssrc;
}

}  // namespace media_engine
