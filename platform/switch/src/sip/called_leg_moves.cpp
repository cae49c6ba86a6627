// A called leg that changes its partner goes on as a calling one.
#include <utility>

#include "sip/called_leg.h"
#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"
#include "sip/sip_front.h"

namespace kvx_switch {

// Where nobody calls, nobody has a bridge to undo before the media may go.
CalledLeg::CalledLeg(CalledLegRequest request) : request_(std::move(request)), released_(request_.caller.empty()) {}

CalledLeg::~CalledLeg() = default;

namespace {

/// The called side as a caller: known by the number under which it was called; one that an operator called shows the
/// number that the operator gave.
InboundInvite IdentityOf(switch_core_session_t* session, const CalledLegRequest& request, const std::string& call_id) {
  const CallerData caller = GetCallerData(session);
  const bool named = request.caller.empty() && !request.from_user.empty();
  InboundInvite identity;
  identity.from_user = named ? request.from_user : caller.destination_number;
  identity.from_name = named ? request.from_name : "";
  identity.request_user = caller.destination_number;
  identity.call_id = call_id;
  identity.max_forwards = request.max_forwards;
  return identity;
}

}  // namespace

CallingLeg* CalledLeg::Movable() {
  if (continuation_) return continuation_->Movable();
  if (!answered_ || finished_ || switch_channel_down(channel_) || !renegotiation_) return nullptr;
  AnsweredLeg leg;
  leg.session = session_;
  leg.identity = IdentityOf(session_, request_, LegVariable(channel_, "sip_call_id"));
  leg.dialog = dialog_;
  leg.dialplan = CurrentDialplan();
  leg.media = std::move(media_);
  leg.renegotiation = std::move(renegotiation_);
  leg.far_end = answer_;
  leg.description = BuildOffer(local_);
  leg.driver = request_.caller;
  leg.answered_at = answered_at_;
  continuation_ = std::make_shared<CallingLeg>(std::move(leg));
  return continuation_.get();
}

std::string CalledLeg::Redirect(Redirection redirection) {
  if (continuation_) return continuation_->Redirect(std::move(redirection));
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  if (!answered_) return "the leg is not answered";
  return RedirectThrough(request_.caller, switch_core_session_get_uuid(session_), std::move(redirection));
}

std::string CalledLeg::Hold(HoldChange change) {
  if (continuation_) return continuation_->Hold(change);
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  return renegotiation_ ? renegotiation_->Hold(change) : "the leg is not answered";
}

void CalledLeg::OnLeftAlone(const std::string& driver, Parting parting) {
  Movable();
  if (continuation_) {
    continuation_->OnLeftAlone(driver, parting);
  } else {
    released_ = true;
  }
}

bool CalledLeg::Drives(const std::string& leg) const {
  return continuation_ && continuation_->Drives(leg);
}

void CalledLeg::OnPartnerLeaves(const std::string& partner) {
  if (continuation_) continuation_->OnPartnerLeaves(partner);
}

void CalledLeg::OnPartnerReport(const std::string& partner, const CalledLegReport& report) {
  if (continuation_) continuation_->OnPartnerReport(partner, report);
}

void CalledLeg::OnPartnerGiven(const GivenPartner& given) {
  if (continuation_) continuation_->OnPartnerGiven(given);
}

}  // namespace kvx_switch
