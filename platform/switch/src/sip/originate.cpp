#include "sip/originate.h"

#include <algorithm>
#include <future>
#include <memory>
#include <utility>

#include "core/session.h"
#include "sip/called_leg.h"
#include "sip/codec_negotiation.h"
#include "sip/dialplan.h"
#include "sip/dialplan_applications.h"
#include "sip/leg_helpers.h"
#include "sip/sip_agent.h"
#include "sip/sip_front.h"

namespace kvx_switch {

namespace {

// Beyond the leg's own time-out: only a leg that does not report lets it pass.
constexpr std::chrono::seconds kReportPatience{60};

std::optional<std::chrono::seconds> TimeIn(const VariableList& variables, const char* name) {
  const std::string* value = FindInList(variables, name);
  return value ? RingTimeOfText(*value) : std::nullopt;
}

std::chrono::seconds RingTimeOf(const BridgeTarget& target, const SipProfile& profile) {
  for (const char* name : {"leg_timeout", "call_timeout"}) {
    if (const auto time = TimeIn(target.variables, name)) return *time;
  }
  return std::chrono::seconds(profile.leg_timeout_seconds);
}

/// The session, with its variables; null when the switch is full.
switch_core_session_t* MakeSession(const OriginateRequest& request, const BridgeTarget& target,
                                   const SipProfile& profile) {
  switch_core_session_t* session =
      RequestSession(SWITCH_CALL_DIRECTION_OUTBOUND, "sip/" + profile.name + "/" + target.uri.substr(4));
  if (!session) return nullptr;
  SetCallerData(session, {request.caller_name, request.caller_number,
                          target.uri.substr(4, target.uri.find_first_of("@:;", 4) - 4), "", profile.context});
  switch_channel_t* channel = switch_core_session_get_channel(session);
  for (const auto& [name, value] : target.variables) switch_channel_set_variable(channel, name.c_str(), value.c_str());
  return session;
}

/// The first final word on a leg: that it was answered, or why not.
class Verdict {
 public:
  void Report(const CalledLegReport& report) {
    if (report.kind == CalledLegReport::Kind::kProgress || std::exchange(told_, true)) return;
    verdict_.set_value(report.kind == CalledLegReport::Kind::kAnswered ? SWITCH_CAUSE_NONE : report.cause);
  }
  std::future<switch_call_cause_t> Future() { return verdict_.get_future(); }

 private:
  std::promise<switch_call_cause_t> verdict_;
  bool told_ = false;  // used on the leg's thread only
};

OriginateResult CallTarget(const OriginateRequest& request, const BridgeTarget& target,
                           const std::shared_ptr<SipAgent>& agent, std::chrono::seconds timeout) {
  const SipProfile& profile = agent->profile();
  CalledLegRequest leg;
  leg.agent = agent;
  leg.target = target.uri;
  leg.offered = EverythingToOffer(PreferredCodecs(RegisteredCodecs(), profile.codec_prefs), profile.media.g729_annex_b);
  if (leg.offered.empty()) return {"", SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE};
  leg.telephone_events = profile.media.telephone_events;
  leg.from_name = request.caller_name;
  leg.from_user = request.caller_number;
  leg.timeout = timeout;
  leg.answered = request.answered;
  auto verdict = std::make_shared<Verdict>();
  std::future<switch_call_cause_t> known = verdict->Future();
  leg.report = [verdict](const CalledLegReport& report) { verdict->Report(report); };
  leg.tell_caller = [](Renegotiation::Task) { return false; };
  switch_core_session_t* session = MakeSession(request, target, profile);
  if (!session) return {"", SWITCH_CAUSE_SWITCH_CONGESTION};
  const std::string uuid = switch_core_session_get_uuid(session);
  if (LaunchSession(session, std::make_shared<CalledLeg>(std::move(leg))) != SWITCH_STATUS_SUCCESS) {
    switch_core_session_destroy(&session);
    return {"", SWITCH_CAUSE_SWITCH_CONGESTION};
  }
  if (known.wait_for(timeout + kReportPatience) != std::future_status::ready) {
    HangUpLeg(uuid, SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE);
    return {"", SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE};
  }
  const switch_call_cause_t cause = known.get();
  return cause == SWITCH_CAUSE_NONE ? OriginateResult{uuid, cause} : OriginateResult{"", cause};
}

}  // namespace

OriginateResult Originate(const OriginateRequest& request) {
  OriginateResult result{"", SWITCH_CAUSE_NETWORK_OUT_OF_ORDER};
  const std::shared_ptr<SipAgent> agent = FindSipAgent("");
  if (!agent) return result;
  using Clock = std::chrono::steady_clock;
  const auto limit = request.timeout ? request.timeout : TimeIn(request.plan.variables, "originate_timeout");
  const Clock::time_point deadline = limit ? Clock::now() + *limit : Clock::time_point::max();
  for (const BridgeTarget& target : request.plan.targets) {
    std::chrono::seconds timeout = RingTimeOf(target, agent->profile());
    if (limit) timeout = std::min(timeout, std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now()));
    if (timeout.count() <= 0) break;  // the time for all of them is over; the last one's failure stands
    result = CallTarget(request, target, AgentForTarget(agent, target.uri), timeout);
    if (!result.uuid.empty()) break;
  }
  return result;
}

}  // namespace kvx_switch
