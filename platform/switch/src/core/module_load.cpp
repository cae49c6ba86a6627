#include "core/module_load.h"

#include <dlfcn.h>
#include <switch_configuration_check.h>

#include "core/completion.h"
#include "core/event.h"
#include "core/guard.h"
#include "core/log.h"
#include "core/status_name.h"

namespace kvx_switch {
namespace {

std::string last_dl_error() {
  const char* error = dlerror();
  return error ? error : "unknown error";
}

/// Functions of the library must not be called once it is gone.
void remove_callbacks_into(const Module& module) {
  Dl_info table;
  if (!dladdr(module.table, &table)) return;
  const auto inside = [&](void* function) {
    Dl_info found;
    return dladdr(function, &found) && found.dli_fbase == table.dli_fbase;
  };
  const int left = RemoveEventBindingsIf(inside) + RemoveLoggersIf(inside) + RemoveCompletionFunctionsIf(inside);
  if (left > 0) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                      "Module %s left %d event, log or completion functions bound; they were removed\n",
                      module.name.c_str(), left);
  }
}

bool open_library(Module& module, std::string& error) {
  module.library = dlopen(module.path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module.library) {
    error = last_dl_error();
    return false;
  }
  const std::string symbol = module.name + "_module_interface";
  module.table = static_cast<const switch_loadable_module_function_table_t*>(dlsym(module.library, symbol.c_str()));
  if (!module.table) {
    error = module.path + ": no symbol " + symbol;
    return false;
  }
  if (module.table->switch_api_version != SWITCH_API_VERSION) {
    error = module.path + ": made for version " + std::to_string(module.table->switch_api_version) +
            " of the API, this switch has " + std::to_string(SWITCH_API_VERSION);
    return false;
  }
  if (!module.table->load) {
    error = module.path + ": no load function in its table";
    return false;
  }
  if (module.table->flags & SMODF_GLOBAL_SYMBOLS) {
    // The second handle only changes how the symbols are seen.
    if (void* again = dlopen(module.path.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD)) dlclose(again);
  }
  return true;
}

/// Its mistakes in the log come before what the load makes of them.
void check_configuration(const Module& module) {
  std::string error;
  if (!CheckModuleConfiguration(module.library, module.name, error))
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
}

bool run_load(Module& module, std::string& error) {
  check_configuration(module);
  const CompletionOwner owner(module.name);
  switch_status_t status = SWITCH_STATUS_FALSE;
  std::string what;
  if (!RunGuarded([&] { status = module.table->load(&module.interface, module.pool); }, what)) {
    error = "an exception left its load function: " + what;
    return false;
  }
  if (status != SWITCH_STATUS_SUCCESS && status != SWITCH_STATUS_NOUNLOAD) {
    error = "its load function returned " + std::string(StatusName(status));
    return false;
  }
  if (!module.interface) {
    error = "its load function made no module interface";
    return false;
  }
  module.stays = status == SWITCH_STATUS_NOUNLOAD;
  return true;
}

void run_runtime(Module* module) {
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  while (status != SWITCH_STATUS_TERM && !module->ending) {
    std::string what;
    if (!RunGuarded([&] { status = module->table->runtime(); }, what)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the runtime of module %s: %s\n",
                        module->name.c_str(), what.c_str());
      return;
    }
    // One that returns at once and wants to be called again does not take the processor for itself.
    if (status != SWITCH_STATUS_TERM) switch_sleep(1000);
  }
}

}  // namespace

bool CheckModuleConfiguration(void* library, const std::string& name, std::string& error) {
  const auto check = reinterpret_cast<switch_module_check_configuration_func_t>(
      dlsym(library, (name + "_check_configuration").c_str()));
  std::string what;
  if (!check || RunGuarded([&] { check(); }, what)) return true;
  error = "An exception left the configuration check of module " + name + ": " + what;
  return false;
}

std::shared_ptr<Module> BringIn(const std::string& name, const std::string& path, std::string& error) {
  auto module = std::make_shared<Module>();
  module->name = name;
  module->path = path;
  if (open_library(*module, error) && switch_core_new_memory_pool(&module->pool) == SWITCH_STATUS_SUCCESS &&
      run_load(*module, error)) {
    return module;
  }
  Dismantle(*module, false);
  return nullptr;
}

void Dismantle(Module& module, bool keep_library) {
  module.ending = true;
  if (module.runtime.joinable()) module.runtime.join();
  RemoveCompletionsOf(module.name);
  if (module.table) remove_callbacks_into(module);
  module.interface = nullptr;
  if (module.pool) switch_core_destroy_memory_pool(&module.pool);
  if (module.library && !keep_library) dlclose(module.library);
  module.library = nullptr;
  module.table = nullptr;
}

bool RunShutdown(Module& module, bool& threw) {
  threw = false;
  if (!module.table->shutdown) return true;
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  std::string what;
  if (RunGuarded([&] { status = module.table->shutdown(); }, what)) return status != SWITCH_STATUS_NOUNLOAD;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the shutdown of module %s: %s\n",
                    module.name.c_str(), what.c_str());
  threw = true;
  return true;
}

void StartRuntime(Module& module) {
  if (module.table->runtime) module.runtime = std::thread(run_runtime, &module);
}

}  // namespace kvx_switch
