/// What is wished of an endpoint's jitter buffer.
///
/// Packets come more unevenly than they were sent. A buffer holds each back until a time that follows from its
/// timestamp, so that they leave as evenly as they were sent and in their order, at the price of delay. One that comes
/// later than its time is dropped. None: packets pass at once, as they come.
#pragma once

#include <optional>

namespace media_engine {

enum class JitterMode {
  kNone,
  kStatic,    ///< the initial delay, always
  kAdaptive,  ///< as much delay as the network asks for, between the minimum and the maximum
};

/// Milliseconds; what is not given has a default, what is out of its range is taken as the nearest that is not, with a
/// warning: a call shall not fail for it. A static delay of 0 and a maximum of 0 are no buffer.
struct JitterBufferSettings {
  JitterMode mode = JitterMode::kNone;
  std::optional<int> initial_delay_ms;  ///< from the minimum, under kStatic from 0, to the maximum; 40
  std::optional<int> min_delay_ms;      ///< 0 to the maximum; 20; under kAdaptive only
  std::optional<int> max_pdv_ms;        ///< the largest packet delay variation that is evened out; 0 to 200; 200
};

}  // namespace media_engine
