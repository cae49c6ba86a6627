#pragma once

#include <switch.h>

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

enum class HoldChange { kHold, kResume, kToggle };

/// Implemented by the programs of SIP legs. The methods are called on the leg's thread, and take effect when the leg
/// comes back from what they interrupt.
class LegControl {
 public:
  /// The leg leaves what it is doing and goes on as told. Of a called leg that is in another leg's bridge, `own` means
  /// this leg and `partners` the leg that bridges. "" or why not.
  virtual std::string Redirect(Redirection redirection) = 0;
  /// Puts the leg's phone on hold or takes it back. "" or why not.
  virtual std::string Hold(HoldChange change) = 0;

 protected:
  ~LegControl() = default;
};

/// Makes `control` findable by the session's uuid; on the leg's thread, as long as the leg's program runs.
void OfferControl(switch_core_session_t* session, LegControl* control);

/// Runs `task` on the thread of the leg `uuid`. False when there is no such leg, it is hung up, or it is no SIP leg.
bool PostToControl(const std::string& uuid, std::function<void(LegControl&)> task);

/// The same, and waits for what the task answers. "no such channel" when there is no leg, or it ended before it could
/// answer.
std::string AskControl(const std::string& uuid, std::function<std::string(LegControl&)> task);

constexpr const char* kNoSuchChannel = "No such channel!";

}  // namespace kvx_switch
