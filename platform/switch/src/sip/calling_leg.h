#pragma once

#include <switch.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/session.h"
#include "sip/bridge_target.h"
#include "sip/bridged_leg.h"
#include "sip/call_leg.h"
#include "sip/dialplan.h"
#include "sip/leg_handover.h"
#include "sip/leg_media.h"
#include "sip/renegotiation.h"
#include "sip/sip_agent.h"

/// The leg of an incoming call: takes the offer, finds the route, runs its actions, answers, and ends both legs of the
/// call that it made. Also a leg that was called itself and goes on by a transfer.
///
/// Of two legs that talk one drives the bridge, as a rule the one that called, and ends the other. A transfer parts
/// them, and a leg that is alone calls somebody else or is joined with another lone leg, in either role.
namespace kvx_switch {

class CallingLeg : public CallLeg, public std::enable_shared_from_this<CallingLeg> {
 public:
  CallingLeg(InboundInvite invite, std::shared_ptr<SipDialog> dialog, std::shared_ptr<const Dialplan> dialplan);

  /// A leg that was called, from its answer on.
  explicit CallingLeg(AnsweredLeg leg);

  void Run(switch_core_session_t* session) override;
  /// The rest of the leg that was handed over.
  void Continue();

  // The leg's own doing when another asks for it, all on its thread.
  CallingLeg* Movable() override;
  std::string Redirect(Redirection redirection) override;
  std::string Hold(HoldChange change) override;
  void OnDialogEvent(const DialogEvent& event) override;
  void OnPartnerTask(const Renegotiation::Task& task) override;
  void OnReleased(const std::string& ended_by) override;
  void OnLeftAlone(const std::string& driver, Parting parting) override;
  bool Drives(const std::string& leg) const override { return called_ && called_->uuid == leg; }
  void OnPartnerLeaves(const std::string& partner) override;
  void OnPartnerReport(const std::string& partner, const CalledLegReport& report) override;
  void OnPartnerGiven(const GivenPartner& given) override;

  /// Parts from the partner, which goes on too. `then` runs when this leg is alone: because it wanted to be, or because
  /// the partner left on its own account first.
  void LeavePartner(std::function<void(Parting)> then);
  /// Parts from the partner for another leg's sake; answers with OnPartnerGiven there.
  void GiveUpPartner(const PartnerRequest& request);
  /// To be joined with the lone leg `driver` of the call `call`, which will bridge; answers with OnPartnerReport there.
  /// False when this leg is not alone.
  bool TakeDriver(const std::string& driver, const std::string& call);
  /// A lone leg's next call. Begins when the task that asked for it is over.
  void GoTo(Move move) { next_ = std::move(move); }
  /// A lone leg's way through the dialplan, the same.
  void SendTo(Destination destination) { redirection_ = Redirection{std::move(destination), std::nullopt}; }
  /// "" when it is alone.
  std::string Partner() const { return called_ ? called_->uuid : driver_; }

  /// A sink for the dialog of the leg `uuid`: brings events onto the leg's thread.
  static SipDialog::Sink EventSink(const std::string& uuid, const std::shared_ptr<CallingLeg>& leg);

 private:
  bool ReadOffer();
  bool ChooseStream();
  bool FindRoute(const Destination& destination, Route& route);
  void RunFrom(Destination destination);
  bool RunActions(const Route& route);
  void RunAction(const DialplanAction& action);
  /// Until the leg is hung up, told to go elsewhere, or done() holds, which is what it returns.
  bool ServeUntilDone(std::chrono::steady_clock::time_point deadline, const std::function<bool()>& done);

  bool Set(const std::string& data, const char* application = "set");
  void Export(const std::string& data);
  void Log(const std::string& data);
  void HangUp(const std::string& data);
  void Park();
  void Sleep(const std::string& data);
  void Transfer(const std::string& data);
  void Bridge(const std::string& data);

  bool PrepareOwnOffer();
  void NarrowOwnOffer(const CalledLegReport& answer);
  bool OfferToCaller();
  bool AwaitCallersAnswer();
  std::string TakeCallersAnswer(const std::string& sdp);

  bool EnsureMedia();
  void OfferNotTaken();
  enum class Attempt { kAnswered, kFailed, kOver };
  Attempt Call(const BridgeTarget& target, std::chrono::seconds timeout);
  bool StartCalledLeg(const BridgeTarget& target, std::chrono::seconds timeout);
  void PassVariablesOn(switch_channel_t* called);
  switch_core_session_t* MakeCalledSession(const BridgeTarget& target);
  CalledLegRequest MakeCalledRequest(const BridgeTarget& target, const std::string& uuid, std::chrono::seconds timeout);
  std::optional<std::chrono::seconds> RingTime(const VariableList& variables, const char* name) const;
  std::chrono::seconds LegTimeout(const BridgeTarget& target) const;
  std::optional<std::chrono::steady_clock::time_point> OriginateDeadline(const BridgePlan& plan) const;
  Attempt AwaitAnswer(std::chrono::seconds timeout);
  void BridgeFailed(const BridgedLeg& failed);
  bool TakeOver(const CalledLegReport& answer);
  bool DescribeToCaller();
  bool AnswerCaller();
  void PassEarlyMediaOn(const CalledLegReport& report);
  void HearEarlyMedia(const CalledLegReport& report);
  void Join();
  bool JoinMedia();
  bool CalledLegIsUp() const;
  void AfterBridge();
  void EndWithCalledLeg(const BridgedLeg& called);
  void ForgetCalledLeg(switch_call_cause_t cause);
  void HandCalledLegOver(const Destination& destination);
  void LeaveBridge();

  void StartRenegotiation(LocalDescription description);
  bool Turn(RTPDirection direction);
  bool TellPartner(Renegotiation::Task task);
  void Wire();
  bool Joined() const;

  // Transfers.
  void OnRefer(const ReferRequest& refer);
  int ObstacleTo(const ReferRequest& refer);
  void StartBlindTransfer(const ReferRequest& refer);
  void StartAttendedTransfer(const ReferRequest& refer);
  void SendPartnerOn(Move move);
  void PartFromCalled(Parting parting);
  void ServeCall();
  void Talk();
  void GoOn();
  void RunMove();
  void CallOn();
  bool JoinLeg(const std::string& uuid);
  bool JoinPartner();
  void MoveFailed();
  void MoveSucceeded();
  void TakeThePlace();
  bool AskForPartner();
  static void GiveBack(const GivenPartner& given, int status);
  static void RequestPartner(const std::string& owner, const PartnerRequest& request);
  void EndAsPartner(switch_call_cause_t cause);

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
  std::unique_ptr<LegMedia> media_;
  SessionDescription offer_;
  size_t stream_ = 0;               // which stream of the offer we take
  std::vector<CodecMatch> common_;  // its codecs that we can take, in its order
  AgreedMedia agreed_;
  std::optional<BridgedLeg> called_;
  bool we_offer_ = false;  // the INVITE had no description
  LocalDescription own_offer_;
  std::optional<std::string> callers_answer_;  // of its ACK
  std::string told_;                           // the description that the caller has; "" while it has none
  bool answered_ = false;
  bool finished_ = false;
  std::optional<Redirection> redirection_;  // where to go when what runs now has ended
  bool last_action_ = false;                // nothing comes behind the action that runs
  int transfers_ = 0;
  std::optional<Renegotiation> renegotiation_;  // from the answer on
  int relayed_status_ = 0;                      // last provisional response sent
  std::chrono::steady_clock::time_point answered_at_;
  switch_call_cause_t fail_cause_ = SWITCH_CAUSE_NONE;
  int fail_status_ = 0;
  std::string fail_warning_;
  std::string ended_by_ = kTheSwitch;
  std::string driver_;                       // the leg that bridges with this one; "" when this one does, or is alone
  std::function<void(Parting)> when_alone_;  // once driver_ has undone the bridge
  std::string parting_;                      // the partner that wants to leave as soon as settled_
  bool released_ = false;                    // by driver_
  bool settled_ = false;                     // nothing to do but talk
  std::optional<Move> next_;                 // what to do when settled_ ends
  std::optional<Move> move_;                 // under way
  bool move_failed_ = false;                 // for fail_cause_ and fail_status_
  std::optional<GivenPartner> given_;        // the answer to AskForPartner
};

}  // namespace kvx_switch
