// Transfers (RFC 5589): blind with REFER, attended with REFER or INVITE and Replaces (RFC 3891).
#include <algorithm>
#include <utility>

#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"

namespace kvx_switch {

namespace {

// For the leg that is to be replaced, and its partner, to part.
constexpr std::chrono::seconds kPartingPatience{5};

void Answer(const std::string& asker, const GivenPartner& given) {
  CallLeg::Post(asker, [given](CallLeg& leg) { leg.OnPartnerGiven(given); });
}

}  // namespace

/// The status that says why the far end's wish cannot be met; 0 when it can.
int CallingLeg::ObstacleTo(const ReferRequest& refer) {
  // A leg that is settled and has no partner waits for what becomes of a transfer.
  if (!Movable() || !renegotiation_->quiet() || !Joined()) return 491;
  if (!refer.replaces) return refer.user.empty() ? 484 : 0;
  const bool another = refer.replaced_leg != switch_core_session_get_uuid(session_) && refer.replaced_leg != Partner();
  return refer.replaced_leg.empty() || !another ? 481 : 0;
}

void CallingLeg::OnRefer(const ReferRequest& refer) {
  const int obstacle = ObstacleTo(refer);
  LegLog(session_, SWITCH_LOG_INFO,
         std::string(refer.replaces ? "Attended transfer to the call of leg " + refer.replaced_leg
                                    : "Transfer to " + refer.uri) +
             " asked for by the far end" + (obstacle ? ", refused with " + std::to_string(obstacle) : ""));
  if (obstacle) return dialog_->NotifyReferrer(refer.id, obstacle);
  if (refer.replaces) {
    StartAttendedTransfer(refer);
  } else {
    StartBlindTransfer(refer);
  }
}

/// Parts from the partner, which goes on with `move`; unless the partner parts first, because its own far end asked for
/// a transfer or an operator did: of two that would send each other on, one stays as it is.
void CallingLeg::SendPartnerOn(Move move) {
  const std::string own = switch_core_session_get_uuid(session_);
  LeavePartner([this, own, partner = Partner(), move = std::move(move)](Parting parting) {
    if (parting == Parting::kTold) {
      LegLog(session_, SWITCH_LOG_WARNING, "The transfer is refused with 491: the other side is going elsewhere");
      return move.leg.empty() ? move.referral->Refuse(491) : GiveBack({200, move.leg, {}, move.referral}, 491);
    }
    move.referral->Strand(own);
    Post(partner, [move](CallLeg& leg) {
      if (CallingLeg* movable = leg.Movable()) movable->GoTo(move);
    });
  });
}

void CallingLeg::StartBlindTransfer(const ReferRequest& refer) {
  const std::string own = switch_core_session_get_uuid(session_);
  auto referral = std::make_shared<Referral>(dialog_, refer.id, std::vector<std::string>{own});
  SendPartnerOn({refer.user, "", std::move(referral), refer.uri, refer.referred_by});
}

/// The other call of the same phone gives up its partner first: until it has, nothing of this call changes.
void CallingLeg::StartAttendedTransfer(const ReferRequest& refer) {
  const std::string own = switch_core_session_get_uuid(session_);
  PartnerRequest request;
  request.asker = own;
  request.referral = std::make_shared<Referral>(dialog_, refer.id, std::vector<std::string>{own, refer.replaced_leg});
  request.suits = [codec = renegotiation_->agreed().codec](const CodecMatch& other) {
    return CodecsGoTogether(codec, other);
  };
  RequestPartner(refer.replaced_leg, request);
}

/// Asks the leg `owner`, and answers for it when it has none to give.
void CallingLeg::RequestPartner(const std::string& owner, const PartnerRequest& request) {
  const auto refuse = [](const PartnerRequest& refused) {
    Post(refused.asker, [refused](CallLeg& leg) { leg.OnPartnerGiven({481, "", {}, refused.referral}); });
  };
  const bool asked = Post(owner, [request, refuse](CallLeg& leg) {
    if (CallingLeg* movable = leg.Movable()) {
      movable->GiveUpPartner(request);
    } else {
      refuse(request);
    }
  });
  if (!asked) refuse(request);
}

void CallingLeg::GiveUpPartner(const PartnerRequest& request) {
  GivenPartner given{200, Partner(), renegotiation_->agreed(), request.referral};
  if (!Joined() || given.partner == request.asker) {
    given.status = 481;
  } else if (!renegotiation_->quiet()) {
    given.status = 491;
  } else if (!request.suits(given.agreed.codec)) {
    given.status = 488;
  }
  if (given.status != 200) return Answer(request.asker, given);
  const std::string own = switch_core_session_get_uuid(session_);
  LeavePartner([own, asker = request.asker, given](Parting parting) mutable {
    if (parting == Parting::kTold) {
      given.status = 491;
    } else {
      given.referral->Strand(own);
      given.referral->Strand(given.partner);
    }
    Answer(asker, given);
  });
}

void CallingLeg::OnPartnerGiven(const GivenPartner& given) {
  if (finished_) return GiveBack(given, 487);
  if (!answered_) {
    given_ = given;
    return;
  }
  if (given.status != 200) {
    LegLog(session_, SWITCH_LOG_WARNING, "The transfer is refused with " + std::to_string(given.status));
    given.referral->Refuse(given.status);
  } else if (Movable() && Joined()) {
    SendPartnerOn({"", given.partner, given.referral, "", ""});
  } else {
    GiveBack(given, 491);  // its own partner has gone elsewhere meanwhile
  }
}

/// Waits for the partner of the leg that the INVITE replaces.
bool CallingLeg::AskForPartner() {
  const std::string own = switch_core_session_get_uuid(session_);
  PartnerRequest request;
  request.asker = own;
  request.referral = std::make_shared<Referral>(nullptr, 0, std::vector<std::string>{invite_.replaced_leg});
  request.suits = [ours = common_](const CodecMatch& theirs) {
    return std::any_of(ours.begin(), ours.end(), [&theirs](const CodecMatch& match) {
      return SameCodec(*match.implementation, *theirs.implementation);
    });
  };
  DrainTasks(session_);
  if (switch_channel_down(channel_)) return false;
  RequestPartner(invite_.replaced_leg, request);
  request = {};
  const auto deadline = std::chrono::steady_clock::now() + kPartingPatience;
  // Also when the caller gives up meanwhile: what was taken has to be given back.
  ServeAfterHangup(session_, deadline, [this] { return given_.has_value(); });
  if (switch_channel_down(channel_)) return false;
  if (given_ && given_->status == 200) return true;
  const int status = given_ ? given_->status : 481;
  Fail(SWITCH_CAUSE_CALL_REJECTED, status, "", "INVITE with Replaces refused with " + std::to_string(status));
  return false;
}

/// The leg that asked has no use for the partner any more: the two that were parted for it are joined again.
void CallingLeg::GiveBack(const GivenPartner& given, int status) {
  if (given.status != 200) return;
  const std::string owner = given.referral->leaving().back();
  given.referral->Refuse(status);
  auto again = std::make_shared<Referral>(nullptr, 0, std::vector<std::string>{});
  again->Strand(owner);
  again->Strand(given.partner);
  Post(owner, [move = Move{"", given.partner, again, "", ""}](CallLeg& leg) {
    if (CallingLeg* movable = leg.Movable()) movable->GoTo(move);
  });
}

/// An INVITE that takes the place of another leg (RFC 3891, 3).
void CallingLeg::TakeThePlace() {
  if (invite_.replaced_leg.empty()) {
    return Fail(SWITCH_CAUSE_CALL_REJECTED, 481, "", "INVITE with Replaces refused with 481: there is no such call");
  }
  if (invite_.early_only) {
    return Fail(SWITCH_CAUSE_USER_BUSY, 486, "", "INVITE with Replaces refused with 486: the call is answered");
  }
  LegLog(session_, SWITCH_LOG_INFO, "Takes the place of leg " + invite_.replaced_leg);
  // The other call is touched last, when nothing of ours stands in the way.
  if (!EnsureMedia() || !AskForPartner()) return;
  CalledLegReport as{};
  as.agreed = given_->agreed;
  while (!SameCodec(*common_[as.offered_index].implementation, *as.agreed.codec.implementation)) ++as.offered_index;
  if (!TakeOver(as) || !AnswerCaller()) return;
  move_ = Move{"", given_->partner, given_->referral, "", ""};
  given_.reset();
  if (JoinLeg(move_->leg)) {
    MoveSucceeded();
    last_action_ = true;
    Talk();
  } else {
    MoveFailed();
  }
}

/// A lone leg calls the number of its next move, through the dialplan like any caller.
void CallingLeg::CallOn() {
  switch_channel_set_variable(channel_, "sip_refer_to", move_->refer_to.c_str());
  switch_channel_set_variable(channel_, "sip_referred_by", move_->referred_by.c_str());
  common_ = {agreed_.codec};
  RunFrom({move_->destination, profile_.context, {}});
}

}  // namespace kvx_switch
