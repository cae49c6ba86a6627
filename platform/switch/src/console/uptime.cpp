#include "console/uptime.h"

namespace kvx_switch {
namespace {

constexpr int64_t kMillisecond = 1000;
constexpr int64_t kSecond = 1000 * kMillisecond;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;
constexpr int64_t kYear = 365 * kDay;

struct Unit {
  const char* word;
  const char* symbol;
  int64_t microseconds;
};

// From large to small.
constexpr Unit kUnits[] = {{"year", "", kYear},      {"day", "d", kDay},       {"hour", "h", kHour},
                           {"minute", "m", kMinute}, {"second", "s", kSecond}, {"millisecond", "ms", kMillisecond},
                           {"microsecond", "us", 1}};

}  // namespace

std::string uptime_in_words(switch_time_t microseconds) {
  std::string text;
  for (const Unit& unit : kUnits) {
    const int64_t count = microseconds / unit.microseconds;
    microseconds %= unit.microseconds;
    if (!text.empty()) text += ", ";
    text += std::to_string(count) + " " + unit.word + (count == 1 ? "" : "s");
  }
  return text;
}

int64_t uptime_in_units(switch_time_t microseconds, const std::string& symbol) {
  for (const Unit& unit : kUnits) {
    if (!symbol.empty() && symbol == unit.symbol) return microseconds / unit.microseconds;
  }
  return -1;
}

}  // namespace kvx_switch
