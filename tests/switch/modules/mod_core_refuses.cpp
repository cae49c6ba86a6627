// Registers something of everything, then says that it cannot work.

#include <switch.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_refuses_load);
SWITCH_MODULE_DEFINITION(mod_core_refuses, mod_core_refuses_load, NULL, NULL);

SWITCH_STANDARD_API(nothing) {
  (void)cmd;
  (void)session;
  (void)stream;
  return SWITCH_STATUS_SUCCESS;
}

static void receive(switch_event_t*) {}

SWITCH_MODULE_LOAD_FUNCTION(mod_core_refuses_load) {
  switch_api_interface_t* api;
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  SWITCH_ADD_API(api, "core_refused", "never there", nothing, "");
  switch_console_set_complete("add core_refused word");
  switch_event_bind(modname, SWITCH_EVENT_ALL, NULL, receive, NULL);
  return SWITCH_STATUS_TERM;
}
