// Made for another version of the API.

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_old_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, "mod_core_old");
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_MOD_DECLARE_DATA switch_loadable_module_function_table_t mod_core_old_module_interface = {
    SWITCH_API_VERSION - 1, mod_core_old_load, NULL, NULL, SMODF_NONE};
