/// How long the packets of a stream were on their way lately: the shortest time, and by how much nearly all of them
/// exceeded it.
///
/// The clocks of both ends run on their own, so a transit time is a difference of two clocks' readings and means
/// something only beside others of the stream. It counts over the last packets only: clocks drift apart, and networks
/// change.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace media_engine {

class TransitWindow {
 public:
  using microseconds = std::chrono::microseconds;
  static constexpr std::size_t kPackets = 256;  ///< five seconds of 20 ms packets

  /// Forgets everything but the shortest time, which stands until the next is added.
  void Clear() { count_ = 0; }
  /// True when the spread was worked out anew, which is not done for each.
  bool Add(microseconds transit);
  /// Works out the spread now.
  void Refresh();

  microseconds shortest() const { return shortest_; }  ///< 0 before the first
  /// By how much all but one in a hundred exceeded the shortest at most.
  microseconds spread() const { return spread_; }
  std::size_t count() const { return count_ < kPackets ? static_cast<std::size_t>(count_) : kPackets; }

 private:
  std::array<microseconds, kPackets> transits_{};
  uint64_t count_ = 0;  // since Clear
  microseconds shortest_{0};
  microseconds spread_{0};
};

}  // namespace media_engine
