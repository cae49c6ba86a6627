// An exception leaves its shutdown.

#include <stdexcept>

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_shutdown_throws_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_core_shutdown_throws_shutdown);
SWITCH_MODULE_DEFINITION(mod_core_shutdown_throws, mod_core_shutdown_throws_load, mod_core_shutdown_throws_shutdown,
                         NULL);

SWITCH_MODULE_LOAD_FUNCTION(mod_core_shutdown_throws_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_core_shutdown_throws_shutdown) {
  throw std::runtime_error("cannot stop");
}
