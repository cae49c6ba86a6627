/// What a jitter buffer does, worked out from what was wished: every value given and in its range.
#pragma once

#include <string>

#include "media_engine/clock.h"
#include "media_engine/jitter_buffer_settings.h"

namespace media_engine {

/// min <= initial <= max; max is not 0. Under kNone nothing else counts.
struct JitterPlan {
  JitterMode mode = JitterMode::kNone;
  milliseconds initial_delay{0};
  milliseconds min_delay{0};  ///< under kStatic the initial one
  milliseconds max_delay{0};  ///< no packet is held longer
};

bool operator==(const JitterPlan& a, const JitterPlan& b);
inline bool operator!=(const JitterPlan& a, const JitterPlan& b) {
  return !(a == b);
}

/// corrections: what was wished and cannot be, for the log; empty when there is nothing of the kind.
JitterPlan PlanJitterBuffer(const JitterBufferSettings& settings, std::string& corrections);

}  // namespace media_engine
