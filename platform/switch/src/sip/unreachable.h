#pragma once

#include <switch_types.h>

#include <cstdint>
#include <string>

struct nua_s;

/// A request that gets no answer ends, at the stack, in a response that the stack made itself, with the status that a
/// far end might have sent. To operators the two are opposites: a callee that refuses, and a callee that is not there.
namespace kvx_switch {

/// Whether the response that is being dealt with came over the network. On the SIP thread.
bool CameFromFarEnd(nua_s* nua);

struct Unreachable {
  switch_call_cause_t cause;
  std::string what;  ///< "nothing listens there, or the network does not lead there"
};

/// What the stack's own final response to an INVITE says; `timeout_milliseconds` is how long it has waited for one.
Unreachable DescribeUnreachable(int status, const std::string& phrase, uint32_t timeout_milliseconds);

}  // namespace kvx_switch
