/// What RFC 3711 keeps of one source of packets: which numbers were used, and how often the sequence number has
/// wrapped.
///
/// Threads: none of their own.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace media_engine {

/// Which packet indices came (section 3.3.2): the highest, and which of those just below it.
class SrtpReplayList {
 public:
  /// As far as packets may be out of order. No less than the numbers that we ourselves give out of order.
  static constexpr std::size_t kWindow = 128;

  SrtpReplayList() = default;
  /// None came yet, and the first has that many rollovers.
  static SrtpReplayList WithRollovers(uint32_t rollovers) { return {uint64_t{rollovers} << 16, false}; }
  /// None came yet, but that one elsewhere: the first is near it.
  static SrtpReplayList After(uint64_t index) { return {index, true}; }

  bool empty() const { return seen_.none(); }
  /// Whether highest is an index of which others are near, not of its rollovers alone.
  bool has_neighbour() const { return !empty() || after_; }
  /// Before the first, what is known of it.
  uint64_t highest() const { return highest_; }
  /// Whether it came, or is too old to tell.
  bool Holds(uint64_t index) const;
  /// Only what it does not hold.
  void Add(uint64_t index);

 private:
  SrtpReplayList(uint64_t highest, bool after) : highest_(highest), after_(after) {}

  uint64_t highest_ = 0;
  bool after_ = false;
  std::bitset<kWindow> seen_;  // by how much they are below the highest
};

/// Of one SSRC.
struct SrtpSource {
  uint32_t ssrc = 0;
  SrtpReplayList rtp, rtcp;
};

/// The index of an RTP packet, 48 bits: the nearest to the highest that came (section 3.3.1 and appendix A), never
/// below zero. Without any, it has the rollovers that are known, or none. None when there are no more.
std::optional<uint64_t> SrtpIndexOf(const SrtpReplayList& list, uint16_t sequence_number);

/// The index of the next RTCP packet to be sent, 31 bits, from 1. None when there are no more.
std::optional<uint32_t> NextSrtcpIndex(const SrtpReplayList& list);

}  // namespace media_engine
