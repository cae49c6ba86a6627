#pragma once

#include <string>

#include "sip/dialplan.h"
#include "sip/sip_profile.h"

namespace kvx_switch {

/// Below the configuration directory.
std::string ConfigurationDirectory(const char* name);

/// False and `error`, with file, line and value, when the profile routes calls into a context that no file defines.
bool CheckContext(const SipProfile& profile, const Dialplan& dialplan, std::string& error);

/// Reads the dialplan and every SIP profile, without serving any; logs each mistake at ERROR or WARNING.
void CheckSip();

}  // namespace kvx_switch
