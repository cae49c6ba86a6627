#include <dlfcn.h>

#include <chrono>
#include <mutex>
#include <string>

#include <switch.h>

#include "core/configuration.h"
#include "core/module_load.h"
#include "core/module_registry.h"

namespace kvx_switch {
namespace {

/// Held through a load or an unload; a module's load may load another.
std::recursive_mutex& loading_mutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

/// Text that the calling thread gets a pointer to, good until its next call.
void hand_out(const std::string& text, const char** err) {
  thread_local std::string kept;
  kept = text;
  if (err) *err = kept.c_str();
}

std::string module_name(const char* file) {
  std::string name = file;
  const size_t slash = name.rfind('/');
  if (slash != std::string::npos) name.erase(0, slash + 1);
  if (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0) name.erase(name.size() - 3);
  return name;
}

std::string module_path(const char* dir, const char* file, const std::string& name) {
  if (*file == '/') return std::string(file).find(".so") == std::string::npos ? std::string(file) + ".so" : file;
  const char* directory = zstr(dir) ? SWITCH_GLOBAL_dirs.mod_dir : dir;
  return std::string(switch_str_nil(directory)) + "/" + name + ".so";
}

template <typename Interface>
void fire_for_each(switch_event_types_t id, const Module& module, const char* type, const Interface* interface) {
  for (; interface; interface = interface->next) {
    switch_event_t* event = nullptr;
    if (switch_event_create(&event, id) != SWITCH_STATUS_SUCCESS) return;
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "type", type);
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "name", switch_str_nil(interface->interface_name));
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "module", module.name.c_str());
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "filename", module.path.c_str());
    switch_event_fire(&event);
  }
}

void fire_interface_events(switch_event_types_t id, const Module& module) {
  fire_for_each(id, module, "api", module.interface->api_interface);
  fire_for_each(id, module, "codec", module.interface->codec_interface);
  fire_for_each(id, module, "media_server", FirstMediaServer(module.interface));
}

void warn_of_names_in_use(const Module& module) {
  for (auto* at = module.interface->api_interface; at; at = at->next) {
    switch_api_interface_t* other = switch_loadable_module_get_api_interface(at->interface_name);
    if (!other) continue;
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "The command %s of module %s is hidden by that of %s\n",
                      at->interface_name, module.name.c_str(), other->parent->module_name);
    UNPROTECT_INTERFACE(other);
  }
}

const ItemOutline kLoadOutline = {"load", {"module", "path", "critical"}, "ignored"};

void warn_of_modules_file(switch_xml_t configuration) {
  const std::string path = ConfigurationPath("modules.conf");
  WarnOfUnread(path, configuration, "modules", kLoadOutline);
  for (switch_xml_t at = switch_xml_child(switch_xml_child(configuration, "modules"), "load"); at; at = at->next) {
    const char* critical = switch_xml_attr(at, "critical");
    if (!critical || switch_true(critical) || switch_false(critical)) continue;
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                      "%s\"critical\" is \"%s\", not \"true\" or \"false\"; taken as false\n", At(path, at).c_str(),
                      critical);
  }
}

void check_module(const std::string& place, switch_xml_t load) {
  const char* file = switch_xml_attr_soft(load, "module");
  if (!*file) return;  // told as an attribute that is missing
  const std::string name = module_name(file);
  void* library = dlopen(module_path(switch_xml_attr(load, "path"), file, name).c_str(), RTLD_NOW | RTLD_LOCAL);
  std::string error;
  if (!library) {
    const char* reason = dlerror();
    error = place + "module \"" + file + "\": " + (reason ? reason : "cannot be opened");
  } else {
    CheckModuleConfiguration(library, name, error);
    dlclose(library);
  }
  if (!error.empty()) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
}

/// False and `error` when somebody uses the module; with `patient` a second is left to each to finish.
std::shared_ptr<Module> take_out(const std::string& name, bool patient, std::string& error) {
  constexpr int kTries = 100;
  constexpr switch_interval_time_t kPause = 10000;
  for (int tries = 0;; ++tries) {
    std::shared_ptr<Module> module = ModuleRegistry::Get().TakeOutUnused(name, error);
    if (module || !patient || tries >= kTries) return module;
    switch_sleep(kPause);
  }
}

bool unload(const std::string& name, bool force, std::string& error) {
  const auto found = ModuleRegistry::Get().Find(name);
  if (!found || !found->library) {
    error = "it is not loaded";
    return false;
  }
  if (found->stays && !force) {
    error = "it asked not to be unloaded";
    return false;
  }
  const std::shared_ptr<Module> module = take_out(name, force, error);
  if (!module) return false;
  bool threw = false;
  if (!RunShutdown(*module, threw) && !force) {
    ModuleRegistry::Get().Add(module);
    error = "its shutdown function refused";
    return false;
  }
  fire_interface_events(SWITCH_EVENT_MODULE_UNLOAD, *module);
  Dismantle(*module, threw);
  return true;
}

}  // namespace

void CheckModules() {
  switch_xml_t node = nullptr;
  switch_xml_t root = switch_xml_open_cfg("modules.conf", &node, nullptr);
  if (!root) return;  // logged there
  const std::string path = ConfigurationPath("modules.conf");
  warn_of_modules_file(node);
  for (switch_xml_t at = switch_xml_child(switch_xml_child(node, "modules"), "load"); at; at = at->next) {
    check_module(At(path, at), at);
  }
  switch_xml_free(root);
}

}  // namespace kvx_switch

using namespace kvx_switch;

switch_status_t switch_loadable_module_load_module(const char* dir, const char* fname, switch_bool_t,
                                                   const char** err) {
  if (zstr(fname)) {
    hand_out("no module is named", err);
    return SWITCH_STATUS_FALSE;
  }
  std::lock_guard<std::recursive_mutex> lock(loading_mutex());
  const std::string name = module_name(fname);
  std::string error;
  if (ModuleRegistry::Get().Find(name)) {
    hand_out("Module " + name + " is already loaded", err);
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Module %s is already loaded\n", name.c_str());
    return SWITCH_STATUS_FALSE;
  }
  const std::shared_ptr<Module> module = BringIn(name, module_path(dir, fname, name), error);
  if (!module) {
    hand_out("Module " + name + " was refused: " + error, err);
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "Module %s was refused: %s\n", name.c_str(), error.c_str());
    return SWITCH_STATUS_GENERR;
  }
  warn_of_names_in_use(*module);
  ModuleRegistry::Get().Add(module);
  fire_interface_events(SWITCH_EVENT_MODULE_LOAD, *module);
  StartRuntime(*module);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Module %s is loaded\n", name.c_str());
  hand_out("Success", err);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_loadable_module_unload_module(const char*, const char* fname, switch_bool_t force,
                                                     const char** err) {
  if (zstr(fname)) {
    hand_out("no module is named", err);
    return SWITCH_STATUS_FALSE;
  }
  std::lock_guard<std::recursive_mutex> lock(loading_mutex());
  const std::string name = module_name(fname);
  std::string error;
  if (!unload(name, force == SWITCH_TRUE, error)) {
    hand_out("Module " + name + " cannot be unloaded: " + error, err);
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Module %s cannot be unloaded: %s\n", name.c_str(),
                      error.c_str());
    return SWITCH_STATUS_FALSE;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Module %s is unloaded\n", name.c_str());
  hand_out("Success", err);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_loadable_module_exists(const char* mod) {
  if (zstr(mod)) return SWITCH_STATUS_FALSE;
  const auto found = ModuleRegistry::Get().Find(module_name(mod));
  return found && found->library ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

switch_status_t switch_loadable_module_init(switch_bool_t autoload) {
  if (!autoload) return SWITCH_STATUS_SUCCESS;
  switch_xml_t node = nullptr;
  switch_xml_t root = switch_xml_open_cfg("modules.conf", &node, nullptr);
  if (!root) return SWITCH_STATUS_FALSE;
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  warn_of_modules_file(node);
  for (switch_xml_t at = switch_xml_child(switch_xml_child(node, "modules"), "load"); at; at = at->next) {
    const std::string name = switch_xml_attr_soft(at, "module");
    const char* err = nullptr;
    if (switch_loadable_module_load_module(switch_xml_attr(at, "path"), name.c_str(), SWITCH_FALSE, &err) ==
        SWITCH_STATUS_SUCCESS) {
      continue;
    }
    if (switch_true(switch_xml_attr(at, "critical"))) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "The switch does not start without module %s\n",
                        name.c_str());
      status = SWITCH_STATUS_GENERR;
      break;
    }
  }
  switch_xml_free(root);
  return status;
}

void switch_loadable_module_shutdown(void) {
  std::lock_guard<std::recursive_mutex> lock(loading_mutex());
  const auto modules = ModuleRegistry::Get().All();
  for (auto at = modules.rbegin(); at != modules.rend(); ++at) {
    if ((*at)->library) switch_loadable_module_unload_module(nullptr, (*at)->name.c_str(), SWITCH_TRUE, nullptr);
  }
}

switch_status_t switch_loadable_module_enumerate_loaded(switch_modulename_callback_func_t callback, void* user_data) {
  for (const auto& module : ModuleRegistry::Get().All()) {
    if (module->library && callback(user_data, module->name.c_str()) != 0) break;
  }
  return SWITCH_STATUS_SUCCESS;
}
