#include <utility>

#include "sip/calling_leg.h"
#include "sip/dialplan_applications.h"
#include "sip/leg_helpers.h"

namespace kvx_switch {

namespace {

// A dialplan whose extensions transfer to each other would go round for ever; as many hops as a request has
// (RFC 3261, 8.1.1.6).
constexpr int kMostTransfers = 70;

void FirePark(switch_core_session_t* session, switch_event_types_t type) {
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, type) != SWITCH_STATUS_SUCCESS) return;
  switch_channel_event_set_data(switch_core_session_get_channel(session), event);
  if (switch_event_fire(&event) != SWITCH_STATUS_SUCCESS) switch_event_destroy(&event);
}

InboundInvite AsIfInvited(const AnsweredLeg& leg) {
  InboundInvite invite;
  invite.from_name = leg.name;
  invite.from_user = leg.number;
  invite.max_forwards = leg.max_forwards;
  return invite;
}

}  // namespace

CallingLeg::CallingLeg(AnsweredLeg leg, std::shared_ptr<const Dialplan> dialplan)
    : invite_(AsIfInvited(leg)),
      dialog_(std::move(leg.dialog)),
      dialplan_(std::move(dialplan)),
      profile_(dialog_->agent()->profile()),
      media_(std::move(leg.media)),
      offer_(std::move(leg.far_end)),
      common_{leg.renegotiation.agreed().codec},
      agreed_(leg.renegotiation.agreed()),
      told_("in the called side's answer"),
      answered_(true),
      renegotiation_(std::move(leg.renegotiation)),
      answered_at_(leg.answered_at) {}

void CallingLeg::RunAt(switch_core_session_t* session, const Destination& destination) {
  session_ = session;
  channel_ = switch_core_session_get_channel(session);
  OfferControl(session_, this);
  renegotiation_->Rewire([this](Renegotiation::Task task) { return TellCalledLeg(std::move(task)); },
                         [this](RTPDirection direction) { return Turn(direction); });
  CallerData caller = GetCallerData(session_);
  caller.caller_id_name = invite_.from_name.empty() ? invite_.from_user : invite_.from_name;
  caller.caller_id_number = invite_.from_user;
  caller.context = profile_.context;
  SetCallerData(session_, caller);
  RunGuarded(session_, [&] { RunFrom(destination); });
  Finish();
}

bool CallingLeg::FindRoute(const Destination& destination, Route& route) {
  CallerData caller = GetCallerData(session_);
  if (!destination.actions.empty()) {
    route = {"", destination.actions};
    return true;
  }
  caller.destination_number = destination.extension;
  if (!destination.context.empty()) caller.context = destination.context;
  SetCallerData(session_, caller);
  route = dialplan_->Find(caller.context, [this](const std::string& name) { return Variable(name); });
  const std::string where = "\"" + destination.extension + "\" in context \"" + caller.context + "\"";
  if (route.actions.empty()) {
    Fail(SWITCH_CAUSE_NO_ROUTE_DESTINATION, 404, "", "No route: the dialplan has nothing for " + where);
    return false;
  }
  LegLog(session_, SWITCH_LOG_INFO, "Routed: " + where + " matches extension \"" + route.extension + "\"");
  return true;
}

/// The leg's way through the dialplan, transfers included; when there is nothing further to do the leg is hung up.
void CallingLeg::RunFrom(Destination destination) {
  for (Route route; FindRoute(destination, route);) {
    if (!RunActions(route)) break;
    Redirection redirection = std::move(*redirection_);
    redirection_.reset();
    destination = std::move(*redirection.own);
    LegLog(session_, SWITCH_LOG_NOTICE,
           destination.actions.empty() ? "Transferred to " + destination.extension
                                       : "Transferred to application " + destination.actions.front().application);
  }
  Fail(SWITCH_CAUSE_NORMAL_CLEARING, 0, "", "");  // the dialplan has nothing further for this call
}

/// True when the leg was told to go on elsewhere.
bool CallingLeg::RunActions(const Route& route) {
  switch_channel_set_state(channel_, CS_EXECUTE);
  for (const DialplanAction& action : route.actions) {
    if (switch_channel_down(channel_)) return false;
    last_action_ = &action == &route.actions.back();
    RunAction(action);
    if (!redirection_) continue;
    if (switch_channel_down(channel_)) return false;
    if (redirection_->own) return true;
    redirection_.reset();
  }
  return false;
}

void CallingLeg::RunAction(const DialplanAction& action) {
  const std::string data =
      ExpandChannelVariables(action.data, [this](const std::string& name) { return Variable(name); });
  LegLog(session_, SWITCH_LOG_DEBUG, "Action " + action.application + "(" + data + ")");
  if (action.application == "set")
    Set(data);
  else if (action.application == "export")
    Export(data);
  else if (action.application == "log")
    Log(data);
  else if (action.application == "hangup")
    HangUp(data);
  else if (action.application == "answer")
    EnsureMedia() && AnswerCaller();
  else if (action.application == "sleep")
    Sleep(data);
  else if (action.application == "park")
    Park();
  else if (action.application == "transfer")
    Transfer(data);
  else if (action.application == "bridge")
    Bridge(data);
}

bool CallingLeg::ServeUntilDone(std::chrono::steady_clock::time_point deadline, const std::function<bool()>& done) {
  bool is_done = false;
  ServeUntil(session_, deadline, [&] {
    is_done = done();
    return is_done || redirection_;
  });
  return is_done;
}

void CallingLeg::Sleep(const std::string& data) {
  const std::optional<std::chrono::milliseconds> time = SleepOfText(data);
  if (!time) {
    LegLog(session_, SWITCH_LOG_ERROR, "sleep: \"" + data + "\" is not a number of milliseconds from 0 to 86400000");
    return;
  }
  ServeUntilDone(std::chrono::steady_clock::now() + *time, [] { return false; });
}

/// The leg stays as it is: its media is not joined with anything, so nothing is sent to it.
void CallingLeg::Park() {
  switch_channel_set_state(channel_, CS_PARK);
  FirePark(session_, SWITCH_EVENT_CHANNEL_PARK);
  LegLog(session_, SWITCH_LOG_INFO, "Parked");
  ServeUntilDone(std::chrono::steady_clock::time_point::max(), [] { return false; });
  FirePark(session_, SWITCH_EVENT_CHANNEL_UNPARK);
}

void CallingLeg::Transfer(const std::string& data) {
  std::string error;
  std::optional<Destination> destination = ParseDestination(WordsOf(data), error);
  if (++transfers_ > kMostTransfers) {
    Fail(SWITCH_CAUSE_EXCHANGE_ROUTING_ERROR, 483, "",
         "transfer: the call went through " + std::to_string(kMostTransfers) + " of them, the next is to \"" + data +
             "\": the dialplan goes round");
  } else if (destination) {
    redirection_ = Redirection{std::move(destination), std::nullopt};
  } else {
    Fail(SWITCH_CAUSE_INVALID_NUMBER_FORMAT, 0, "", "transfer: " + error);
  }
}

std::string CallingLeg::Redirect(Redirection redirection) {
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  if (redirection.partners && !(called_ && called_->answer && media_->bridged())) return "the leg is not bridged";
  if (renegotiation_ && !renegotiation_->quiet()) return "the call's media is being changed, or is a fax";
  redirection_ = std::move(redirection);
  return "";
}

std::string CallingLeg::Hold(HoldChange change) {
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  if (!answered_ || !renegotiation_) return "the leg is not answered";
  const bool on = change == HoldChange::kToggle ? !renegotiation_->held() : change == HoldChange::kHold;
  if (on == renegotiation_->held()) return "";
  return renegotiation_->Hold(on) ? "" : "the call's media is being changed, or is a fax";
}

}  // namespace kvx_switch
