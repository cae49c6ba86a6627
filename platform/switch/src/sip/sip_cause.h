#pragma once

#include <switch_types.h>

#include <string>

/// How a leg's end is told in SIP and how SIP tells it: causes (ITU-T Q.850) on the switch's side, statuses of
/// responses (RFC 3261) and Reason headers (RFC 3326) on the wire. Pure functions.
namespace kvx_switch {

/// The final response that refuses an INVITE for `cause`; 480 where nothing closer exists.
int StatusOfCause(switch_call_cause_t cause);

/// The cause that a final response from 300 on stands for (RFC 3398, 7.2.4.1).
switch_call_cause_t CauseOfStatus(int status);

/// A refusing status of the called side that the caller may see as it stands. Those that concern one hop, one dialog or
/// an identity (authentication, redirection, transactions) are not: the cause decides then.
bool StatusPassesThrough(int status);

/// The value of a Reason header: Q.850;cause=17;text="USER_BUSY". Causes above Q.850's 127 are told as 31, a caller's
/// own change of mind as SIP;cause=487, a call that was taken elsewhere as SIP;cause=200 (RFC 3326, 3.1).
std::string ReasonHeader(switch_call_cause_t cause);

/// The standard phrase of a response status; "Call Ended" for one that this switch does not send itself.
const char* PhraseOfStatus(int status);

/// The cause in a Reason header's value, of Q.850 or of SIP, where it is the status of a response; SWITCH_CAUSE_NONE
/// for another protocol, and for a cause that is out of range or says nothing about an end.
switch_call_cause_t CauseOfReason(const std::string& protocol, const std::string& cause);

}  // namespace kvx_switch
