#pragma once

#include <string>

#include "sip/sip_profile.h"
#include "sip/sofia.h"

/// How a profile becomes a running SIP stack: which sockets it opens and what it is told of the protocol's limits.
namespace kvx_switch {

/// "127.0.0.1:5060", "[::1]:5060"
std::string HostPort(const SipProfile& profile, unsigned port);

/// Empty when the profile's address and port can be bound for all its transports (port 0 always can), else which
/// cannot, and what the system says: "tcp 127.0.0.1:5060: Address already in use".
std::string ProbeAddress(const SipProfile& profile);

/// Has the stacks of the process see the time in whole milliseconds; before the first one starts.
void CountWholeMilliseconds();

/// The stack, listening. Null when it does not start. On the SIP thread.
nua_t* CreateStack(su_root_t* root, nua_callback_f callback, SipAgent* agent, const SipProfile& profile);

}  // namespace kvx_switch
