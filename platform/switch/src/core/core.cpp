#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <string>

#include <switch.h>

#include "core/call_limits.h"
#include "core/completion.h"
#include "core/configuration.h"
#include "core/event.h"
#include "core/interface_list.h"
#include "core/log.h"
#include "core/log_file.h"
#include "core/module_registry.h"
#include "core/session_manager.h"
#include "core/session_rate.h"
#include "core/variables.h"

switch_directories SWITCH_GLOBAL_dirs;

namespace kvx_switch {
namespace {

struct Core {
  std::mutex mutex;      // held through start and end
  bool started = false;  // guarded by mutex
  std::string error;     // guarded by mutex
  switch_time_t started_at = 0;
  char uuid[SWITCH_UUID_FORMATTED_LENGTH + 1] = "";
};

Core& core() {
  static Core* const the_core = new Core;
  return *the_core;
}

char* joined(const char* directory, const char* name) {
  return switch_mprintf("%s/%s", directory, name);
}

bool is_whole_number(const std::string& text) {
  return !text.empty() && text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
}

void warn(const std::string& line) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\n", line.c_str());
}

/// One <param> of switch.conf.xml.
void apply_setting(const std::string& place, const std::string& name, const std::string& value, std::string& error) {
  const std::string given = place + "\"" + name + "\" is \"" + value + "\", not ";
  if (IsCallLimit(name)) {
    std::string mistake;
    if (!SetCallLimit(name, value, mistake)) AddLine(error, place + mistake);
  } else if (name == "loglevel") {
    const switch_log_level_t level = switch_log_str2level(value.c_str());
    if (level == SWITCH_LOG_INVALID) return warn(given + "a log level; ignored");
    SetLogLevel(level);
  } else if (name == "debug-level") {
    if (!is_whole_number(value) || std::stoi(value) > 10) return warn(given + "a number from 0 to 10; ignored");
    SetDebugLevel(std::stoi(value));
  } else if (!name.empty()) {
    warn(place + "unknown parameter \"" + name + "\", ignored");
  }
}

}  // namespace

/// The file may be missing; then everything is as usual.
bool ReadSwitchSettings(std::string& error) {
  error.clear();
  const std::string path = ConfigurationPath("switch.conf");
  if (!FileExists(path)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "No %s: usual settings\n", path.c_str());
    return true;
  }
  switch_xml_t configuration = nullptr;
  switch_xml_t root = OpenConfiguration("switch.conf", configuration, error);
  if (!root) return false;
  WarnOfUnread(path, configuration, "settings", kParamOutline);
  switch_xml_t settings = switch_xml_child(configuration, "settings");
  // The level last: what is wrong with the others is to be seen whatever it is.
  for (const bool level : {false, true}) {
    for (switch_xml_t at = switch_xml_child(settings, "param"); at; at = at->next) {
      const std::string name = switch_xml_attr_soft(at, "name");
      if ((name == "loglevel") == level) apply_setting(At(path, at), name, switch_xml_attr_soft(at, "value"), error);
    }
  }
  switch_xml_free(root);
  return error.empty();
}

namespace {

/// The switch's own commands live in a module record like any other's.
void add_own_module() {
  auto own = std::make_shared<Module>();
  own->name = "kvx_switch";
  own->stays = true;
  switch_core_new_memory_pool(&own->pool);
  own->interface = switch_loadable_module_create_module_interface(own->pool, own->name.c_str());
  ModuleRegistry::Get().Add(own);
}

void remove_own_module() {
  std::string user;
  const auto own = ModuleRegistry::Get().TakeOutUnused("kvx_switch", user);
  if (own) {
    switch_core_destroy_memory_pool(&own->pool);
  } else {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "The switch's own commands stay: %s\n", user.c_str());
  }
}

void fire(switch_event_types_t id, const char* info) {
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, id) != SWITCH_STATUS_SUCCESS) return;
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Event-Info", info);
  switch_event_fire(&event);
}

void free_directories() {
  char** const all[] = {&SWITCH_GLOBAL_dirs.base_dir, &SWITCH_GLOBAL_dirs.mod_dir, &SWITCH_GLOBAL_dirs.conf_dir,
                        &SWITCH_GLOBAL_dirs.log_dir,  &SWITCH_GLOBAL_dirs.run_dir, &SWITCH_GLOBAL_dirs.temp_dir};
  for (char** directory : all) {
    free(*directory);
    *directory = nullptr;
  }
}

void end_services() {
  SessionManager::Get().Stop();
  switch_loadable_module_shutdown();
  fire(SWITCH_EVENT_SHUTDOWN, "System Shutting Down");
  StopEvents();
  ClearCompletions();
  remove_own_module();
  StopLog();
  StopLogFile();
  SetLogLevel(SWITCH_LOG_DEBUG);
  SetDebugLevel(0);
  ClearVariables();
  free_directories();
}

bool start_log_file(std::string& error) {
  LogFileSettings settings;
  if (!ReadLogFileSettings(settings, error)) return false;
  StartLogFile(settings);
  return true;
}

bool start(bool console, std::string& error) {
  switch_core_set_globals();
  StartLog();
  if (console) switch_log_bind_logger(LogToConsole, SWITCH_LOG_DEBUG, SWITCH_TRUE);
  StartEvents();
  SessionManager::Get().Start();
  add_own_module();
  if (ReadVariables(error) && ReadSwitchSettings(error) && start_log_file(error)) return true;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "%s\n", error.c_str());
  end_services();
  return false;
}

switch_status_t fail(const std::string& error, const char** err) {
  core().error = error;
  if (err) *err = core().error.c_str();
  return SWITCH_STATUS_GENERR;
}

}  // namespace

SwitchTotals GetSwitchTotals() {
  SwitchTotals totals;
  totals.started = core().started_at;
  totals.sessions = SessionManager::Get().Total();
  totals.peak_sessions = SessionManager::Get().Peak();
  return totals;
}

}  // namespace kvx_switch

using namespace kvx_switch;

char* switch_core_get_uuid(void) {
  return core().uuid;
}

void switch_core_set_globals(void) {
  switch_directories& all = SWITCH_GLOBAL_dirs;
  if (!all.base_dir) {
    char here[PATH_MAX];
    all.base_dir = strdup(getcwd(here, sizeof(here)) ? here : ".");
  }
  if (!all.mod_dir) all.mod_dir = joined(all.base_dir, "mod");
  if (!all.conf_dir) all.conf_dir = joined(all.base_dir, "conf");
  if (!all.log_dir) all.log_dir = joined(all.base_dir, "log");
  if (!all.run_dir) all.run_dir = joined(all.base_dir, "run");
  if (!all.temp_dir) all.temp_dir = strdup("/tmp");
}

switch_status_t switch_core_init(switch_core_flag_t, switch_bool_t console, const char** err) {
  std::lock_guard<std::mutex> lock(core().mutex);
  if (core().started) return fail("the core is running already", err);
  switch_uuid_str(core().uuid, sizeof(core().uuid));
  core().started_at = switch_time_now();
  std::string error;
  if (!start(console == SWITCH_TRUE, error)) return fail(error, err);
  core().started = true;
  if (err) *err = "Success";
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_core_init_and_modload(switch_core_flag_t flags, switch_bool_t console, const char** err) {
  const switch_status_t status = switch_core_init(flags, console, err);
  if (status != SWITCH_STATUS_SUCCESS) return status;
  if (switch_loadable_module_init(SWITCH_TRUE) != SWITCH_STATUS_SUCCESS) {
    switch_core_destroy();
    std::lock_guard<std::mutex> lock(core().mutex);
    return fail("the modules of modules.conf could not be loaded", err);
  }
  fire(SWITCH_EVENT_STARTUP, "System Ready");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_core_destroy(void) {
  std::lock_guard<std::mutex> lock(core().mutex);
  if (!core().started) return SWITCH_STATUS_FALSE;
  end_services();
  core().started = false;
  return SWITCH_STATUS_SUCCESS;
}

int32_t switch_core_session_ctl(switch_session_ctl_t cmd, void* val) {
  auto* value = static_cast<int32_t*>(val);
  SessionManager& sessions = SessionManager::Get();
  switch (cmd) {
    case SCSC_PAUSE_ALL:
      if (value) sessions.SetPaused(*value != 0);
      return sessions.Paused();
    case SCSC_HUPALL:
      HangUpAll(SWITCH_CAUSE_MANAGER_REQUEST);
      return 0;
    case SCSC_SHUTDOWN:
      sessions.BeginShutdown();
      HangUpAll(SWITCH_CAUSE_SYSTEM_SHUTDOWN);
      return 0;
    case SCSC_CHECK_RUNNING:
      return sessions.Running();
    case SCSC_LOGLEVEL:
      if (!value) return LogLevel();
      if (*value >= 0) SetLogLevel(static_cast<switch_log_level_t>(*value));
      return *value = LogLevel();
    case SCSC_MAX_SESSIONS:
      if (!value) return static_cast<int32_t>(sessions.Maximum());
      if (*value > 0) sessions.SetMaximum(static_cast<uint32_t>(*value));
      return *value = static_cast<int32_t>(sessions.Maximum());
    case SCSC_SPS: {
      if (value && *value > 0) SessionRate::Get().SetLimit(static_cast<size_t>(*value));
      const auto in_force = static_cast<int32_t>(SessionRate::Get().At(std::chrono::steady_clock::now()).limit);
      if (value) *value = in_force;
      return in_force;
    }
  }
  return -1;
}
