/// Protects or checks the packets of one direction under one set of keys (SRTP and SRTCP, RFC 3711).
///
/// Everything that RFC 3711 keeps in a cryptographic context lives here, per source: rollover counter, replay list,
/// SRTCP index. It must outlive descriptions that repeat the keys, changes of the SSRC and moves between workers, so
/// the object goes where its endpoint goes.
///
/// Its keys serve for as many packets as they may; those that come after are refused, for good.
///
/// All that packets need is made with the keys, at the beginning: a packet takes no lock and allocates nothing, but for
/// the first of a source when there are more than kSourcesAtOnce at a time. Ciphers are OpenSSL's.
///
/// Threads: one at a time; different objects do not disturb each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "srtp_keys.h"
#include "srtp_session_keys.h"
#include "srtp_source.h"

namespace media_engine {

/// The most by which protecting makes a packet longer: tag, key identifier, SRTCP index; in whole words. So much room
/// must lie behind every packet that is protected, whatever the keys.
constexpr std::size_t kSrtpTrailerRoom = 10 + SrtpKeys::kLongestMki + 4 + 2;
static_assert(kSrtpTrailerRoom % 4 == 0);

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
  /// For which there is room from the beginning: a call has one at a time, and another with each change of the SSRC.
  static constexpr std::size_t kSourcesAtOnce = 4;

  /// Null when OpenSSL refuses; reason says why.
  static std::unique_ptr<SrtpTransform> Make(Direction direction, const SrtpKeys& keys, std::string& reason);
  SrtpTransform(const SrtpTransform&) = delete;
  SrtpTransform& operator=(const SrtpTransform&) = delete;

  /// In place. A packet that is refused stays as it was, and so does its length; only when a cipher fails, which is not
  /// known to happen, what is behind the header is undefined. Protecting needs kSrtpTrailerRoom behind the packet.
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
    uint32_t rollovers = 0;          ///< of the sequence number
    std::optional<uint16_t> number;  ///< the highest sequence number since the last of them; none: not known

    /// Whether it makes a difference to what comes: without a wrap, now or soon, counting on is counting anew.
    bool matters() const { return rollovers > 0 || number.value_or(0) > 0x7fff; }
  };
  /// Of the source of the latest RTP packet; before the first, where it is to continue, or nothing.
  Position LatestPosition() const;
  /// Before the first packet.
  void ContinueAt(const Position& position);

 private:
  SrtpTransform(Direction direction, const SrtpKeys& keys, std::unique_ptr<SrtpCipher> cipher);

  SrtpVerdict ApplyTo(SrtpSource& source, Protocol protocol, uint8_t* packet, std::size_t& length);
  SrtpVerdict ProtectRtp(SrtpSource& source, uint8_t* packet, std::size_t& length);
  SrtpVerdict ProtectRtcp(SrtpSource& source, uint8_t* packet, std::size_t& length);
  SrtpVerdict UnprotectRtp(SrtpSource& source, uint8_t* packet, std::size_t& length);
  SrtpVerdict UnprotectRtcp(SrtpSource& source, uint8_t* packet, std::size_t& length);

  bool GiveKey(Protocol protocol);
  /// Encrypts or decrypts; false when the cipher fails.
  bool Encrypt(Protocol protocol, uint32_t ssrc, uint64_t index, uint8_t* data, std::size_t length);
  bool HasMki(const uint8_t* at) const;
  std::size_t Append(const uint8_t* tag, std::size_t tag_length, uint8_t* packet, std::size_t length) const;
  std::size_t TagLength(Protocol protocol) const;
  std::size_t ShortestPacket(Protocol protocol) const;
  SrtpVerdict Invalid() const;
  /// Its place, or how many there are.
  std::size_t Find(uint32_t ssrc) const;

  const Direction direction_;
  SrtpKeys keys_;
  const std::unique_ptr<SrtpCipher> cipher_;
  std::optional<Protocol> cipher_has_key_of_;  // RTCP is too rare to have a cipher of its own
  SrtpSessionKeys rtp_keys_, rtcp_keys_;
  uint64_t rtp_packets_ = 0, rtcp_packets_ = 0;
  std::vector<SrtpSource> sources_;  // the latest is the last
  uint32_t latest_rtp_ssrc_ = 0;
};

}  // namespace media_engine
