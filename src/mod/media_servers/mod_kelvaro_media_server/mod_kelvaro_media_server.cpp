#include "mod_kelvaro_media_server.h"

#include <boost/property_tree/ptree.hpp>

#include "codecs.h"
#include "commands.h"
#include "module_config.h"

using kvx_media_server::ModGlobal;

SWITCH_BEGIN_EXTERN_C
SWITCH_MODULE_LOAD_FUNCTION(mod_kelvaro_media_server_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_MODULE_DEFINITION(mod_kelvaro_media_server, mod_kelvaro_media_server_load, mod_kelvaro_media_server_shutdown,
                         NULL);
SWITCH_END_EXTERN_C

ModGlobal* mod_globals = nullptr;
const char* KELVARO_MEDIA_SERVER_CONFIG = "";
const char* STATSFILTER = nullptr;

namespace {

constexpr switch_interval_time_t kThreadsSettle = 5000;  // microseconds

// The library and the process outlive the module's pool, from which a former load's texts came.
void reset_module_globals() {
  KELVARO_MEDIA_SERVER_CONFIG = "";
  STATSFILTER = nullptr;
  reset_codec_catalogue();
}

void destroy_singleton() {
  mod_globals = nullptr;
  ModGlobal::Destroy();
}

void register_media_server_interface(switch_loadable_module_interface_t* module_interface) {
  auto* media_server = static_cast<switch_media_server_interface_t*>(
      switch_loadable_module_create_interface(module_interface, SWITCH_MEDIA_SERVER_INTERFACE));
  media_server->interface_name = "kelvaro_media_server";
  media_server->create = channel_create;
  media_server->destroy = channel_destroy;
  media_server->replace = nullptr;
  media_server->get_media = channel_get_media;
  media_server->bridge = channel_bridge;
  media_server->unbridge = channel_unbridge;
  media_server->set_media = channel_set_media;
  media_server->is_available = media_server_is_available;
}

switch_status_t start_control_library(bool enable_jsr309_trace) {
  mod_globals = ModGlobal::Instance(enable_jsr309_trace);
  if (mod_globals == nullptr) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to create global tables!");
    return SWITCH_STATUS_FALSE;
  }
  if (!mod_globals->GetMSCtrlFtry()->Init(KELVARO_MEDIA_SERVER_CONFIG, mod_globals->GetLogger().get())) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to initialize MSControlFactory.");
    destroy_singleton();
    return SWITCH_STATUS_FALSE;
  }
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

SWITCH_MODULE_LOAD_FUNCTION(mod_kelvaro_media_server_load) {
  reset_module_globals();
  bool enable_jsr309_trace = false;
  if (kvx_media_server::read_module_configuration(pool, enable_jsr309_trace) != SWITCH_STATUS_SUCCESS)
    return SWITCH_STATUS_TERM;
  boost::property_tree::ptree jsr309_configuration;
  if (kvx_media_server::read_control_library_configuration(jsr309_configuration) != SWITCH_STATUS_SUCCESS)
    return SWITCH_STATUS_TERM;
  mscodec_intersectwith_morvanecodec(jsr309_configuration);

  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  mod_media_server_load_codec(*module_interface, pool, NULL, dummy_codec_init, dummy_codec_encode, dummy_codec_decode,
                              dummy_codec_destroy);
  register_media_server_interface(*module_interface);
  const switch_status_t started = start_control_library(enable_jsr309_trace);
  if (started != SWITCH_STATUS_SUCCESS) return started;
  register_commands(module_interface);
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown) {
  if (mod_globals == nullptr) return SWITCH_STATUS_SUCCESS;
  std::vector<boost::uuids::uuid> media_sessions;
  mod_globals->GetMSTable()->ListAllMSUuid(media_sessions);
  if (!media_sessions.empty()) HangupAllMSCalls(media_sessions);
  mod_globals->GetMSTable()->EraseAllMSUuid();
  mod_globals->GetFSUuidTable()->EraseAllItems();
  mod_globals->GetMSCtrlFtry()->Stop();
  switch_sleep(kThreadsSettle);
  destroy_singleton();
  return SWITCH_STATUS_SUCCESS;
}

switch_bool_t media_server_is_available() {
  return mod_globals != nullptr && mod_globals->GetMSCtrlFtry()->IsMediaServerAvailable() ? SWITCH_TRUE : SWITCH_FALSE;
}
