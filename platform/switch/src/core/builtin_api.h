#pragma once

#include <switch.h>

namespace kvx_switch {

/// Adds a command of the switch itself, seen as one of the module "kvx_switch" that is never unloaded. Texts must
/// outlive the core (literals). After switch_core_init, before or while commands run; a second one of the same name is
/// refused with a log line and FALSE.
switch_status_t RegisterBuiltinApi(const char* name, const char* desc, switch_api_function_t function,
                                   const char* syntax);

}  // namespace kvx_switch
