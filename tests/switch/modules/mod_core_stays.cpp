// Asks not to be unloaded.

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_stays_load);
SWITCH_MODULE_DEFINITION(mod_core_stays, mod_core_stays_load, NULL, NULL);

SWITCH_MODULE_LOAD_FUNCTION(mod_core_stays_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  return SWITCH_STATUS_NOUNLOAD;
}
