#pragma once

#include <memory>
#include <string>

#include "core/module_registry.h"

namespace kvx_switch {

/// Brings a library in: opens it, checks its table, runs its load. Null and `error` when it is refused; nothing of it
/// is left then. The result is not registered yet.
std::shared_ptr<Module> BringIn(const std::string& name, const std::string& path, std::string& error);

/// Ends a module that was taken out of the registry: its runtime, what it left registered, its pool, its library. The
/// shutdown function has run; `keep_library` when that ended in an exception, since threads of its may still run.
void Dismantle(Module& module, bool keep_library);

/// Runs the module's shutdown function. False when the module refuses to go; `threw` when an exception left it.
bool RunShutdown(Module& module, bool& threw);

void StartRuntime(Module& module);

/// Has the library's optional NAME_check_configuration log the mistakes in the module's files. False and `error` when
/// an exception leaves it.
bool CheckModuleConfiguration(void* library, const std::string& name, std::string& error);

/// Reads modules.conf and has each module named in it check its files, without loading any; logs the mistakes.
void CheckModules();

}  // namespace kvx_switch
