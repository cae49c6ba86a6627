#include <utility>

#include "sip/called_leg.h"
#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"
#include "sip/sip_front.h"

namespace kvx_switch {

// Where nobody calls, nobody has a bridge to undo before the media may go.
CalledLeg::CalledLeg(CalledLegRequest request)
    : request_(std::move(request)), released_(request_.caller_uuid.empty()) {}

CalledLeg::~CalledLeg() = default;

void CalledLeg::GoOn(const std::string& uuid, const std::weak_ptr<CalledLeg>& leg, const Destination& destination) {
  PostToSession(uuid, [leg, destination] {
    std::shared_ptr<CalledLeg> self = leg.lock();
    if (!self) return;
    self->next_ = destination;
    self->released_ = true;
  });
}

void CalledLeg::ServeUntilSentOn() {
  ServeUntil(session_, std::chrono::steady_clock::time_point::max(), [this] { return next_.has_value(); });
}

/// From here on this leg runs the dialplan like one that called in: it answers to another program, on the same thread,
/// with the same media and dialog.
void CalledLeg::BecomeCaller() {
  const CallerData caller = GetCallerData(session_);
  // An operator's call shows the number that the operator gave; any other is known by the number it was called under.
  const bool named = request_.caller_uuid.empty() && !request_.from_user.empty();
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  AnsweredLeg leg{dialog_,
                  std::move(media_),
                  std::move(*renegotiation_),
                  answer_,
                  named ? request_.from_user : caller.destination_number,
                  named ? request_.from_name : "",
                  request_.max_forwards,
                  answered_at_};
  renegotiation_.reset();
  caller_ = std::make_shared<CallingLeg>(std::move(leg), CurrentDialplan());
  caller_->RunAt(session_, *next_);
}

std::string CalledLeg::Redirect(Redirection redirection) {
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  if (!answered_) return "the leg is not answered";
  // The leg that bridges has to undo the bridge.
  std::swap(redirection.own, redirection.partners);
  const std::string uuid = switch_core_session_get_uuid(session_);
  const bool posted = PostToControl(request_.caller_uuid, [uuid, redirection](LegControl& caller) {
    const std::string refused = caller.Redirect(redirection);
    if (refused.empty()) return;
    switch_log_printf(SWITCH_CHANNEL_UUID_LOG(uuid.c_str()), SWITCH_LOG_WARNING, "Not transferred: %s\n",
                      refused.c_str());
  });
  return posted ? "" : "the leg is not bridged";
}

std::string CalledLeg::Hold(HoldChange change) {
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  if (!renegotiation_) return "the leg is not answered";
  const bool on = change == HoldChange::kToggle ? !renegotiation_->held() : change == HoldChange::kHold;
  if (on == renegotiation_->held()) return "";
  return renegotiation_->Hold(on) ? "" : "the call's media is being changed, or is a fax";
}

}  // namespace kvx_switch
