#include "core/status_name.h"

namespace kvx_switch {

const char* StatusName(switch_status_t status) {
  static const char* const kNames[] = {
      "SWITCH_STATUS_SUCCESS",  "SWITCH_STATUS_FALSE",     "SWITCH_STATUS_TIMEOUT",        "SWITCH_STATUS_RESTART",
      "SWITCH_STATUS_INTR",     "SWITCH_STATUS_NOTIMPL",   "SWITCH_STATUS_MEMERR",         "SWITCH_STATUS_NOOP",
      "SWITCH_STATUS_RESAMPLE", "SWITCH_STATUS_GENERR",    "SWITCH_STATUS_INUSE",          "SWITCH_STATUS_BREAK",
      "SWITCH_STATUS_SOCKERR",  "SWITCH_STATUS_MORE_DATA", "SWITCH_STATUS_NOTFOUND",       "SWITCH_STATUS_UNLOAD",
      "SWITCH_STATUS_NOUNLOAD", "SWITCH_STATUS_IGNORE",    "SWITCH_STATUS_TOO_SMALL",      "SWITCH_STATUS_FOUND",
      "SWITCH_STATUS_CONTINUE", "SWITCH_STATUS_TERM",      "SWITCH_STATUS_NOT_INITALIZED", "SWITCH_STATUS_TOO_LATE"};
  const auto index = static_cast<size_t>(status);
  return index < sizeof(kNames) / sizeof(kNames[0]) ? kNames[index] : "an unknown status";
}

}  // namespace kvx_switch
