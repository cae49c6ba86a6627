#include "sip/sip_dialog.h"

#include <strings.h>
#include <switch.h>

#include <utility>

#include "sip/sip_agent.h"
#include "sip/sip_cause.h"
#include "sip/sip_dialog_timer.h"
#include "sip/sip_home.h"
#include "sip/sip_text.h"
#include "sip/sofia.h"
#include "sip/target_needs.h"
#include "sip/unreachable.h"

namespace kvx_switch {

namespace {

/// The cause that the message's Reason headers name, a Q.850 one before others, else `otherwise`.
switch_call_cause_t CauseOf(const sip_t* sip, switch_call_cause_t otherwise) {
  switch_call_cause_t found = SWITCH_CAUSE_NONE;
  for (const sip_reason_t* reason = sip ? sip->sip_reason : nullptr; reason; reason = reason->re_next) {
    if (!reason->re_protocol || !reason->re_cause) continue;
    const switch_call_cause_t cause = CauseOfReason(reason->re_protocol, reason->re_cause);
    if (cause != SWITCH_CAUSE_NONE && strcasecmp(reason->re_protocol, "Q.850") == 0) return cause;
    if (found == SWITCH_CAUSE_NONE) found = cause;
  }
  return found == SWITCH_CAUSE_NONE ? otherwise : found;
}

/// Of a BYE: there SIP's 200 only says that the far end's user wanted it.
switch_call_cause_t CauseOfBye(const sip_t* sip) {
  const switch_call_cause_t cause = CauseOf(sip, SWITCH_CAUSE_NORMAL_CLEARING);
  return cause == SWITCH_CAUSE_LOSE_RACE ? SWITCH_CAUSE_NORMAL_CLEARING : cause;
}

/// The requests that may come with another Contact, and the answers to ours (RFC 3261, 12.2).
bool MovesFarEnd(int event, int status) {
  const bool answer = event == nua_r_invite || event == nua_r_update;
  return event == nua_i_invite || event == nua_i_update || (answer && status >= 200 && status < 300);
}

// Of a switch that is full or that too many calls come to, in seconds: less would be a storm of second tries.
constexpr const char* kRetryAfter = "5";

// Of the Contact of a call over TCP, so that the far end's further requests come that way, too.
constexpr const char* kTcpContact = "transport=tcp";

}  // namespace

void SipDialog::PostSelf(std::function<void(SipDialog&)> task) {
  agent_->Post([self = shared_from_this(), task = std::move(task)] { task(*self); });
}

void SipDialog::Invite(OutboundInvite invite) {
  PostSelf([invite = std::move(invite)](SipDialog& self) { self.InviteOnSipThread(invite); });
}

void SipDialog::Ring(int status, std::string sdp) {
  PostSelf([status, sdp = std::move(sdp)](SipDialog& self) { self.RingOnSipThread(status, sdp); });
}

void SipDialog::Answer(std::string sdp) {
  PostSelf([sdp = std::move(sdp)](SipDialog& self) { self.AnswerOnSipThread(sdp); });
}

void SipDialog::End(switch_call_cause_t cause, int status, std::string warning) {
  PostSelf(
      [cause, status, warning = std::move(warning)](SipDialog& self) { self.EndOnSipThread(cause, status, warning); });
}

SipDialog::SipDialog(std::shared_ptr<SipAgent> agent, std::string uuid, Sink sink)
    : agent_(std::move(agent)),
      uuid_(std::move(uuid)),
      sink_(std::move(sink)),
      timer_(agent_->profile().session_timer) {}

bool SipDialog::AdoptOnSipThread(nua_handle_s* handle, const sip_s* sip, bool over_tcp) {
  if (!timer_.OnRequest(TimerHeaders(sip))) {
    nua_respond(handle, SIP_422_SESSION_TIMER_TOO_SMALL, SIPTAG_MIN_SE_STR(timer_.LeastValue().c_str()), TAG_END());
    return false;
  }
  far_end_updates_ = AllowsUpdate(sip);
  target_.OnTheirInvite(sip);
  handle_ = handle;
  phase_ = Phase::kIncoming;
  remote_sdp_ = Body(sip);
  nua_handle_bind(handle_, this);
  if (over_tcp) nua_set_hparams(handle_, NUTAG_M_PARAMS(kTcpContact), TAG_END());
  agent_->AddOnSipThread(shared_from_this());
  return true;
}

void SipDialog::InviteOnSipThread(const OutboundInvite& invite) {
  if (phase_ != Phase::kNew) return;
  invite_ = invite;
  we_called_ = true;
  local_sdp_ = invite.sdp;
  SendInviteOnSipThread();
}

void SipDialog::SendInviteOnSipThread() {
  const OutboundInvite& invite = invite_;
  Home home;
  url_t* target = url_make(home, invite.target.c_str());
  const std::string from_uri = (invite.from_user.empty() ? "" : invite.from_user + "@") + agent_->address();
  const std::string from_text =
      (invite.from_name.empty() ? "" : Quoted(invite.from_name) + " ") + "<sip:" + from_uri + ">";
  sip_from_t* from = sip_from_make(home, from_text.c_str());
  if (!from) from = sip_from_make(home, ("<sip:" + agent_->address() + ">").c_str());
  sip_to_t* to = target ? sip_to_create(home, reinterpret_cast<const url_string_t*>(target)) : nullptr;
  const bool over_tcp = NeedsOfTarget(invite.target).tcp;
  if (to && from) {
    handle_ = nua_handle(agent_->StackOnSipThread(), this, SIPTAG_TO(to), SIPTAG_FROM(from),
                         TAG_IF(over_tcp, NUTAG_M_PARAMS(kTcpContact)), TAG_END());
  }
  if (!handle_) {
    FinishOnSipThread({DialogEvent::Kind::kLost, 0, "the INVITE could not be made", "", SWITCH_CAUSE_INVALID_URL});
    return;
  }
  phase_ = Phase::kCalling;
  agent_->AddOnSipThread(shared_from_this());
  const std::string expires = timer_.enabled() ? timer_.RequestExpires() : "";
  const std::string least = timer_.enabled() ? timer_.RequestLeast() : "";
  nua_invite(handle_, NUTAG_URL(target), SIPTAG_MAX_FORWARDS_STR(std::to_string(invite.max_forwards).c_str()),
             TAG_IF(!expires.empty(), SIPTAG_SUPPORTED_STR(kSupported)),
             TAG_IF(!expires.empty(), SIPTAG_SESSION_EXPIRES_STR(expires.c_str())),
             TAG_IF(!least.empty(), SIPTAG_MIN_SE_STR(least.c_str())),
             TAG_IF(!invite.referred_by.empty(), SIPTAG_REFERRED_BY_STR(invite.referred_by.c_str())),
             SIPTAG_CONTENT_TYPE_STR(kSdpType), SIPTAG_PAYLOAD_STR(invite.sdp.c_str()), TAG_END());
}

void SipDialog::RingOnSipThread(int status, const std::string& sdp) {
  if (phase_ != Phase::kIncoming) return;
  nua_respond(handle_, status, PhraseOfStatus(status), TAG_IF(!sdp.empty(), SIPTAG_CONTENT_TYPE_STR(kSdpType)),
              TAG_IF(!sdp.empty(), SIPTAG_PAYLOAD_STR(sdp.c_str())), TAG_END());
}

void SipDialog::AnswerOnSipThread(const std::string& sdp) {
  if (phase_ != Phase::kIncoming) return;
  phase_ = Phase::kUp;
  local_sdp_ = sdp;
  we_offered_ = remote_sdp_.empty();
  AcceptOnSipThread(sdp, nullptr);
}

void SipDialog::EndOnSipThread(switch_call_cause_t cause, int status, const std::string& warning) {
  const std::string reason = ReasonHeader(cause);
  if (end_reason_.empty()) end_reason_ = reason;
  const std::string warning_value = "399 " + agent_->address() + " " + Quoted(warning);
  const bool later = status == 503 && cause == SWITCH_CAUSE_SWITCH_CONGESTION;
  sink_ = nullptr;
  switch (std::exchange(phase_, Phase::kEnding)) {
    case Phase::kIncoming:
      nua_respond(handle_, status, PhraseOfStatus(status), SIPTAG_REASON_STR(reason.c_str()),
                  TAG_IF(later, SIPTAG_RETRY_AFTER_STR(kRetryAfter)),
                  TAG_IF(!warning.empty(), SIPTAG_WARNING_STR(warning_value.c_str())), TAG_END());
      break;
    case Phase::kCalling:
      nua_cancel(handle_, SIPTAG_REASON_STR(reason.c_str()), TAG_END());
      ForgetLaterOnSipThread();
      break;
    case Phase::kUp:
      DropTheirExchangeOnSipThread();
      SendByeOnSipThread(reason);
      break;
    case Phase::kEnding:
      break;
    case Phase::kNew:
    case Phase::kOver:
      phase_ = Phase::kOver;
      break;
  }
}

/// A callee whose final response to the cancelled INVITE stays out is not waited for without end (RFC 3261, 9.1), as
/// the stack would.
void SipDialog::ForgetLaterOnSipThread() {
  cancel_timer_ = su_timer_create(su_root_task(agent_->RootOnSipThread()), agent_->profile().timers.t1x64);
  const auto expired = [](su_root_magic_t*, su_timer_t* timer, su_timer_arg_t* argument) {
    auto* self = static_cast<SipDialog*>(argument);
    self->cancel_timer_ = nullptr;
    su_timer_destroy(timer);
    self->agent_->ForgetOnSipThread(self);
  };
  if (cancel_timer_) su_timer_set(cancel_timer_, expired, this);
}

void SipDialog::FinishOnSipThread(DialogEvent event) {
  if (phase_ != Phase::kOver) phase_ = Phase::kEnding;
  if (Sink sink = std::exchange(sink_, nullptr)) sink(event);
}

void SipDialog::CloseOnSipThread() {
  phase_ = Phase::kOver;
  sink_ = nullptr;
  for (su_timer_s** timer : {&glare_timer_, &cancel_timer_, &bye_timer_}) {
    if (*timer) su_timer_destroy(std::exchange(*timer, nullptr));
  }
  StopSessionTimerOnSipThread();
  their_update_.reset();
  nua_handle_s* handle = std::exchange(handle_, nullptr);
  if (!handle) return;
  nua_handle_bind(handle, nullptr);
  nua_handle_destroy(handle);
}

void SipDialog::OnInviteResponseOnSipThread(int status, const char* phrase, const sip_s* sip) {
  if (phase_ == Phase::kEnding && status >= 200 && status < 300) {
    // Our CANCEL and the far end's answer crossed: the call stands and has to be taken down.
    SendByeOnSipThread(end_reason_);
    return;
  }
  if (phase_ == Phase::kUp && exchange_ == Exchange::kOurs) return OnReinviteResponseOnSipThread(status, phrase, sip);
  if (phase_ == Phase::kCalling && status < 200) {
    if (status > 100 && sink_)
      sink_({DialogEvent::Kind::kProgress, status, phrase, Body(sip), SWITCH_CAUSE_NONE, ToTag(sip)});
  } else if (phase_ == Phase::kCalling && status < 300) {
    phase_ = Phase::kUp;
    remote_sdp_ = Body(sip);
    far_end_updates_ = AllowsUpdate(sip);
    target_.OnOurInviteAnswered(sip);
    timer_.OnAnswered(TimerHeaders(sip));
    StartSessionTimerOnSipThread();
    if (sink_) sink_({DialogEvent::Kind::kAnswered, status, phrase, remote_sdp_, SWITCH_CAUSE_NONE, ToTag(sip)});
  } else if (phase_ == Phase::kCalling && status == 422 && timer_.OnTooSmall(TimerHeaders(sip))) {
    InviteAgainOnSipThread();
  } else if (phase_ == Phase::kCalling && !CameFromFarEnd(agent_->StackOnSipThread())) {
    const Unreachable unreachable = DescribeUnreachable(status, phrase, agent_->profile().timers.t1x64);
    FinishOnSipThread({DialogEvent::Kind::kUnreachable, 0, unreachable.what, "", unreachable.cause});
  } else if (phase_ == Phase::kCalling) {
    FinishOnSipThread({DialogEvent::Kind::kRefused, status, phrase, "", CauseOf(sip, CauseOfStatus(status))});
  }
  // The stack would wait for credentials, which we never have.
  if (status == 401 || status == 407) agent_->ForgetOnSipThread(this);
}

/// The stack gives a call up by itself when an ACK or the answer to a request stays out: it sends BYE and, when that
/// has come to an end too, forgets the call.
void SipDialog::OnStateOnSipThread(int status, const char* phrase, int call_state) {
  const bool terminated = call_state == nua_callstate_terminated;
  if (terminated || (call_state == nua_callstate_terminating && phase_ == Phase::kUp)) {
    FinishOnSipThread({DialogEvent::Kind::kLost, status, phrase, "", SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE});
  }
  if (terminated) agent_->ForgetOnSipThread(this);
}

void SipDialog::OnEventOnSipThread(int event, int status, const char* phrase, const sip_s* sip, int call_state) {
  if (MovesFarEnd(event, status)) target_.OnRefresh(sip);
  switch (event) {
    case nua_r_invite:
      OnInviteResponseOnSipThread(status, phrase, sip);
      break;
    case nua_i_invite:
      OnReinviteOnSipThread(sip);
      break;
    case nua_i_refer:
      OnReferOnSipThread(sip);
      break;
    case nua_i_ack:
      if (!std::exchange(we_offered_, false)) break;
      remote_sdp_ = Body(sip);
      if (sink_) sink_({DialogEvent::Kind::kAcknowledged, 0, "", remote_sdp_, SWITCH_CAUSE_NONE});
      break;
    case nua_i_update:
      OnUpdateOnSipThread(sip);
      break;
    case nua_r_notify:
      if (status >= 200) OnOursAnsweredOnSipThread();
      break;
    case nua_r_update:
      if (status >= 200) OnOursAnsweredOnSipThread();
      OnUpdateResponseOnSipThread(status, sip);
      break;
    case nua_i_cancel:
      FinishOnSipThread({DialogEvent::Kind::kCancelled, 487, phrase, "", CauseOf(sip, SWITCH_CAUSE_ORIGINATOR_CANCEL)});
      break;
    case nua_i_bye:
      DropTheirExchangeOnSipThread();
      FinishOnSipThread({DialogEvent::Kind::kHungUp, 200, phrase, "", CauseOfBye(sip)});
      break;
    case nua_r_method:  // the BYE that went past the stack's queue
      if (status >= 200) agent_->ForgetOnSipThread(this);
      break;
    case nua_i_state:
      OnStateOnSipThread(status, phrase, call_state);
      break;
    default:
      break;
  }
}

}  // namespace kvx_switch
