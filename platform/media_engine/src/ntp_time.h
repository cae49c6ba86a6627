/// Wall-clock time as RTCP writes it (RFC 3550, section 4), from the engine's monotonic clock.
///
/// Round trips are differences of these stamps, so a system clock that is set must not be seen in them: it is read
/// once, and from then on the stamps advance with the monotonic clock.
#pragma once

#include <cstdint>

#include "media_engine/clock.h"

namespace media_engine {

/// Seconds since 1900 in 32.32 fixed point.
using NtpTime = uint64_t;

/// The middle 32 bits: seconds in 16.16 fixed point, as report blocks carry them.
constexpr uint32_t ShortNtp(NtpTime time) {
  return static_cast<uint32_t>(time >> 16);
}

class NtpTimeline {
 public:
  /// At the monotonic time `now` it was `wall`.
  NtpTimeline(TimePoint now, std::chrono::system_clock::time_point wall)
      : epoch_(std::chrono::nanoseconds(seconds{kFrom1900To1970}) + wall.time_since_epoch() - now.time_since_epoch()) {}

  NtpTime At(TimePoint time) const {
    const auto since_1900 = static_cast<uint64_t>((epoch_ + time.time_since_epoch()).count());
    return (since_1900 / kNanoseconds) << 32 | (since_1900 % kNanoseconds << 32) / kNanoseconds;
  }

 private:
  static constexpr int64_t kFrom1900To1970 = 2208988800;
  static constexpr uint64_t kNanoseconds = 1000000000;  // in a second

  std::chrono::nanoseconds epoch_;  // from 1900 to the zero of the monotonic clock
};

}  // namespace media_engine
