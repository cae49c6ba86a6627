#pragma once

#include <string>

#include <switch.h>

namespace kvx_switch {

/// "0 years, 0 days, 1 hour, 2 minutes, 3 seconds, 4 milliseconds, 5 microseconds", a year being 365 days.
std::string uptime_in_words(switch_time_t microseconds);

/// Whole units, cut; -1 for a unit that is none of us, ms, s, m, h, d.
int64_t uptime_in_units(switch_time_t microseconds, const std::string& unit);

}  // namespace kvx_switch
