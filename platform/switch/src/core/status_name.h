#pragma once

#include <switch.h>

namespace kvx_switch {

/// The enumerator, "SWITCH_STATUS_TERM"; "an unknown status" for none of them.
const char* StatusName(switch_status_t status);

}  // namespace kvx_switch
