#pragma once

#include <switch.h>

#include <chrono>
#include <optional>
#include <string>

#include "sip/bridge_target.h"
#include "sip/destination.h"

/// Calls that an operator starts: the switch calls a phone, and when that answers its leg runs the dialplan or an
/// application.
namespace kvx_switch {

struct OriginateRequest {
  BridgePlan plan;       ///< whom to call; a target that fails is followed by the next one
  Destination answered;  ///< where the answered leg goes on
  std::string caller_name;
  std::string caller_number;
  std::optional<std::chrono::seconds> timeout;  ///< how long each target may ring; none: what variables or profile say
};

struct OriginateResult {
  std::string uuid;                               ///< of the answered leg; "" when nobody answered
  switch_call_cause_t cause = SWITCH_CAUSE_NONE;  ///< why nobody did
};

/// Blocks until a target has answered or all have failed; not on a leg's thread nor on the SIP thread.
OriginateResult Originate(const OriginateRequest& request);

}  // namespace kvx_switch
