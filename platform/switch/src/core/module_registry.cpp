#include "core/module_registry.h"

#include <algorithm>
#include <mutex>

namespace kvx_switch {
namespace {

struct Registered {
  std::mutex mutex;
  std::vector<std::shared_ptr<Module>> modules;  // guarded by mutex
};

Registered& registered() {
  static Registered* const all = new Registered;
  return *all;
}

/// The first interface in the list that is in use.
template <typename Interface>
const char* used_one(const Interface* interface) {
  for (; interface; interface = interface->next) {
    switch_mutex_lock(interface->reflock);
    const bool used = interface->refs > 0;
    switch_mutex_unlock(interface->reflock);
    if (used) return switch_str_nil(interface->interface_name);
  }
  return nullptr;
}

std::string user_of(switch_loadable_module_interface_t* interface) {
  if (const char* name = used_one(interface->api_interface)) return "the command " + std::string(name) + " is running";
  if (const char* name = used_one(FirstMediaServer(interface))) {
    return "the media server " + std::string(name) + " is in use";
  }
  if (const char* name = used_one(interface->codec_interface)) {
    return "the codec " + std::string(name) + " is in use";
  }
  return "it is in use";
}

}  // namespace

ModuleRegistry& ModuleRegistry::Get() {
  static ModuleRegistry registry;
  return registry;
}

void ModuleRegistry::Add(std::shared_ptr<Module> module) {
  std::lock_guard<std::mutex> lock(registered().mutex);
  registered().modules.push_back(std::move(module));
}

std::shared_ptr<Module> ModuleRegistry::TakeOutUnused(const std::string& name, std::string& user) {
  std::lock_guard<std::mutex> lock(registered().mutex);
  auto& modules = registered().modules;
  const auto found =
      std::find_if(modules.begin(), modules.end(), [&](const auto& module) { return module->name == name; });
  if (found == modules.end()) {
    user = "it is not loaded";
    return nullptr;
  }
  if (CountReferences((*found)->interface) > 0) {
    user = user_of((*found)->interface);
    return nullptr;
  }
  std::shared_ptr<Module> taken = *found;
  modules.erase(found);
  return taken;
}

std::shared_ptr<Module> ModuleRegistry::Find(const std::string& name) const {
  std::lock_guard<std::mutex> lock(registered().mutex);
  for (const auto& module : registered().modules) {
    if (module->name == name) return module;
  }
  return nullptr;
}

std::vector<std::shared_ptr<Module>> ModuleRegistry::All() const {
  std::lock_guard<std::mutex> lock(registered().mutex);
  return registered().modules;
}

bool ModuleRegistry::Visit(const std::function<bool(Module&)>& visit) const {
  std::lock_guard<std::mutex> lock(registered().mutex);
  return std::any_of(registered().modules.begin(), registered().modules.end(),
                     [&](const auto& module) { return visit(*module); });
}

}  // namespace kvx_switch
