#include "srtp_source.h"

namespace media_engine {
namespace {

constexpr uint64_t kHighestRollovers = 0xffffffff;
constexpr uint64_t kHighestSrtcpIndex = 0x7fffffff;
constexpr int kHalf = 0x8000;

}  // namespace

bool SrtpReplayList::Holds(uint64_t index) const {
  if (empty() || index > highest_) return false;
  const uint64_t below = highest_ - index;
  return below >= kWindow || seen_[static_cast<std::size_t>(below)];
}

void SrtpReplayList::Add(uint64_t index) {
  if (empty() || index > highest_) {
    const uint64_t step = index - highest_;
    seen_ = empty() || step >= kWindow ? std::bitset<kWindow>() : seen_ << static_cast<std::size_t>(step);
    highest_ = index;
  }
  seen_.set(static_cast<std::size_t>(highest_ - index));
}

std::optional<uint64_t> SrtpIndexOf(const SrtpReplayList& list, uint16_t sequence_number) {
  uint64_t rollovers = list.highest() >> 16;
  if (list.has_neighbour()) {
    const int step = int{sequence_number} - static_cast<int>(list.highest() & 0xffff);
    if (step < -kHalf) {
      ++rollovers;
    } else if (step > kHalf && rollovers > 0) {
      --rollovers;
    }
  }
  if (rollovers > kHighestRollovers) return std::nullopt;
  return rollovers << 16 | sequence_number;
}

std::optional<uint32_t> NextSrtcpIndex(const SrtpReplayList& list) {
  if (list.highest() >= kHighestSrtcpIndex) return std::nullopt;
  return static_cast<uint32_t>(list.highest() + 1);
}

}  // namespace media_engine
