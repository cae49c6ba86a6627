#include "sip/sip_check.h"

#include <switch.h>

#include <list>
#include <map>
#include <utility>
#include <vector>

#include "sip/access_control.h"
#include "sip/located_xml.h"

namespace kvx_switch {
namespace {

void LogError(const std::string& error) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
}

using Addresses = std::map<std::pair<std::string, uint16_t>, std::string>;

/// Two profiles cannot listen on one address; port 0 is a port of its own for each.
void CheckAddress(const SipProfile& profile, Addresses& taken) {
  if (profile.sip_port == 0) return;
  const auto [at, fresh] = taken.emplace(std::make_pair(profile.sip_address, profile.sip_port), profile.file);
  if (fresh) return;
  LogError(PlaceOfParameter(profile.file, "sip-port") + profile.sip_address + ":" + std::to_string(profile.sip_port) +
           " is already that of " + at->second);
}

}  // namespace

std::string ConfigurationDirectory(const char* name) {
  return std::string(SWITCH_GLOBAL_dirs.conf_dir ? SWITCH_GLOBAL_dirs.conf_dir : ".") + "/" + name;
}

bool CheckContext(const SipProfile& profile, const Dialplan& dialplan, std::string& error) {
  if (dialplan.HasContext(profile.context)) return true;
  error = PlaceOfParameter(profile.file, "context") + "context \"" + profile.context + "\" is in no file of " +
          ConfigurationDirectory("dialplan");
  return false;
}

void CheckSip() {
  std::string error;
  const std::shared_ptr<const Dialplan> dialplan = Dialplan::Load(ConfigurationDirectory("dialplan"), error);
  if (!dialplan) LogError(error);
  std::vector<std::string> paths;
  const std::string directory = ConfigurationDirectory("sip_profiles");
  if (!ListXmlFiles(directory, paths, error)) {
    LogError(error);
  } else if (paths.empty()) {
    LogError(directory + ": there is no profile (*.xml)");
  }
  Addresses taken;
  std::list<SipProfile> profiles;
  std::vector<const SipProfile*> good;
  for (const std::string& path : paths) {
    SipProfile& profile = profiles.emplace_back();
    if (!LoadSipProfile(path, profile, error)) {
      LogError(error);
      continue;
    }
    good.push_back(&profile);
    CheckAddress(profile, taken);
    if (dialplan && !CheckContext(profile, *dialplan, error)) LogError(error);
  }
  if (!AccessControl().Load(ConfigurationDirectory("autoload_configs") + "/acl.conf.xml", good, error)) LogError(error);
}

}  // namespace kvx_switch
