#include <switch.h>

namespace {

constexpr const char* kNames[] = {"CONSOLE", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO", "DEBUG"};

}  // namespace

const char* switch_log_level2str(switch_log_level_t level) {
  if (level == SWITCH_LOG_DISABLE) return "DISABLE";
  return level < 0 || level > SWITCH_LOG_DEBUG ? kNames[SWITCH_LOG_DEBUG] : kNames[level];
}

switch_log_level_t switch_log_str2level(const char* str) {
  if (zstr(str)) return SWITCH_LOG_INVALID;
  if (switch_is_number(str)) {
    const int number = atoi(str);
    if (number < 0) return SWITCH_LOG_INVALID;
    return number > SWITCH_LOG_DEBUG ? SWITCH_LOG_DEBUG : static_cast<switch_log_level_t>(number);
  }
  for (int level = SWITCH_LOG_CONSOLE; level <= SWITCH_LOG_DEBUG; ++level) {
    if (!strcasecmp(kNames[level], str)) return static_cast<switch_log_level_t>(level);
  }
  if (!strcasecmp(str, "ERROR")) return SWITCH_LOG_ERROR;
  return SWITCH_LOG_INVALID;
}
