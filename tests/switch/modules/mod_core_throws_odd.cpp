// Something that is no std::exception leaves its load.

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_throws_odd_load);
SWITCH_MODULE_DEFINITION(mod_core_throws_odd, mod_core_throws_odd_load, NULL, NULL);

SWITCH_MODULE_LOAD_FUNCTION(mod_core_throws_odd_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  throw 17;
}
