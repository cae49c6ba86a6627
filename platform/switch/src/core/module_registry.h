#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include <switch_media_server.h>

namespace kvx_switch {

/// One loaded module.
struct Module {
  std::string name;
  std::string path;
  void* library = nullptr;  ///< null for the switch's own commands
  const switch_loadable_module_function_table_t* table = nullptr;
  switch_loadable_module_interface_t* interface = nullptr;
  switch_memory_pool_t* pool = nullptr;
  bool stays = false;  ///< asked not to be unloaded
  std::atomic<bool> ending{false};
  std::thread runtime;
};

/// The first media server in a module's interfaces; the module interface itself has no place for it.
switch_media_server_interface_t* FirstMediaServer(switch_loadable_module_interface_t* interface);

/// Uses of the module that keep it from being unloaded.
int CountReferences(switch_loadable_module_interface_t* interface);

/// What is loaded, in the order of loading. Every look-up and every protection of an interface happens under the
/// registry's lock, so that a module that was taken out gets no new users.
class ModuleRegistry {
 public:
  static ModuleRegistry& Get();

  void Add(std::shared_ptr<Module> module);
  /// Takes the module out if nobody uses it; null otherwise, with what uses it in `user`.
  std::shared_ptr<Module> TakeOutUnused(const std::string& name, std::string& user);
  std::shared_ptr<Module> Find(const std::string& name) const;
  std::vector<std::shared_ptr<Module>> All() const;

  /// Calls `visit` under the lock for each module until it returns true; it must not call out of the core.
  bool Visit(const std::function<bool(Module&)>& visit) const;
};

}  // namespace kvx_switch
