#pragma once

#include <switch.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/session.h"
#include "sip/bridge_target.h"
#include "sip/called_leg.h"
#include "sip/dialplan.h"
#include "sip/leg_media.h"
#include "sip/renegotiation.h"
#include "sip/sip_agent.h"

/// The leg of an incoming call: takes the offer, finds the route, runs its actions, answers, and ends both legs of the
/// call that it made.
namespace kvx_switch {

/// What a calling leg knows of the leg that it called.
struct BridgedLeg {
  std::string uuid;
  std::weak_ptr<CalledLeg> leg;
  bool ended = false;
  switch_call_cause_t cause = SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE;  // until it reports
  int status = 0;
  bool reached = true;
  std::optional<CalledLegReport> answer;
};

/// The variable with the names, parted by commas, of those that called legs get too.
constexpr const char* kExportVariable = "export_vars";

class CallingLeg : public LegProgram, public std::enable_shared_from_this<CallingLeg> {
 public:
  CallingLeg(InboundInvite invite, std::shared_ptr<SipDialog> dialog, std::shared_ptr<const Dialplan> dialplan);

  void Run(switch_core_session_t* session) override;

  /// A sink for the dialog of the leg `uuid`: brings events onto the leg's thread.
  static SipDialog::Sink EventSink(const std::string& uuid, const std::shared_ptr<CallingLeg>& leg);

 private:
  bool ReadOffer();
  bool ChooseStream();
  bool FindRoute(Route& route);
  void RunActions(const Route& route);
  void RunAction(const DialplanAction& action);

  bool Set(const std::string& data, const char* application = "set");
  void Export(const std::string& data);
  void Log(const std::string& data);
  void HangUp(const std::string& data);
  void Bridge(const std::string& data);

  bool EnsureMedia();
  bool StartCalledLeg(const std::string& data);
  void PassVariablesOn(switch_channel_t* called);
  switch_core_session_t* MakeCalledSession(const BridgeTarget& target);
  CalledLegRequest MakeCalledRequest(const BridgeTarget& target, const std::string& uuid);
  std::chrono::seconds LegTimeout() const;
  bool AwaitAnswer();
  bool TakeOver(const CalledLegReport& answer);
  bool DescribeToCaller();
  bool AnswerCaller();
  void PassEarlyMediaOn(const CalledLegReport& report);
  void Join();
  bool JoinMedia();
  bool CalledLegIsUp() const;
  void EndWithCalledLeg();

  void OnDialogEvent(const DialogEvent& event);
  void StartRenegotiation(LocalDescription description);
  bool Turn(RTPDirection direction);
  void OnPartnerTask(const Renegotiation::Task& task);
  void OnCalledLegReport(const std::string& uuid, const CalledLegReport& report);

  /// Ends the leg from our side; the first reason stays. `status` 0 derives it from the cause.
  void Fail(switch_call_cause_t cause, int status, const std::string& warning, const std::string& log);
  void LetCalledLegGo(switch_call_cause_t cause);
  void Finish();
  std::string Variable(const std::string& name) const;

  const InboundInvite invite_;
  const std::shared_ptr<SipDialog> dialog_;
  const std::shared_ptr<const Dialplan> dialplan_;
  const SipProfile& profile_;

  // Used on the leg's thread only.
  switch_core_session_t* session_ = nullptr;
  switch_channel_t* channel_ = nullptr;
  std::optional<LegMedia> media_;
  SessionDescription offer_;
  size_t stream_ = 0;               // which stream of the offer we take
  std::vector<CodecMatch> common_;  // its codecs that we can take, in its order
  AgreedMedia agreed_;
  std::optional<BridgedLeg> called_;
  std::string told_;  // the description that the caller has; "" while it has none
  bool answered_ = false;
  bool finished_ = false;
  std::optional<Renegotiation> renegotiation_;  // from the answer on
  int relayed_status_ = 0;                      // last provisional response sent
  std::chrono::steady_clock::time_point answered_at_;
  switch_call_cause_t fail_cause_ = SWITCH_CAUSE_NONE;
  int fail_status_ = 0;
  std::string fail_warning_;
  std::string ended_by_ = "the switch";
};

}  // namespace kvx_switch
