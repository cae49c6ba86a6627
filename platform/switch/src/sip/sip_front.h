#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

/// The switch's SIP side as a whole: the profiles of conf/sip_profiles and the dialplan of conf/dialplan. Called by the
/// thread that starts and ends the switch; SipAddress by any.
namespace kvx_switch {

class Dialplan;
class SipAgent;

/// Reads the configuration and listens. False and `error`, which names file, line or address, when something is wrong;
/// nothing is left running then.
bool StartSip(std::string& error);

/// Ends what calls are left at the stack, gives their last messages a moment, joins the SIP threads. The legs should be
/// gone by then: their media is theirs to end.
void StopSip();

/// "127.0.0.1:5060" of the profile of that name, or of the first one, with the port really used; "" when it is not
/// running.
std::string SipAddress(const std::string& profile = "");

/// Through which profile to call `target`, a SIP URI: `own` where it can, else the first one that has the address
/// family and the transport that the target asks for; `own` when there is none, so that the call fails there.
std::shared_ptr<SipAgent> AgentForTarget(const std::shared_ptr<SipAgent>& own, const std::string& target);

/// The dialplan as it was read last; null before StartSip. Any thread.
std::shared_ptr<const Dialplan> CurrentDialplan();

/// The agent of the profile of that name, of the first profile for ""; null when there is none. Any thread.
std::shared_ptr<SipAgent> FindSipAgent(const std::string& profile);

/// How many TCP connections the profiles that are served allow together.
uint64_t SipConnectionLimit();

/// Whether every SIP thread has run a task within `limit`: false when one hangs.
bool SipResponds(std::chrono::milliseconds limit);

}  // namespace kvx_switch
