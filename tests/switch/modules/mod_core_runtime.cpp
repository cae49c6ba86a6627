// Has a runtime function, which wants to be called three times; counts the calls in a global variable.

#include <atomic>
#include <string>

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_runtime_load);
SWITCH_MODULE_RUNTIME_FUNCTION(mod_core_runtime_runtime);
SWITCH_MODULE_DEFINITION(mod_core_runtime, mod_core_runtime_load, NULL, mod_core_runtime_runtime);

static std::atomic<int> calls{0};

SWITCH_MODULE_LOAD_FUNCTION(mod_core_runtime_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_MODULE_RUNTIME_FUNCTION(mod_core_runtime_runtime) {
  const int now = ++calls;
  switch_core_set_variable("mod_core_runtime_calls", std::to_string(now).c_str());
  return now < 3 ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_TERM;
}
