#include <algorithm>
#include <sstream>
#include <utility>

#include "sip/bridge_target.h"
#include "sip/calling_leg.h"
#include "sip/dialplan_applications.h"
#include "sip/leg_helpers.h"
#include "sip/sip_cause.h"
#include "sip/sip_front.h"

namespace kvx_switch {

namespace {

// Before the name of an exported variable: only the called legs shall have it.
const std::string kNotForTheCaller = "nolocal:";

// For a leg that was hung up to say so.
constexpr std::chrono::seconds kReportPatience{5};

}  // namespace

/// The calling leg's media is set up first, so that the called leg lands in the same media session; the caller is
/// answered last, with the codec that the called side took. Targets that fail are followed by the next one.
void CallingLeg::Bridge(const std::string& data) {
  BridgePlan plan;
  std::string error;
  if (!ParseBridgePlan(data, plan, error)) {
    Fail(SWITCH_CAUSE_INVALID_NUMBER_FORMAT, 0, "", "bridge: " + error);
    return;
  }
  if (!EnsureMedia()) return;
  const auto deadline = OriginateDeadline(plan);
  BridgedLeg failed;
  for (const BridgeTarget& target : plan.targets) {
    std::chrono::seconds timeout = LegTimeout(target);
    if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::seconds>(*deadline - std::chrono::steady_clock::now());
      timeout = std::min(timeout, left);
    }
    if (timeout.count() <= 0) break;  // the time for all of them is over; the last one's failure stands
    const Attempt attempt = Call(target, timeout);
    if (attempt == Attempt::kAnswered) return Join();
    if (attempt == Attempt::kOver) return move_failed_ ? void() : LeaveBridge();
    failed = *called_;
    ForgetCalledLeg(failed.cause);
    LegLog(session_, SWITCH_LOG_INFO, "bridge: " + target.uri + " failed: " + switch_channel_cause2str(failed.cause));
  }
  BridgeFailed(failed);
}

/// No target answered: the dialplan goes on when it says so, otherwise the last failure is the leg's end.
void CallingLeg::BridgeFailed(const BridgedLeg& failed) {
  switch_channel_set_variable(channel_, "originate_disposition", switch_channel_cause2str(failed.cause));
  if (ContinuesOnFail(Variable("continue_on_fail"), failed.cause)) return;
  EndWithCalledLeg(failed);
}

/// One attempt, up to the answer of both sides.
CallingLeg::Attempt CallingLeg::Call(const BridgeTarget& target, std::chrono::seconds timeout) {
  if (!StartCalledLeg(target, timeout)) return Attempt::kOver;
  const Attempt attempt = AwaitAnswer(timeout);
  if (attempt != Attempt::kAnswered) return attempt;
  return TakeOver(*called_->answer) && AnswerCaller() ? Attempt::kAnswered : Attempt::kOver;
}

/// A variable that holds a ringing time; the target's own comes before the leg's.
std::optional<std::chrono::seconds> CallingLeg::RingTime(const VariableList& variables, const char* name) const {
  const std::string* own = FindInList(variables, name);
  const std::string value = own ? *own : Variable(name);
  if (value.empty()) return std::nullopt;
  const std::optional<std::chrono::seconds> time = RingTimeOfText(value);
  if (!time) {
    LegLog(session_, SWITCH_LOG_WARNING,
           std::string(name) + " is \"" + value + "\", not a number from 1 to 3600; ignored");
  }
  return time;
}

std::chrono::seconds CallingLeg::LegTimeout(const BridgeTarget& target) const {
  for (const char* name : {"leg_timeout", "call_timeout"}) {
    if (const auto time = RingTime(target.variables, name)) return *time;
  }
  return std::chrono::seconds(profile_.leg_timeout_seconds);
}

/// When all targets together have had their time; none: each has its own alone.
std::optional<std::chrono::steady_clock::time_point> CallingLeg::OriginateDeadline(const BridgePlan& plan) const {
  const auto time = RingTime(plan.variables, "originate_timeout");
  if (!time) return std::nullopt;
  return std::chrono::steady_clock::now() + *time;
}

void CallingLeg::PassVariablesOn(switch_channel_t* called) {
  std::istringstream names(Variable(kExportVariable));
  for (std::string name; std::getline(names, name, ',');) {
    const std::string value = Variable(name);
    if (name.rfind(kNotForTheCaller, 0) == 0) name.erase(0, kNotForTheCaller.size());
    if (!value.empty()) switch_channel_set_variable(called, name.c_str(), value.c_str());
  }
}

/// The second leg, linked with this one; null when there is none to be had. Linked before it runs: its media is created
/// beside this leg's.
switch_core_session_t* CallingLeg::MakeCalledSession(const BridgeTarget& target) {
  switch_core_session_t* session =
      RequestSession(SWITCH_CALL_DIRECTION_OUTBOUND, "sip/" + profile_.name + "/" + target.uri.substr(4));
  if (!session) return nullptr;
  CallerData caller = GetCallerData(session_);
  caller.destination_number = target.uri.substr(4, target.uri.find_first_of("@:;", 4) - 4);
  caller.network_address.clear();
  SetCallerData(session, caller);
  switch_channel_t* channel = switch_core_session_get_channel(session);
  PassVariablesOn(channel);
  for (const auto& [name, value] : target.variables) switch_channel_set_variable(channel, name.c_str(), value.c_str());
  switch_channel_set_variable(channel, kCallUuidVariable, Variable(kCallUuidVariable).c_str());
  switch_channel_set_variable(channel, SWITCH_SIGNAL_BOND_VARIABLE, switch_core_session_get_uuid(session_));
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, switch_core_session_get_uuid(session));
  return session;
}

CalledLegRequest CallingLeg::MakeCalledRequest(const BridgeTarget& target, const std::string& uuid,
                                               std::chrono::seconds timeout) {
  CalledLegRequest request;
  request.agent = AgentForTarget(dialog_->agent(), target.uri);
  request.target = target.uri;
  // What the caller was told already stays.
  request.offered = told_.empty() ? common_ : std::vector<CodecMatch>{agreed_.codec};
  request.telephone_events = agreed_.HasTelephoneEvents();
  request.from_name = invite_.from_name;
  request.from_user = invite_.from_user;
  request.max_forwards = invite_.max_forwards - 1;
  if (move_) request.referred_by = move_->referred_by;
  request.timeout = timeout;
  const std::string own_uuid = switch_core_session_get_uuid(session_);
  request.caller = own_uuid;
  request.report = [own_uuid, uuid](const CalledLegReport& report) {
    Post(own_uuid, [uuid, report](CallLeg& leg) { leg.OnPartnerReport(uuid, report); });
  };
  request.tell_caller = [own_uuid](Renegotiation::Task task) { return Tell(own_uuid, std::move(task)); };
  return request;
}

void CallingLeg::OnPartnerTask(const Renegotiation::Task& task) {
  if (switch_channel_down(channel_) || Partner().empty()) return;
  if (renegotiation_ && Joined()) {
    task(*renegotiation_);
  } else {
    // Too early: what the called side wants to change is not there yet.
    Tell(Partner(), [](Renegotiation& partner) { partner.PartnerRefused(491); });
  }
}

/// Called while a caller hangs up or the switch is full, there is no second leg; the first is over then.
bool CallingLeg::StartCalledLeg(const BridgeTarget& target, std::chrono::seconds timeout) {
  DrainTasks(session_);
  if (switch_channel_down(channel_) || redirection_) return false;
  switch_core_session_t* session = MakeCalledSession(target);
  if (!session) {
    Fail(SWITCH_CAUSE_SWITCH_CONGESTION, 503, "", "bridge: no session for the called leg");
    return false;
  }
  const std::string uuid = switch_core_session_get_uuid(session);
  auto leg = std::make_shared<CalledLeg>(MakeCalledRequest(target, uuid, timeout));
  called_.emplace();
  called_->uuid = uuid;
  LegLog(session_, SWITCH_LOG_INFO, "Bridging to " + target.uri + ", leg " + uuid);
  if (LaunchSession(session, leg) == SWITCH_STATUS_SUCCESS) return true;
  switch_core_session_destroy(&session);
  called_.reset();
  Fail(SWITCH_CAUSE_SWITCH_CONGESTION, 503, "", "bridge: the called leg's thread could not be started");
  return false;
}

void CallingLeg::OnPartnerReport(const std::string& uuid, const CalledLegReport& report) {
  if (finished_ || !called_ || called_->uuid != uuid) return;
  switch (report.kind) {
    case CalledLegReport::Kind::kProgress:
      if (move_) move_->referral->Progress(report.status);
      if (answered_ && report.early_media && CodecsGoTogether(agreed_.codec, report.agreed.codec)) {
        HearEarlyMedia(report);
      }
      if (answered_ || (relayed_status_ == report.status && !report.early_media)) break;
      relayed_status_ = report.status;
      if (report.early_media) return PassEarlyMediaOn(report);
      // Provisional responses other than these say nothing that matters beyond one hop.
      if (told_.empty() && (report.status == 180 || report.status == 183)) dialog_->Ring(report.status);
      if (report.status == 180) switch_channel_mark_ring_ready(channel_);
      break;
    case CalledLegReport::Kind::kAnswered:
      called_->answer = report;
      if (renegotiation_) renegotiation_->PartnerDirection(report.direction);
      break;
    case CalledLegReport::Kind::kTurned:
      // Also before there is a bridge, or anything of ours to turn.
      if (called_->answer) called_->answer->direction = report.direction;
      if (renegotiation_) renegotiation_->PartnerDirection(report.direction);
      break;
    case CalledLegReport::Kind::kEnded:
      called_->ended = true;
      called_->cause = report.cause;
      called_->status = report.status;
      called_->by_far_end = report.by_far_end;
      break;
  }
}

/// The caller hears what the called side plays before it answers.
void CallingLeg::PassEarlyMediaOn(const CalledLegReport& report) {
  // An offer needs an answer before anything is heard, and that comes with the ACK.
  if (we_offer_) return dialog_->Ring(report.status);
  // Another phone that the call reached, and another codec: the caller goes on with the first one.
  if (!told_.empty() && !CodecsGoTogether(agreed_.codec, report.agreed.codec)) return;
  if (!TakeOver(report) || !DescribeToCaller()) return;
  dialog_->Ring(183, told_);
  switch_channel_mark_pre_answered(channel_);
  HearEarlyMedia(report);
}

void CallingLeg::HearEarlyMedia(const CalledLegReport& report) {
  renegotiation_->PartnerDirection(report.direction);
  // A called leg that was hung up meanwhile is on its way to say so, with the true cause.
  if (!JoinMedia() && CalledLegIsUp()) Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "");
}

CallingLeg::Attempt CallingLeg::AwaitAnswer(std::chrono::seconds timeout) {
  // The called leg watches its own timeout; this one only guards against a leg that does not report.
  const auto deadline = std::chrono::steady_clock::now() + timeout + std::chrono::seconds(60);
  ServeUntilDone(deadline, [this] { return called_->answer || called_->ended; });
  if (switch_channel_down(channel_) || redirection_ || move_failed_) return Attempt::kOver;
  return called_->answer && !called_->ended ? Attempt::kAnswered : Attempt::kFailed;
}

/// Both sides run the codec that the called side took: nothing has to be converted.
bool CallingLeg::TakeOver(const CalledLegReport& answer) {
  if (!told_.empty()) {
    if (CodecsGoTogether(agreed_.codec, answer.agreed.codec)) return true;
    Fail(SWITCH_CAUSE_INCOMPATIBLE_DESTINATION, 488, "",
         "The called side answered with another codec than the caller was told before");
    return false;
  }
  if (we_offer_) {
    NarrowOwnOffer(answer);
    return true;
  }
  const switch_codec_implementation_t* provisional = agreed_.codec.implementation;
  const uint8_t provisional_type = agreed_.codec.remote.type;
  const SdpMedia& stream = offer_.media[stream_];
  agreed_.codec = common_[answer.offered_index];
  agreed_.codec.implementation = answer.agreed.codec.implementation;
  AgreeOnTelephoneEvents(stream, answer.agreed.HasTelephoneEvents(), agreed_);
  const bool refused = RefusesSilenceFrames(answer.agreed.codec.remote) && !RefusesSilenceFrames(agreed_.codec.remote);
  if (refused) RefuseSilenceFrames(agreed_.codec.remote);
  const bool same = agreed_.codec.implementation == provisional && agreed_.codec.remote.type == provisional_type;
  if (same && !refused) return true;
  if (media_->SetRemote(SWITCH_SDP_OFFER_RECEIVED, stream, offer_.session_name, agreed_)) return true;
  Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "The agreed codec could not be given to the media server");
  return false;
}

/// The called leg's end as ours.
void CallingLeg::EndWithCalledLeg(const BridgedLeg& called) {
  if (switch_channel_down(channel_)) return;
  if (called.by_far_end) ended_by_ = "the called side";
  const int status = StatusPassesThrough(called.status) ? called.status : StatusOfCause(called.cause);
  Fail(called.cause, status, "", "");
}

bool CallingLeg::CalledLegIsUp() const {
  switch_core_session_t* session = switch_core_session_locate(called_->uuid.c_str());
  if (!session) return false;
  switch_core_session_rwunlock(session);
  return true;
}

/// The bridge on the media server, in the direction that both far ends leave.
bool CallingLeg::JoinMedia() {
  if (media_->bridged()) return true;
  if (!media_->Bridge(renegotiation_->BridgeDirection())) return false;
  switch_channel_set_variable(channel_, SWITCH_BRIDGE_UUID_VARIABLE, called_->uuid.c_str());
  switch_channel_set_flag(channel_, CF_BRIDGED);
  FireBridgeEvent(session_, SWITCH_EVENT_CHANNEL_BRIDGE, called_->uuid);
  LegLog(session_, SWITCH_LOG_INFO, "Bridged with leg " + called_->uuid);
  return true;
}

void CallingLeg::Join() {
  DrainTasks(session_);
  if (switch_channel_down(channel_) || move_failed_) return;
  if (!CalledLegIsUp() || !JoinMedia()) {
    if (CalledLegIsUp()) {
      Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 0, "", "");
      return;
    }
    // It was hung up meanwhile; its report is on its way, and has the true cause.
    ServeUntilDone(std::chrono::steady_clock::now() + kReportPatience, [this] { return called_->ended; });
    return AfterBridge();
  }
  switch_channel_set_variable(channel_, "originate_disposition", "SUCCESS");
  MoveSucceeded();
  Talk();
}

/// What the leg does when the bridge is over, for whatever reason.
void CallingLeg::AfterBridge() {
  if (switch_channel_down(channel_) || next_) return;
  if (redirection_) return LeaveBridge();
  if (!called_) return;
  // A far end that faxes has nothing to say to whatever comes next.
  if (renegotiation_ && renegotiation_->fax()) return EndWithCalledLeg(*called_);
  switch_channel_set_variable(channel_, "bridge_hangup_cause", switch_channel_cause2str(called_->cause));
  if (last_action_ || switch_true(Variable("hangup_after_bridge").c_str())) return EndWithCalledLeg(*called_);
  ForgetCalledLeg(called_->cause);
  switch_channel_set_state(channel_, CS_EXECUTE);
}

/// The leg goes elsewhere, or its called leg does.
void CallingLeg::LeaveBridge() {
  if (!called_ || switch_channel_down(channel_)) return;
  if (redirection_ && redirection_->partners && called_->answer && !called_->ended) {
    HandCalledLegOver(*redirection_->partners);
  } else {
    ForgetCalledLeg(SWITCH_CAUSE_NORMAL_CLEARING);
  }
  if (redirection_ && redirection_->own) return;
  if (switch_true(Variable("hangup_after_bridge").c_str())) Fail(SWITCH_CAUSE_NORMAL_CLEARING, 0, "", "");
}

/// Lets the called leg go and forgets it: this leg may call another one.
void CallingLeg::ForgetCalledLeg(switch_call_cause_t cause) {
  LetCalledLegGo(cause);
  called_.reset();
  switch_channel_clear_flag(channel_, CF_BRIDGED);
  for (const char* name : {SWITCH_SIGNAL_BOND_VARIABLE, SWITCH_BRIDGE_UUID_VARIABLE}) {
    switch_channel_set_variable(channel_, name, nullptr);
  }
  if (renegotiation_) renegotiation_->PartnerGone();
}

/// The called leg goes its own way with its media: the bridge is undone here, by the leg that made it, before that leg
/// hears of it.
void CallingLeg::HandCalledLegOver(const Destination& destination) {
  const std::string partner = called_->uuid;
  PartFromCalled(Parting::kTold);
  Post(partner, [destination](CallLeg& leg) {
    if (CallingLeg* movable = leg.Movable()) movable->SendTo(destination);
  });
}

}  // namespace kvx_switch
