#include <switch.h>

#include <switch_media_server.h>

#include "core/module_registry.h"

namespace {

/// What the switch keeps of a module beyond the public structure, which stands first.
struct ModuleInterface {
  switch_loadable_module_interface_t base;
  switch_mutex_t* reflock;  ///< shared by all interfaces of the module, since they count the module's references too
  switch_media_server_interface_t* media_servers;
};

ModuleInterface* whole(switch_loadable_module_interface_t* interface) {
  return reinterpret_cast<ModuleInterface*>(interface);
}

/// Without a lock: a module registers while it loads, before anyone else sees its lists.
template <typename Interface>
void* append(ModuleInterface* module, Interface** list) {
  auto* interface = static_cast<Interface*>(switch_core_alloc(module->base.pool, sizeof(Interface)));
  switch_thread_rwlock_create(&interface->rwlock, module->base.pool);
  interface->reflock = module->reflock;
  interface->parent = &module->base;
  while (*list) list = &(*list)->next;
  *list = interface;
  return interface;
}

}  // namespace

switch_loadable_module_interface_t* switch_loadable_module_create_module_interface(switch_memory_pool_t* pool,
                                                                                   const char* name) {
  auto* module = static_cast<ModuleInterface*>(switch_core_alloc(pool, sizeof(ModuleInterface)));
  module->base.pool = pool;
  module->base.module_name = switch_core_strdup(pool, name);
  switch_thread_rwlock_create(&module->base.rwlock, pool);
  switch_mutex_init(&module->reflock, SWITCH_MUTEX_NESTED, pool);
  return &module->base;
}

void* switch_loadable_module_create_interface(switch_loadable_module_interface_t* mod,
                                              switch_module_interface_name_t iname) {
  switch (static_cast<int>(iname)) {
    case SWITCH_CODEC_INTERFACE:
      return append(whole(mod), &mod->codec_interface);
    case SWITCH_API_INTERFACE:
      return append(whole(mod), &mod->api_interface);
    case SWITCH_MEDIA_SERVER_INTERFACE:
      return append(whole(mod), &whole(mod)->media_servers);
    default:
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s: interfaces of kind %d are not served\n",
                        switch_str_nil(mod->module_name), static_cast<int>(iname));
      return nullptr;
  }
}

namespace kvx_switch {

switch_media_server_interface_t* FirstMediaServer(switch_loadable_module_interface_t* interface) {
  return whole(interface)->media_servers;
}

int CountReferences(switch_loadable_module_interface_t* interface) {
  switch_mutex_lock(whole(interface)->reflock);
  const int references = interface->refs;
  switch_mutex_unlock(whole(interface)->reflock);
  return references;
}

}  // namespace kvx_switch
