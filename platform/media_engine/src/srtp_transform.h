/// Protects or checks the packets of one direction under one set of keys (SRTP and SRTCP, RFC 3711).
///
/// Everything that RFC 3711 keeps in a cryptographic context lives here, per source: rollover counter, replay list,
/// SRTCP index. It must outlive descriptions that repeat the keys, changes of the SSRC and moves between workers, so
/// the object goes where its endpoint goes.
///
/// Its keys serve for as many packets as they may; those that come after are refused, for good.
///
/// The work is libsrtp2's. A source's part is made when its first packet comes, the rest at the beginning.
///
/// Threads: one at a time; different objects do not disturb each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "srtp_keys.h"

struct srtp_ctx_t_;

namespace media_engine {

/// The most by which protecting makes a packet longer: tag, key identifier, SRTCP index. So much room must lie behind
/// every packet that is protected, whatever the keys.
constexpr std::size_t kSrtpTrailerRoom = 16 + 128 + 4;

enum class SrtpVerdict : uint8_t {
  kDone,
  kUnauthentic,  ///< not protected with these keys, altered since, or cut short
  kReplayed,     ///< came before, or is older than the replay list reaches; for sending: its number was used already
  kExpired,      ///< the keys have served for as long as they may
  kSourcesExceeded,  ///< of a source too many
  kFailed,           ///< cannot be protected: it is no packet
};

class SrtpTransform {
 public:
  enum class Direction : uint8_t { kOutgoing, kIncoming };
  enum class Protocol : uint8_t { kRtp, kRtcp };
  /// For receiving: each source costs memory, and whoever has the keys can make up sources.
  static constexpr std::size_t kMostSources = 256;

  /// Null when the library refuses; reason says why.
  static std::unique_ptr<SrtpTransform> Make(Direction direction, const SrtpKeys& keys, std::string& reason);
  ~SrtpTransform();
  SrtpTransform(const SrtpTransform&) = delete;
  SrtpTransform& operator=(const SrtpTransform&) = delete;

  /// In place; the packet begins at a multiple of four octets. What is behind a verdict other than kDone is undefined,
  /// length aside, which then stays. Protecting needs kSrtpTrailerRoom behind the packet.
  SrtpVerdict Apply(Protocol protocol, uint8_t* packet, std::size_t& length);

  const SrtpKeys& keys() const { return keys_; }
  bool in_use() const { return rtp_packets_ > 0; }
  /// As the latest description has it; packets that were counted stay so.
  void SetLifetime(const SrtpKeys& keys);

  /// Of a source that sends no more: it must not come back under these keys.
  void Forget(uint32_t ssrc);

  // Going on where other keys stopped (RFC 3711, section 3.3.1: new keys do not reset the rollover counter).
  struct Position {
    uint32_t ssrc = 0;
    uint32_t rollovers = 0;  ///< of the sequence number
  };
  /// Of the source of the latest RTP packet; before the first, where it is to continue, or zero rollovers.
  Position LatestPosition() const;
  /// Before the first packet. False when the library refuses.
  bool ContinueAt(const Position& position);

 private:
  SrtpTransform(Direction direction, const SrtpKeys& keys);
  Outcome Open();
  srtp_ctx_t_* ContextOf(Protocol protocol) const;
  /// As the library names its results.
  SrtpVerdict VerdictOf(int status) const;
  int Call(Protocol protocol, uint8_t* packet, int* length) const;
  std::size_t ShortestPacket(Protocol protocol) const;
  bool Knows(uint32_t ssrc) const;
  void Remember(uint32_t ssrc);

  const Direction direction_;
  SrtpKeys keys_;
  srtp_ctx_t_* context_ = nullptr;
  srtp_ctx_t_* rtcp_context_ = nullptr;  // null: the same as for RTP
  uint64_t rtp_packets_ = 0, rtcp_packets_ = 0;
  std::vector<uint32_t> sources_;  // grows with a source's first packet, as the library does
  uint32_t latest_rtp_ssrc_ = 0;
  uint32_t continued_rollovers_ = 0;  // what counts until the first RTP packet
};

}  // namespace media_engine
