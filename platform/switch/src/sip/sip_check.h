#pragma once

#include <list>
#include <memory>
#include <string>

#include "sip/access_control.h"
#include "sip/dialplan.h"
#include "sip/sip_profile.h"

namespace kvx_switch {

/// Below the configuration directory.
std::string ConfigurationDirectory(const char* name);

/// False and `error`, with file, line and value, when the profile routes calls into a context that no file defines.
bool CheckContext(const SipProfile& profile, const Dialplan& dialplan, std::string& error);

struct SipConfiguration {
  std::shared_ptr<const Dialplan> dialplan;
  std::list<SipProfile> profiles;
};

/// Reads the dialplan, every SIP profile and the access lists, without serving any. False and `error`, a line for each
/// mistake that stops a start; what is passed over is logged.
bool ReadSipConfiguration(SipConfiguration& configuration, AccessControl& access, std::string& error);

}  // namespace kvx_switch
