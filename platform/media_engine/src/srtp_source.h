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

  /// None came yet, and the next is likely not far from that one.
  explicit SrtpReplayList(uint64_t expected = 0) : highest_(expected) {}

  bool empty() const { return seen_.none(); }
  /// Before the first, what was expected.
  uint64_t highest() const { return highest_; }
  /// Whether it came, or is too old to tell.
  bool Holds(uint64_t index) const;
  /// Only what it does not hold.
  void Add(uint64_t index);

 private:
  uint64_t highest_;
  std::bitset<kWindow> seen_;  // by how much they are below the highest
};

/// Of one SSRC.
struct SrtpSource {
  uint32_t ssrc = 0;
  SrtpReplayList rtp, rtcp;
};

/// The index of an RTP packet, 48 bits: the nearest to those that came (section 3.3.1 and appendix A), never below
/// zero; the first is taken as not wrapped since what was expected. None when there are no more.
std::optional<uint64_t> SrtpIndexOf(const SrtpReplayList& list, uint16_t sequence_number);

/// The index of the next RTCP packet to be sent, 31 bits, from 1. None when there are no more.
std::optional<uint32_t> NextSrtcpIndex(const SrtpReplayList& list);

}  // namespace media_engine
