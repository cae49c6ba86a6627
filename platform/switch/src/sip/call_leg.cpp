#include "sip/call_leg.h"

#include <utility>

#include "sip/called_leg.h"

namespace kvx_switch {

CallLeg::Reachable::Reachable(switch_core_session_t* session, CallLeg* leg) : session_(session) {
  switch_core_session_set_private(session_, leg);
}

CallLeg::Reachable::~Reachable() {
  switch_core_session_set_private(session_, nullptr);
}

bool CallLeg::Post(const std::string& uuid, std::function<void(CallLeg&)> task) {
  switch_core_session_t* session = switch_core_session_force_locate(uuid.c_str());
  if (!session) return false;
  const bool posted = PostToSession(session, [session, task = std::move(task)] {
    if (auto* leg = static_cast<CallLeg*>(switch_core_session_get_private(session))) task(*leg);
  });
  switch_core_session_rwunlock(session);
  return posted;
}

bool CallLeg::Tell(const std::string& uuid, Renegotiation::Task task) {
  return Post(uuid, [task = std::move(task)](CallLeg& leg) { leg.OnPartnerTask(task); });
}

void CallLeg::Release(const std::string& uuid, const std::string& ended_by) {
  Post(uuid, [ended_by](CallLeg& leg) { leg.OnReleased(ended_by); });
}

std::string CallLeg::RedirectThrough(const std::string& driver, const std::string& own, Redirection redirection) {
  std::swap(redirection.own, redirection.partners);
  const bool posted = Post(driver, [own, redirection](CallLeg& leg) {
    // It may have another partner by now.
    const std::string refused = leg.Drives(own) ? leg.Redirect(redirection) : "the leg is not bridged";
    if (refused.empty()) return;
    switch_log_printf(SWITCH_CHANNEL_UUID_LOG(own.c_str()), SWITCH_LOG_WARNING, "Not transferred: %s\n",
                      refused.c_str());
  });
  return posted ? "" : "the leg is not bridged";
}

void CallLeg::OnPartnerLeaves(const std::string&) {}

void CallLeg::OnPartnerReport(const std::string&, const CalledLegReport&) {}

void CallLeg::OnPartnerGiven(const GivenPartner&) {}

}  // namespace kvx_switch
