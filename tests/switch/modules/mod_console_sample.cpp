// A module for tests of the console: one of each kind of interface, none of which does more than be there.

#include <switch.h>

#include <switch_media_server.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_console_sample_load);
SWITCH_MODULE_DEFINITION(mod_console_sample, mod_console_sample_load, nullptr, nullptr);

SWITCH_STANDARD_API(console_sample_function) {
  (void)session;
  stream->write_function(stream, "sample %s\n", cmd != nullptr ? cmd : "");
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_STANDARD_API(console_sample_fail_function) {
  (void)cmd;
  (void)session;
  (void)stream;
  return SWITCH_STATUS_GENERR;
}

static switch_bool_t always_available() {
  return SWITCH_TRUE;
}

SWITCH_MODULE_LOAD_FUNCTION(mod_console_sample_load) {
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  switch_api_interface_t* api = nullptr;
  SWITCH_ADD_API(api, "console_sample", "say sample", console_sample_function, "[<words>]");
  SWITCH_ADD_API(api, "console_sample_fail", "fail without a word", console_sample_fail_function, "");
  switch_codec_interface_t* codec = nullptr;
  SWITCH_ADD_CODEC(codec, "Sample codec");
  auto* media_server = static_cast<switch_media_server_interface_t*>(
      switch_loadable_module_create_interface(*module_interface, SWITCH_MEDIA_SERVER_INTERFACE));
  media_server->interface_name = "sample";
  media_server->is_available = always_available;
  return SWITCH_STATUS_SUCCESS;
}
