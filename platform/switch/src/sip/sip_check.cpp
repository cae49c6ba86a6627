#include "sip/sip_check.h"

#include <switch.h>

#include <map>
#include <utility>
#include <vector>

#include "core/configuration.h"
#include "sip/located_xml.h"

namespace kvx_switch {
namespace {

using Addresses = std::map<std::string, std::string>;  // and the file that has each

/// Two profiles cannot listen on one address, over one transport; port 0 is a port of its own for each.
void CheckAddress(const SipProfile& profile, Addresses& taken, std::string& error) {
  if (profile.sip_port == 0) return;
  const std::string host = profile.IsIpv6() ? "[" + profile.sip_address + "]" : profile.sip_address;
  const std::string address = host + ":" + std::to_string(profile.sip_port);
  const std::pair<const char*, bool> transports[] = {{"udp", profile.transports.udp}, {"tcp", profile.transports.tcp}};
  for (const auto& [transport, used] : transports) {
    if (!used) continue;
    const auto [at, fresh] = taken.emplace(transport + (" " + address), profile.file);
    if (fresh) continue;
    AddLine(error, PlaceOfParameter(profile.file, "sip-port") + address + " is already that of " + at->second);
    return;
  }
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

bool ReadSipConfiguration(SipConfiguration& configuration, AccessControl& access, std::string& error) {
  const std::shared_ptr<const DialplanDraft> draft = Dialplan::Draft(ConfigurationDirectory("dialplan"));
  configuration.dialplan = {draft, &draft->dialplan};
  error = draft->mistakes;
  std::vector<std::string> paths;
  const std::string directory = ConfigurationDirectory("sip_profiles");
  std::string mistake;
  if (!ListXmlFiles(directory, paths, mistake)) {
    AddLine(error, mistake);
  } else if (paths.empty()) {
    AddLine(error, directory + ": there is no profile (*.xml)");
  }
  Addresses taken;
  std::vector<const SipProfile*> readable;
  for (const std::string& path : paths) {
    SipProfile& profile = configuration.profiles.emplace_back();
    if (!LoadSipProfile(path, profile, mistake)) AddLine(error, mistake);
    if (profile.file.empty()) continue;
    readable.push_back(&profile);
    CheckAddress(profile, taken, error);
    const bool context_known = draft->contexts_known && !profile.context.empty();
    if (context_known && !CheckContext(profile, draft->dialplan, mistake)) AddLine(error, mistake);
  }
  if (!access.Load(ConfigurationDirectory("autoload_configs") + "/acl.conf.xml", readable, mistake))
    AddLine(error, mistake);
  return error.empty();
}

}  // namespace kvx_switch
