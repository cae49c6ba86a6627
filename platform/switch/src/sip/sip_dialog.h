#pragma once

#include <switch_types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sip/remote_target.h"
#include "sip/session_timer.h"
#include "sip/sip_refer.h"

struct nua_handle_s;
struct sip_s;
struct su_timer_s;
struct msg_s;

/// One call as SIP sees it (RFC 3261, 12), between the leg that it belongs to and the stack on the SIP thread.
namespace kvx_switch {

class SipAgent;
struct SavedRequest;

/// What the far end did.
struct DialogEvent {
  enum class Kind {
    kProgress,          ///< a provisional response to our INVITE: status, perhaps a description
    kAnswered,          ///< a 2xx to our INVITE, already acknowledged: description
    kRefused,           ///< a final response from 300 on to our INVITE: status, cause
    kUnreachable,       ///< our INVITE reached nobody: cause, and in words in `phrase`
    kCancelled,         ///< the far end took its INVITE back: cause
    kHungUp,            ///< the far end sent BYE: cause
    kReinvite,          ///< a further INVITE that changes something: description, "" when it wants our offer; wants
                        ///< AnswerReinvite or RefuseReinvite
    kAcknowledged,      ///< the ACK to a 2xx of ours that had the offer: description
    kReinviteAnswered,  ///< a 2xx to our further INVITE: description
    kReinviteRefused,   ///< any other final response to it: status
    kRefer,             ///< the far end asks for a transfer, and was told 202: refer; wants NotifyReferrer
    kLost,              ///< the stack gave the dialog up, for one because nothing came back: cause
  };
  Kind kind;
  int status = 0;
  std::string phrase;
  std::string sdp;
  switch_call_cause_t cause = SWITCH_CAUSE_NONE;
  std::string fork = {};  ///< of a response to our INVITE: which of several phones that it reached (the To tag)
  std::shared_ptr<const ReferRequest> refer = nullptr;
};

/// An INVITE to send.
struct OutboundInvite {
  std::string target;  ///< a SIP URI
  std::string from_name;
  std::string from_user;
  std::string sdp;
  int max_forwards = 70;
  std::string referred_by;  ///< header value; "": none
};

/// The methods without "OnSipThread" in their names may be called from any thread: they hand over what they are told
/// and return at once. Events go to the sink, on the SIP thread, until the dialog has ended or End was called; the sink
/// must not block.
class SipDialog : public std::enable_shared_from_this<SipDialog> {
 public:
  using Sink = std::function<void(const DialogEvent& event)>;

  /// The dialog of the leg `uuid`.
  SipDialog(std::shared_ptr<SipAgent> agent, std::string uuid, Sink sink);

  void Invite(OutboundInvite invite);
  /// 180 or 183; with a description for early media.
  void Ring(int status, std::string sdp = "");
  void Answer(std::string sdp);
  /// A further INVITE. One at a time; it waits for one of the far end's to be over, and is repeated a few times when
  /// both had the idea at once (RFC 3261, 14.1).
  void Reinvite(std::string sdp);
  /// `waiting_offer`: what our own INVITE, which waits for this one to be over, is to say now; "" when it may say what
  /// it was to say, or there is none.
  void AnswerReinvite(std::string sdp, std::string waiting_offer = "");
  void RefuseReinvite(int status, std::string warning);
  /// Tells how the transfer goes that the REFER `id` asked for; from 200 on it is over (RFC 3515, 2.4.5).
  void NotifyReferrer(unsigned id, int status);
  /// Refuses an INVITE with `status`, takes our own back, or sends BYE, whichever the dialog is ripe for; nothing when
  /// it has ended. `warning` is the text of a Warning header (RFC 3261, 20.43), empty for none.
  void End(switch_call_cause_t cause, int status, std::string warning);

  const std::shared_ptr<SipAgent>& agent() const { return agent_; }

  /// Takes over an incoming INVITE's handle. False when it was refused.
  bool AdoptOnSipThread(nua_handle_s* handle, const sip_s* sip, bool over_tcp);
  void SetLegOnSipThread(const std::string& uuid, Sink sink) {
    uuid_ = uuid;
    sink_ = std::move(sink);
  }
  const std::string& LegOnSipThread() const { return uuid_; }
  /// `call_state` is the stack's own, of its state events.
  void OnEventOnSipThread(int event, int status, const char* phrase, const sip_s* sip, int call_state);
  /// Lets go of the stack's handle; the agent forgets the dialog.
  void CloseOnSipThread();

 private:
  enum class Exchange { kNone, kTheirs, kOurs };
  enum class Phase { kNew, kCalling, kIncoming, kUp, kEnding, kOver };

  void InviteOnSipThread(const OutboundInvite& invite);
  void RingOnSipThread(int status, const std::string& sdp);
  void AnswerOnSipThread(const std::string& sdp);
  void EndOnSipThread(switch_call_cause_t cause, int status, const std::string& warning);
  void OnInviteResponseOnSipThread(int status, const char* phrase, const sip_s* sip);
  void OnReinviteOnSipThread(const sip_s* sip);
  void OnReinviteResponseOnSipThread(int status, const char* phrase, const sip_s* sip);
  void SendReinviteOnSipThread();
  void TakeNextOffer();
  void OnReferOnSipThread(const sip_s* sip);
  void AcceptOnSipThread(const std::string& sdp, const msg_s* update);
  void RefuseTheirsOnSipThread(int status, const std::string& warning);
  void InviteAgainOnSipThread();
  void SendInviteOnSipThread();
  void OnUpdateOnSipThread(const sip_s* sip);
  void OnUpdateResponseOnSipThread(int status, const sip_s* sip);
  void StartSessionTimerOnSipThread();
  void StopSessionTimerOnSipThread();
  void SetSessionTimerOnSipThread(std::chrono::milliseconds wait);
  void OnSessionTimerOnSipThread();
  void RefreshOnSipThread();
  void EndUnrefreshedOnSipThread();
  void SendByeOnSipThread(const std::string& reason);
  void SendByePastTheQueueOnSipThread();
  void OnOursAnsweredOnSipThread();
  void EndTheirExchangeOnSipThread();
  void DropTheirExchangeOnSipThread();
  void RepeatReinviteLaterOnSipThread();
  void OnStateOnSipThread(int status, const char* phrase, int call_state);
  void FinishOnSipThread(DialogEvent event);
  void ForgetLaterOnSipThread();
  void PostSelf(std::function<void(SipDialog&)> task);

  const std::shared_ptr<SipAgent> agent_;

  // Used on the SIP thread only.
  std::string uuid_;
  Sink sink_;
  nua_handle_s* handle_ = nullptr;
  Phase phase_ = Phase::kNew;
  std::string end_reason_;  // the Reason header of our own end
  std::string local_sdp_;
  std::string remote_sdp_;
  bool we_called_ = false;
  Exchange exchange_ = Exchange::kNone;
  std::string their_offer_;                // while kTheirs
  std::optional<std::string> our_offer_;   // to be sent, or sent and not answered
  std::optional<std::string> next_offer_;  // behind a refresh that has been sent
  int glares_ = 0;
  su_timer_s* glare_timer_ = nullptr;
  su_timer_s* cancel_timer_ = nullptr;  // runs from our CANCEL on
  su_timer_s* bye_timer_ = nullptr;     // runs while a BYE of ours waits behind those unanswered_
  std::string bye_reason_;              // what it says
  int unanswered_ = 0;                  // NOTIFYs and UPDATEs of ours
  RemoteTarget target_;
  OutboundInvite invite_;                       // of a call of ours
  std::shared_ptr<SavedRequest> their_update_;  // while kTheirs, when it is no INVITE
  SessionTimer timer_;
  su_timer_s* session_timer_ = nullptr;
  std::chrono::steady_clock::time_point refreshed_at_;
  bool far_end_updates_ = false;  // it allows UPDATE
  bool we_offered_ = false;       // in a 2xx to their INVITE; the ACK has the answer
  bool updating_ = false;         // an UPDATE of ours waits for its answer
  bool refreshing_ = false;       // our_offer_ changes nothing; the leg knows nothing of it
};

}  // namespace kvx_switch
