#include <algorithm>

#include <switch.h>

#include "core/builtin_api.h"
#include "core/guard.h"
#include "core/interface_list.h"
#include "core/media_server.h"
#include "core/module_registry.h"

namespace {

using kvx_switch::Module;
using kvx_switch::ModuleRegistry;

bool same(const char* a, const char* b) {
  return a && b && !strcasecmp(a, b);
}

bool has_implementation(const switch_codec_interface_t& codec, const char* name) {
  for (const auto* at = codec.implementations; at; at = at->next) {
    if (same(at->iananame, name)) return true;
  }
  return false;
}

bool before(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) < 0;
}

template <typename Info>
void sort_by_name(std::vector<Info>& list) {
  std::stable_sort(list.begin(), list.end(), [](const Info& a, const Info& b) {
    if (before(a.name, b.name)) return true;
    return !before(b.name, a.name) && before(a.module, b.module);
  });
}

}  // namespace

switch_api_interface_t* switch_loadable_module_get_api_interface(const char* name) {
  switch_api_interface_t* found = nullptr;
  ModuleRegistry::Get().Visit([&](Module& module) {
    for (auto* at = module.interface->api_interface; at; at = at->next) {
      if (!same(at->interface_name, name)) continue;
      found = at;
      PROTECT_INTERFACE(found);
      return true;
    }
    return false;
  });
  return found;
}

switch_codec_interface_t* switch_loadable_module_get_codec_interface(const char* name, const char* modname) {
  switch_codec_interface_t* found = nullptr;
  ModuleRegistry::Get().Visit([&](Module& module) {
    if (modname && !same(module.interface->module_name, modname)) return false;
    for (auto* at = module.interface->codec_interface; at; at = at->next) {
      if (!has_implementation(*at, name)) continue;
      found = at;
      PROTECT_INTERFACE(found);
      return true;
    }
    return false;
  });
  return found;
}

namespace kvx_switch {

switch_media_server_interface_t* AcquireMediaServer() {
  switch_media_server_interface_t* found = nullptr;
  ModuleRegistry::Get().Visit([&](Module& module) {
    found = FirstMediaServer(module.interface);
    PROTECT_INTERFACE(found);
    return found != nullptr;
  });
  return found;
}

void ReleaseMediaServer(switch_media_server_interface_t* media_server) {
  UNPROTECT_INTERFACE(media_server);
}

bool MediaServerAvailable() {
  switch_media_server_interface_t* media_server = AcquireMediaServer();
  if (!media_server) return false;
  bool available = false;
  std::string what;
  const auto ask = [&] { available = media_server->is_available && media_server->is_available() != SWITCH_FALSE; };
  if (!RunGuarded(ask, what)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the media server %s: %s\n",
                      switch_str_nil(media_server->interface_name), what.c_str());
  }
  ReleaseMediaServer(media_server);
  return available;
}

std::vector<ApiInfo> ListApis() {
  std::vector<ApiInfo> apis;
  ModuleRegistry::Get().Visit([&](Module& module) {
    for (auto* at = module.interface->api_interface; at; at = at->next) {
      if (!at->interface_name) continue;
      apis.push_back({at->interface_name, switch_str_nil(at->desc), switch_str_nil(at->syntax), module.name});
    }
    return false;
  });
  sort_by_name(apis);
  return apis;
}

std::vector<CodecInfo> ListCodecs() {
  std::vector<CodecInfo> codecs;
  ModuleRegistry::Get().Visit([&](Module& module) {
    for (auto* at = module.interface->codec_interface; at; at = at->next) {
      codecs.push_back({switch_str_nil(at->interface_name), module.name});
    }
    return false;
  });
  sort_by_name(codecs);
  return codecs;
}

switch_status_t RegisterBuiltinApi(const char* name, const char* desc, switch_api_function_t function,
                                   const char* syntax) {
  const auto own = ModuleRegistry::Get().Find("kvx_switch");
  if (!own) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "The command %s comes before the core\n", name);
    return SWITCH_STATUS_FALSE;
  }
  bool added = false;
  ModuleRegistry::Get().Visit([&](Module& module) {
    if (module.name != own->name) return false;
    for (auto* at = module.interface->api_interface; at; at = at->next) {
      if (same(at->interface_name, name)) return true;
    }
    auto* api = static_cast<switch_api_interface_t*>(
        switch_loadable_module_create_interface(module.interface, SWITCH_API_INTERFACE));
    api->interface_name = name;
    api->desc = desc;
    api->function = function;
    api->syntax = syntax;
    return added = true;
  });
  if (!added) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "There is a command %s already\n", name);
  return added ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

}  // namespace kvx_switch
