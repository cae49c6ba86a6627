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
  /// How long all targets together may ring, each no longer than its variables or the profile say; none: as long as the
  /// variable "originate_timeout" says, or without an end of their own.
  std::optional<std::chrono::seconds> timeout;
};

struct OriginateResult {
  std::string uuid;                               ///< of the answered leg; "" when nobody answered
  switch_call_cause_t cause = SWITCH_CAUSE_NONE;  ///< why nobody did
};

/// Blocks until a target has answered or all have failed; not on a leg's thread nor on the SIP thread.
OriginateResult Originate(const OriginateRequest& request);

}  // namespace kvx_switch
