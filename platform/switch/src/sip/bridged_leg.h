#pragma once

#include <switch.h>

#include <optional>
#include <string>

#include "sip/called_leg.h"

namespace kvx_switch {

/// What a calling leg knows of the leg that it called.
struct BridgedLeg {
  std::string uuid;
  bool ended = false;
  switch_call_cause_t cause = SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE;  // until it reports
  int status = 0;
  bool by_far_end = false;  // it was its far end that ended it
  std::optional<CalledLegReport> answer;
};

/// Who ended a leg when no far end did.
constexpr const char* kTheSwitch = "the switch";

/// The variable with the names, parted by commas, of those that called legs get too.
constexpr const char* kExportVariable = "export_vars";

}  // namespace kvx_switch
