#pragma once

#include <functional>
#include <optional>
#include <string>

#include "sip/destination.h"

/// What operators and other legs may ask of a leg while it is up.
namespace kvx_switch {

/// Where the two legs of a call go on.
struct Redirection {
  std::optional<Destination> own;       ///< none: the leg goes on with the actions behind what it was doing
  std::optional<Destination> partners;  ///< none: the partner in the bridge is hung up
};

class CallLeg;

enum class HoldChange { kHold, kResume, kToggle };

/// Runs `task` on the thread of the leg `uuid` and waits for what it answers. kNoSuchChannel when there is no leg, or
/// it ended before it could answer.
std::string AskLeg(const std::string& uuid, std::function<std::string(CallLeg&)> task);

constexpr const char* kNoSuchChannel = "No such channel!";

}  // namespace kvx_switch
