#pragma once

#include <chrono>
#include <string>

/// The switch's SIP side as a whole: the profiles of conf/sip_profiles and the dialplan of conf/dialplan. Called by the
/// thread that starts and ends the switch; SipAddress by any.
namespace kvx_switch {

/// Reads the configuration and listens. False and `error`, which names file, line or address, when something is wrong;
/// nothing is left running then.
bool StartSip(std::string& error);

/// Ends what calls are left at the stack, gives their last messages a moment, joins the SIP threads. The legs should be
/// gone by then: their media is theirs to end.
void StopSip();

/// Whether every SIP thread has run a task within `limit`: false when one hangs.
bool SipResponds(std::chrono::milliseconds limit);

/// "127.0.0.1:5060" of the first profile, with the port really used; "" while SIP is not running.
std::string SipAddress();

}  // namespace kvx_switch
