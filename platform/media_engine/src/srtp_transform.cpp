#include "srtp_transform.h"

#include <arpa/inet.h>
#include <srtp2/srtp.h>

#include <algorithm>

#include "srtp_library.h"

namespace media_engine {
namespace {

static_assert(kSrtpTrailerRoom >= SRTP_MAX_TRAILER_LEN + 4, "what the library may write behind an RTCP packet");
static_assert(SrtpKeys::kLength == SRTP_AES_ICM_128_KEY_LEN_WSALT && SrtpKeys::kLongestMki == SRTP_MAX_MKI_LEN);

constexpr std::size_t kRtpFixedHeader = 12, kRtpSsrcAt = 8;
constexpr std::size_t kRtcpFixedHeader = 8, kRtcpSsrcAt = 4;
constexpr std::size_t kSrtcpIndex = 4;
constexpr std::size_t kLongTag = 10, kShortTag = 4;  // the short one for RTP only (RFC 4568, section 6.2.2)
/// As far as packets may be out of order, in packets. No less than the numbers that we ourselves give out of order.
constexpr unsigned long kReplayWindow = 128;

uint32_t SsrcAt(const uint8_t* octets) {
  return uint32_t{octets[0]} << 24 | uint32_t{octets[1]} << 16 | uint32_t{octets[2]} << 8 | octets[3];
}

/// The library wants pointers to what it only reads.
class Policy {
 public:
  Policy(const SrtpKeys& keys, srtp_ssrc_t ssrc) : master_(keys.master), mki_(keys.mki) {
    srtp_crypto_policy_set_rtp_default(&policy_.rtp);
    srtp_crypto_policy_set_rtcp_default(&policy_.rtcp);
    if (keys.suite == SrtpSuite::kAesCm128HmacSha1_32) srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32(&policy_.rtp);
    policy_.ssrc = ssrc;
    policy_.window_size = kReplayWindow;
    if (mki_.empty()) {
      policy_.key = master_.data();
      return;
    }
    key_.key = master_.data();
    key_.mki_id = mki_.data();
    key_.mki_size = static_cast<unsigned>(mki_.size());
    policy_.keys = &only_key_;
    policy_.num_master_keys = 1;
  }
  const srtp_policy_t* get() const { return &policy_; }

 private:
  SecretBytes master_;
  std::vector<uint8_t> mki_;
  srtp_master_key_t key_{};
  srtp_master_key_t* only_key_ = &key_;
  srtp_policy_t policy_{};
};

}  // namespace

SrtpTransform::SrtpTransform(Direction direction, const SrtpKeys& keys) : direction_(direction), keys_(keys) {}

std::unique_ptr<SrtpTransform> SrtpTransform::Make(Direction direction, const SrtpKeys& keys, std::string& reason) {
  if (!SrtpLibraryReady(reason)) return nullptr;
  std::unique_ptr<SrtpTransform> transform(new SrtpTransform(direction, keys));
  const Outcome outcome = transform->Open();
  reason = outcome.reason;
  return outcome ? std::move(transform) : nullptr;
}

Outcome SrtpTransform::Open() {
  const srtp_ssrc_t any{direction_ == Direction::kOutgoing ? ssrc_any_outbound : ssrc_any_inbound, 0};
  srtp_err_status_t status = srtp_create(&context_, Policy(keys_, any).get());
  // To find the identifier in an RTCP packet, libsrtp2 before 2.7 counts back from the end by the length of RTP's tag.
  // Where the two tags differ, RTCP is given a context in which they do not.
  const bool tags_differ = keys_.suite == SrtpSuite::kAesCm128HmacSha1_32;
  if (status == srtp_err_status_ok && direction_ == Direction::kIncoming && tags_differ && !keys_.mki.empty()) {
    SrtpKeys rtcp_keys = keys_;
    rtcp_keys.suite = SrtpSuite::kAesCm128HmacSha1_80;
    status = srtp_create(&rtcp_context_, Policy(rtcp_keys, any).get());
  }
  if (status == srtp_err_status_ok) return Outcome::Done();
  return Outcome::Refused("libsrtp2 makes no context, status " + std::to_string(status));
}

SrtpTransform::~SrtpTransform() {
  for (srtp_t context : {context_, rtcp_context_}) {
    if (context != nullptr) srtp_dealloc(context);
  }
}

void SrtpTransform::SetLifetime(const SrtpKeys& keys) {
  keys_.rtp_lifetime = keys.rtp_lifetime;
  keys_.rtcp_lifetime = keys.rtcp_lifetime;
}

bool SrtpTransform::Knows(uint32_t ssrc) const {
  // The latest source is the likeliest.
  return std::find(sources_.rbegin(), sources_.rend(), ssrc) != sources_.rend();
}

void SrtpTransform::Remember(uint32_t ssrc) {
  sources_.push_back(ssrc);
}

std::size_t SrtpTransform::ShortestPacket(Protocol protocol) const {
  const bool rtp = protocol == Protocol::kRtp;
  const std::size_t header = rtp ? kRtpFixedHeader : kRtcpFixedHeader;
  if (direction_ == Direction::kOutgoing) return header;
  const std::size_t tag = rtp && keys_.suite == SrtpSuite::kAesCm128HmacSha1_32 ? kShortTag : kLongTag;
  return header + keys_.mki.size() + tag + (rtp ? 0 : kSrtcpIndex);
}

srtp_ctx_t_* SrtpTransform::ContextOf(Protocol protocol) const {
  return protocol == Protocol::kRtcp && rtcp_context_ != nullptr ? rtcp_context_ : context_;
}

int SrtpTransform::Call(Protocol protocol, uint8_t* packet, int* length) const {
  const srtp_t context = ContextOf(protocol);
  const unsigned with_mki = keys_.mki.empty() ? 0 : 1;
  if (protocol == Protocol::kRtp) {
    return direction_ == Direction::kOutgoing ? srtp_protect_mki(context, packet, length, with_mki, 0)
                                              : srtp_unprotect_mki(context, packet, length, with_mki);
  }
  return direction_ == Direction::kOutgoing ? srtp_protect_rtcp_mki(context, packet, length, with_mki, 0)
                                            : srtp_unprotect_rtcp_mki(context, packet, length, with_mki);
}

SrtpVerdict SrtpTransform::VerdictOf(int status) const {
  if (status == srtp_err_status_ok) return SrtpVerdict::kDone;
  if (status == srtp_err_status_key_expired) return SrtpVerdict::kExpired;
  if (status == srtp_err_status_replay_fail || status == srtp_err_status_replay_old) return SrtpVerdict::kReplayed;
  return direction_ == Direction::kOutgoing ? SrtpVerdict::kFailed : SrtpVerdict::kUnauthentic;
}

SrtpVerdict SrtpTransform::Apply(Protocol protocol, uint8_t* packet, std::size_t& length) {
  if (length < ShortestPacket(protocol)) {
    return direction_ == Direction::kOutgoing ? SrtpVerdict::kFailed : SrtpVerdict::kUnauthentic;
  }
  const bool rtp = protocol == Protocol::kRtp;
  uint64_t& packets = rtp ? rtp_packets_ : rtcp_packets_;
  if (packets >= (rtp ? keys_.rtp_lifetime : keys_.rtcp_lifetime)) return SrtpVerdict::kExpired;
  const uint32_t ssrc = SsrcAt(packet + (rtp ? kRtpSsrcAt : kRtcpSsrcAt));
  const bool known = Knows(ssrc);
  const bool incoming = direction_ == Direction::kIncoming;
  if (incoming && !known && sources_.size() == kMostSources) return SrtpVerdict::kSourcesExceeded;
  int new_length = static_cast<int>(length);
  const SrtpVerdict verdict = VerdictOf(Call(protocol, packet, &new_length));
  if (verdict != SrtpVerdict::kDone) return verdict;
  length = static_cast<std::size_t>(new_length);
  ++packets;
  if (!known) Remember(ssrc);
  if (rtp) latest_rtp_ssrc_ = ssrc;
  return verdict;
}

void SrtpTransform::Forget(uint32_t ssrc) {
  const auto source = std::find(sources_.begin(), sources_.end(), ssrc);
  if (source == sources_.end()) return;
  sources_.erase(source);
  srtp_remove_stream(context_, htonl(ssrc));
}

SrtpTransform::Position SrtpTransform::LatestPosition() const {
  Position position{latest_rtp_ssrc_, continued_rollovers_};
  if (!in_use()) return position;
  position.rollovers = 0;
  srtp_get_stream_roc(context_, position.ssrc, &position.rollovers);
  return position;
}

bool SrtpTransform::ContinueAt(const Position& position) {
  if (srtp_add_stream(context_, Policy(keys_, {ssrc_specific, position.ssrc}).get()) != srtp_err_status_ok)
    return false;
  Remember(position.ssrc);
  latest_rtp_ssrc_ = position.ssrc;
  if (srtp_set_stream_roc(context_, position.ssrc, position.rollovers) != srtp_err_status_ok) return false;
  continued_rollovers_ = position.rollovers;
  return true;
}

}  // namespace media_engine
