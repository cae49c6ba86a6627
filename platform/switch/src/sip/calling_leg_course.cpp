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

void LogSentOn(switch_core_session_t* session, const Destination& destination) {
  LegLog(session, SWITCH_LOG_NOTICE,
         destination.actions.empty() ? "Transferred to " + destination.extension
                                     : "Transferred to application " + destination.actions.front().application);
}

}  // namespace

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
    destination = *std::exchange(redirection_, std::nullopt)->own;
    LogSentOn(session_, destination);
  }
  if (next_ || move_failed_) return;
  Fail(SWITCH_CAUSE_NORMAL_CLEARING, 0, "", "");  // the dialplan has nothing further for this call
}

/// True when the leg was told to go on elsewhere.
bool CallingLeg::RunActions(const Route& route) {
  switch_channel_set_state(channel_, CS_EXECUTE);
  for (const DialplanAction& action : route.actions) {
    if (switch_channel_down(channel_)) return false;
    last_action_ = &action == &route.actions.back();
    RunAction(action);
    if (switch_channel_down(channel_) || next_ || move_failed_) return false;
    if (!redirection_) continue;
    if (redirection_->own) return true;
    redirection_.reset();
  }
  return false;
}

/// What is asked of the leg while nothing of the dialplan runs, until nothing more is.
void CallingLeg::GoOn() {
  while (switch_channel_up(channel_) && (next_ || redirection_)) {
    if (next_) {
      RunMove();
      continue;
    }
    const Redirection redirection = *std::exchange(redirection_, std::nullopt);
    if (redirection.own) {
      LogSentOn(session_, *redirection.own);
      RunFrom(*redirection.own);
    } else {
      Fail(SWITCH_CAUSE_NORMAL_CLEARING, 0, "", "");
    }
  }
  Fail(SWITCH_CAUSE_NORMAL_CLEARING, 0, "", "");
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
  MoveSucceeded();
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
  if (!driver_.empty()) {
    return RedirectThrough(driver_, switch_core_session_get_uuid(session_), std::move(redirection));
  }
  if (redirection.partners && !(called_ && called_->answer && media_->bridged())) return "the leg is not bridged";
  const bool waits = settled_ && Partner().empty();  // for what becomes of the transfer that it asked for
  if (move_ || next_ || waits) return "the leg is being transferred";
  if (renegotiation_ && !renegotiation_->quiet()) return "the call's media is being changed, or is a fax";
  redirection_ = std::move(redirection);
  return "";
}

std::string CallingLeg::Hold(HoldChange change) {
  if (finished_ || switch_channel_down(channel_)) return kNoSuchChannel;
  return answered_ && renegotiation_ ? renegotiation_->Hold(change) : "the leg is not answered";
}

}  // namespace kvx_switch
