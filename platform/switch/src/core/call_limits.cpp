#include "core/call_limits.h"

#include <charconv>
#include <cstdint>

#include "core/session_manager.h"
#include "core/session_rate.h"

namespace kvx_switch {

namespace {

// More threads, or more calls in a second, than one machine has a use for.
constexpr uint32_t kMostSessions = 1000000;
constexpr uint32_t kMostPerSecond = 100000;

}  // namespace

bool IsCallLimit(const std::string& name) {
  return name == "max-sessions" || name == "sessions-per-second";
}

bool SetCallLimit(const std::string& name, const std::string& value, std::string& error) {
  const bool at_once = name == "max-sessions";
  const uint32_t most = at_once ? kMostSessions : kMostPerSecond;
  uint32_t number = 0;
  const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
  if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number < 1 || number > most) {
    error = "\"" + name + "\" is \"" + value + "\", not a number from 1 to " + std::to_string(most);
    return false;
  }
  if (at_once) {
    SessionManager::Get().SetMaximum(number);
  } else {
    SessionRate::Get().SetLimit(number);
  }
  return true;
}

}  // namespace kvx_switch
