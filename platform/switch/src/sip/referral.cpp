#include "sip/referral.h"

#include <utility>

#include "sip/leg_helpers.h"

namespace kvx_switch {

Referral::Referral(std::shared_ptr<SipDialog> dialog, unsigned id, std::vector<std::string> leaving)
    : dialog_(std::move(dialog)), id_(id), leaving_(std::move(leaving)) {}

Referral::~Referral() {
  if (settled_) return;
  if (dialog_) dialog_->NotifyReferrer(id_, 487);
  for (const std::string& leg : stranded_) HangUpLeg(leg, SWITCH_CAUSE_NORMAL_CLEARING);
}

void Referral::Progress(int status) {
  if (settled_ || status < 180 || status >= 200 || std::exchange(told_, status) == status) return;
  if (dialog_) dialog_->NotifyReferrer(id_, status);
}

void Referral::Succeed() {
  if (std::exchange(settled_, true)) return;
  if (dialog_) dialog_->NotifyReferrer(id_, 200);
  HangUpLeaving();
}

void Referral::Refuse(int status) {
  if (std::exchange(settled_, true)) return;
  if (dialog_) dialog_->NotifyReferrer(id_, status);
}

void Referral::HangUpLeaving() {
  for (const std::string& leg : leaving_) HangUpLeg(leg, SWITCH_CAUSE_NORMAL_CLEARING);
}

}  // namespace kvx_switch
