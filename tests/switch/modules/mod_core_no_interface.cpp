// Says that it is loaded, but has made nothing.

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_no_interface_load);
SWITCH_MODULE_DEFINITION(mod_core_no_interface, mod_core_no_interface_load, NULL, NULL);

SWITCH_MODULE_LOAD_FUNCTION(mod_core_no_interface_load) {
  (void)module_interface;
  (void)pool;
  return SWITCH_STATUS_SUCCESS;
}
