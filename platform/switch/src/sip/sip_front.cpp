#include "sip/sip_front.h"

#include <switch.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <future>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "core/configuration.h"
#include "core/session.h"
#include "sip/access_control.h"
#include "sip/calling_leg.h"
#include "sip/codec_negotiation.h"
#include "sip/dialplan.h"
#include "sip/located_xml.h"
#include "sip/sip_agent.h"
#include "sip/sip_check.h"
#include "sip/sip_profile.h"
#include "sip/sofia.h"
#include "sip/target_needs.h"

namespace kvx_switch {

namespace {

class SipFront {
 public:
  bool Start(std::string& error);
  void Stop();
  std::string Address(const std::string& profile);
  std::shared_ptr<SipAgent> AgentFor(const std::shared_ptr<SipAgent>& own, const std::string& target);
  std::shared_ptr<const Dialplan> TheDialplan();
  std::shared_ptr<SipAgent> FindAgent(const std::string& profile);
  uint64_t ConnectionLimit();
  bool Responds(std::chrono::milliseconds limit);

 private:
  bool Reload(std::string& error);
  static void StackLog(void*, char const* format, va_list arguments);

  bool LoadDialplan(std::string& error);
  bool LoadAccessControl(std::string& error);
  bool StartProfile(const SipProfile& profile, std::string& error);
  void OnInvite(const InboundInvite& invite, const std::shared_ptr<SipDialog>& dialog);

  AccessControl access_;
  std::mutex mutex_;
  std::shared_ptr<const Dialplan> dialplan_;       // guarded by mutex_
  std::vector<std::shared_ptr<SipAgent>> agents_;  // guarded by mutex_
};

/// Lives as long as the process: events may still be on their way when SIP stops.
SipFront& the_front() {
  static SipFront* const front = new SipFront;
  return *front;
}

void WarnOfUnknownPreferences(const SipProfile& profile) {
  for (const std::string& preference : profile.codec_prefs) {
    if (!PreferredCodecs(RegisteredCodecs(), {preference}).empty()) continue;
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                      "%s\"codec-prefs\" names %s, which no module registered\n",
                      PlaceOfParameter(profile.file, "codec-prefs").c_str(), preference.c_str());
  }
}

void SipFront::StackLog(void*, char const* format, va_list arguments) {
  char text[1024];
  int length = std::vsnprintf(text, sizeof(text), format, arguments);
  while (length > 0 && length < static_cast<int>(sizeof(text)) && text[length - 1] == '\n') text[--length] = '\0';
  if (length > 0) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "SIP stack: %s\n", text);
}

bool SipFront::LoadDialplan(std::string& error) {
  std::shared_ptr<const Dialplan> dialplan = Dialplan::Load(ConfigurationDirectory("dialplan"), error);
  if (!dialplan) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const std::shared_ptr<SipAgent>& agent : agents_) {
    std::string mistake;
    if (!CheckContext(agent->profile(), *dialplan, mistake)) AddLine(error, mistake);
  }
  if (!error.empty()) return false;
  dialplan_ = std::move(dialplan);
  return true;
}

bool SipFront::Reload(std::string& error) {
  if (!LoadDialplan(error)) {
    error += "; the dialplan stays as it was";
    return false;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Dialplan read anew\n");
  if (!LoadAccessControl(error)) {
    error += "; the access lists stay as they were";
    return false;
  }
  return true;
}

bool SipFront::LoadAccessControl(std::string& error) {
  std::vector<std::shared_ptr<SipAgent>> agents;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    agents = agents_;
  }
  std::vector<const SipProfile*> profiles;
  for (const std::shared_ptr<SipAgent>& agent : agents) profiles.push_back(&agent->profile());
  return access_.Load(ConfigurationDirectory("autoload_configs") + "/acl.conf.xml", profiles, error);
}

bool SipFront::StartProfile(const SipProfile& profile, std::string& error) {
  WarnOfUnknownPreferences(profile);
  std::shared_ptr<SipAgent> agent = SipAgent::Start(
      profile,
      [this](const InboundInvite& invite, const std::shared_ptr<SipDialog>& dialog) { OnInvite(invite, dialog); },
      error);
  if (!agent) return false;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "SIP profile \"%s\" listens on %s %s\n",
                    profile.name.c_str(), profile.transports.Names().c_str(), agent->address().c_str());
  std::lock_guard<std::mutex> lock(mutex_);
  agents_.push_back(std::move(agent));
  return true;
}

bool SipFront::Start(std::string& error) {
  su_log_redirect(nullptr, StackLog, nullptr);
  SipConfiguration configuration;
  bool good = ReadSipConfiguration(configuration, access_, error);
  if (good) {
    std::lock_guard<std::mutex> lock(mutex_);
    dialplan_ = std::move(configuration.dialplan);
  }
  for (auto at = configuration.profiles.begin(); good && at != configuration.profiles.end(); ++at) {
    good = StartProfile(*at, error);
  }
  if (!good) {
    Stop();
    return false;
  }
  SetReloadStep([this](std::string& problem) { return Reload(problem); });
  return true;
}

void SipFront::Stop() {
  SetReloadStep(nullptr);
  std::vector<std::shared_ptr<SipAgent>> agents;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    agents.swap(agents_);
  }
  for (const std::shared_ptr<SipAgent>& agent : agents) agent->Stop();
}

std::string SipFront::Address(const std::string& profile) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const std::shared_ptr<SipAgent>& agent : agents_) {
    if (profile.empty() || agent->profile().name == profile) return agent->address();
  }
  return "";
}

std::shared_ptr<SipAgent> SipFront::AgentFor(const std::shared_ptr<SipAgent>& own, const std::string& target) {
  const TargetNeeds needs = NeedsOfTarget(target);
  if (needs.MetBy(own->profile())) return own;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const std::shared_ptr<SipAgent>& agent : agents_) {
    if (needs.MetBy(agent->profile())) return agent;
  }
  return own;
}

std::shared_ptr<const Dialplan> SipFront::TheDialplan() {
  std::lock_guard<std::mutex> lock(mutex_);
  return dialplan_;
}

std::shared_ptr<SipAgent> SipFront::FindAgent(const std::string& profile) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const std::shared_ptr<SipAgent>& agent : agents_) {
    if (profile.empty() || agent->profile().name == profile) return agent;
  }
  return nullptr;
}

uint64_t SipFront::ConnectionLimit() {
  std::lock_guard<std::mutex> lock(mutex_);
  uint64_t connections = 0;
  for (const std::shared_ptr<SipAgent>& agent : agents_) {
    if (agent->profile().transports.tcp) connections += agent->profile().tcp_connections;
  }
  return connections;
}

bool SipFront::Responds(std::chrono::milliseconds limit) {
  std::vector<std::shared_ptr<SipAgent>> agents;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    agents = agents_;
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::vector<std::future<void>> answers;
  for (const std::shared_ptr<SipAgent>& agent : agents) {
    // Shared, since a task that comes late finds nobody waiting.
    auto answer = std::make_shared<std::promise<void>>();
    answers.push_back(answer->get_future());
    if (!agent->Post([answer] { answer->set_value(); })) return false;
  }
  return std::all_of(answers.begin(), answers.end(), [deadline](const std::future<void>& answer) {
    return answer.wait_until(deadline) == std::future_status::ready;
  });
}

/// On the SIP thread: only makes the leg and lets it run.
void SipFront::OnInvite(const InboundInvite& invite, const std::shared_ptr<SipDialog>& dialog) {
  const SipProfile& profile = dialog->agent()->profile();
  if (!access_.Allows(profile, invite.network_address)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                      "IP %s rejected by acl \"%s\": call to %s refused with 403 (call-id %s)\n",
                      invite.network_address.c_str(), profile.access_list.c_str(), invite.request_user.c_str(),
                      invite.call_id.c_str());
    dialog->End(SWITCH_CAUSE_CALL_REJECTED, 403, "");
    return;
  }
  switch_core_session_t* session = RequestSession(
      SWITCH_CALL_DIRECTION_INBOUND, "sip/" + profile.name + "/" + invite.from_user + "@" + invite.from_host);
  if (!session) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Call to %s refused with 503: no session (call-id %s)\n",
                      invite.request_user.c_str(), invite.call_id.c_str());
    dialog->End(SWITCH_CAUSE_SWITCH_CONGESTION, 503, "");
    return;
  }
  SetCallerData(session, {invite.from_name.empty() ? invite.from_user : invite.from_name, invite.from_user,
                          invite.request_user, invite.network_address, profile.context});
  switch_channel_t* channel = switch_core_session_get_channel(session);
  const std::pair<const char*, std::string> variables[] = {
      {"sip_call_id", invite.call_id},
      {"sip_from_user", invite.from_user},
      {"sip_from_host", invite.from_host},
      {"sip_from_display", invite.from_name},
      {"sip_to_user", invite.to_user},
      {"sip_req_user", invite.request_user},
      {"sip_req_host", invite.request_host},
      {"sip_network_ip", invite.network_address},
      {"sip_network_port", std::to_string(invite.network_port)},
  };
  for (const auto& [name, value] : variables) switch_channel_set_variable(channel, name, value.c_str());

  auto leg = std::make_shared<CallingLeg>(invite, dialog, TheDialplan());
  const std::string uuid = switch_core_session_get_uuid(session);
  dialog->SetLegOnSipThread(uuid, CallingLeg::EventSink(uuid, leg));
  if (LaunchSession(session, leg) == SWITCH_STATUS_SUCCESS) return;
  switch_core_session_destroy(&session);
  dialog->End(SWITCH_CAUSE_SWITCH_CONGESTION, 503, "");
}

}  // namespace

bool StartSip(std::string& error) {
  return the_front().Start(error);
}

void StopSip() {
  the_front().Stop();
}

std::string SipAddress(const std::string& profile) {
  return the_front().Address(profile);
}

std::shared_ptr<SipAgent> AgentForTarget(const std::shared_ptr<SipAgent>& own, const std::string& target) {
  return the_front().AgentFor(own, target);
}

std::shared_ptr<const Dialplan> CurrentDialplan() {
  return the_front().TheDialplan();
}

std::shared_ptr<SipAgent> FindSipAgent(const std::string& profile) {
  return the_front().FindAgent(profile);
}

uint64_t SipConnectionLimit() {
  return the_front().ConnectionLimit();
}

bool SipResponds(std::chrono::milliseconds limit) {
  return the_front().Responds(limit);
}

}  // namespace kvx_switch
