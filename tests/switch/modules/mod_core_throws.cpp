// An exception leaves its load.

#include <stdexcept>

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_throws_load);
SWITCH_MODULE_DEFINITION(mod_core_throws, mod_core_throws_load, NULL, NULL);

SWITCH_MODULE_LOAD_FUNCTION(mod_core_throws_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  throw std::runtime_error("settings.xml(7): expected >");
}
