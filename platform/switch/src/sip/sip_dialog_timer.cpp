// Session timers (RFC 4028) of a dialog, and UPDATE (RFC 3311).
#include <strings.h>
#include <switch.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "sip/sip_agent.h"
#include "sip/sip_cause.h"
#include "sip/sip_dialog.h"
#include "sip/sip_dialog_timer.h"
#include "sip/sip_text.h"
#include "sip/sofia.h"

namespace kvx_switch {

namespace {

constexpr const char* kTimer = "timer";

// The stack has a timer of its own, which knows neither the cause that we give nor our description. Ours comes first.
constexpr std::chrono::milliseconds kBeforeTheStack{300};

bool Lists(const msg_param_t* items, const char* name) {
  for (; items && *items; ++items) {
    if (strcasecmp(*items, name) == 0) return true;
  }
  return false;
}

uint32_t Seconds(unsigned long delta) {
  // What a session may last at all; a day is far beyond what anybody asks for.
  return static_cast<uint32_t>(std::min(delta, 86400ul));
}

}  // namespace

SessionTimerHeaders TimerHeaders(const sip_s* sip) {
  SessionTimerHeaders headers;
  if (!sip) return headers;
  if (const sip_session_expires_t* expires = sip->sip_session_expires) {
    headers.expires = Seconds(expires->x_delta);
    const std::string refresher = expires->x_refresher ? expires->x_refresher : "";
    if (strcasecmp(refresher.c_str(), "uac") == 0) headers.refresher = SessionTimerHeaders::Refresher::kUac;
    if (strcasecmp(refresher.c_str(), "uas") == 0) headers.refresher = SessionTimerHeaders::Refresher::kUas;
  }
  if (sip->sip_min_se) headers.least = Seconds(sip->sip_min_se->min_delta);
  headers.supported = (sip->sip_supported && Lists(sip->sip_supported->k_items, kTimer)) ||
                      (sip->sip_require && Lists(sip->sip_require->k_items, kTimer));
  return headers;
}

bool AllowsUpdate(const sip_s* sip) {
  return sip && sip->sip_allow && Lists(sip->sip_allow->k_items, "UPDATE");
}

/// The 2xx to their INVITE or, when it is given, UPDATE; both set the session up or refresh it.
void SipDialog::AcceptOnSipThread(const std::string& sdp, const msg_s* update) {
  const std::string expires = timer_.enabled() ? timer_.AnswerExpires() : "";
  // The stack would start a timer of its own, and end the call by it before ours is over, did it know of one here. What
  // requires "timer" in a request (RFC 4028, 9) it has let pass by then; the next such request is to pass too.
  if (timer_.enabled()) nua_set_hparams(handle_, SIPTAG_SUPPORTED_STR(kSupportedWithoutTimer), TAG_END());
  nua_respond(handle_, SIP_200_OK, TAG_IF(update, NUTAG_WITH(update)),
              TAG_IF(!expires.empty(), SIPTAG_SESSION_EXPIRES_STR(expires.c_str())),
              TAG_IF(!expires.empty() && timer_.AnswerRequires(), SIPTAG_REQUIRE_STR(kTimer)),
              TAG_IF(!sdp.empty(), SIPTAG_CONTENT_TYPE_STR(kSdpType)),
              TAG_IF(!sdp.empty(), SIPTAG_PAYLOAD_STR(sdp.c_str())), TAG_END());
  if (timer_.enabled()) nua_set_hparams(handle_, SIPTAG_SUPPORTED_STR(kSupported), TAG_END());
  StartSessionTimerOnSipThread();
}

void SipDialog::RefuseTheirsOnSipThread(int status, const std::string& warning) {
  const std::string value = "399 " + agent_->address() + " " + Quoted(warning);
  const msg_s* update = their_update_ ? their_update_->Message() : nullptr;
  nua_respond(handle_, status, PhraseOfStatus(status), TAG_IF(update, NUTAG_WITH(update)),
              TAG_IF(!warning.empty(), SIPTAG_WARNING_STR(value.c_str())), TAG_END());
}

/// With a longer session, since the far end asked for it; a new dialog.
void SipDialog::InviteAgainOnSipThread() {
  nua_handle_s* handle = std::exchange(handle_, nullptr);
  nua_handle_bind(handle, nullptr);
  nua_handle_destroy(handle);
  SendInviteOnSipThread();
}

void SipDialog::StartSessionTimerOnSipThread() {
  StopSessionTimerOnSipThread();
  if (timer_.refresher() == SessionTimer::Refresher::kNobody || phase_ != Phase::kUp) return;
  refreshed_at_ = std::chrono::steady_clock::now();
  SetSessionTimerOnSipThread(timer_.Patience() - kBeforeTheStack);
}

void SipDialog::StopSessionTimerOnSipThread() {
  if (su_timer_t* timer = std::exchange(session_timer_, nullptr)) su_timer_destroy(timer);
}

void SipDialog::SetSessionTimerOnSipThread(std::chrono::milliseconds wait) {
  session_timer_ = su_timer_create(su_root_task(agent_->RootOnSipThread()), static_cast<su_duration_t>(wait.count()));
  const auto expired = [](su_root_magic_t*, su_timer_t* timer, su_timer_arg_t* argument) {
    auto* self = static_cast<SipDialog*>(argument);
    self->session_timer_ = nullptr;
    su_timer_destroy(timer);
    self->OnSessionTimerOnSipThread();
  };
  if (session_timer_ && su_timer_set(session_timer_, expired, this) == 0) return;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "No session timer for the call of leg %s\n", uuid_.c_str());
}

void SipDialog::OnSessionTimerOnSipThread() {
  if (phase_ != Phase::kUp) return;
  const auto left = timer_.EndAfter() - kBeforeTheStack - (std::chrono::steady_clock::now() - refreshed_at_);
  const auto milliseconds_left = std::chrono::duration_cast<std::chrono::milliseconds>(left);
  if (timer_.refresher() == SessionTimer::Refresher::kThem || milliseconds_left.count() <= 0) {
    return EndUnrefreshedOnSipThread();
  }
  // One that is refused, or has to wait for another exchange, is followed by others until the end.
  const auto next = std::max(milliseconds_left / 2, std::chrono::milliseconds(1000));
  SetSessionTimerOnSipThread(std::min(milliseconds_left, next));
  RefreshOnSipThread();
}

/// The far end has not refreshed the session, or not answered ours.
void SipDialog::EndUnrefreshedOnSipThread() {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "The session of leg %s was not refreshed in time\n",
                    uuid_.c_str());
  const std::string reason = ReasonHeader(SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE);
  DropTheirExchangeOnSipThread();
  FinishOnSipThread({DialogEvent::Kind::kLost, 408, "session timer", "", SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE});
  SendByeOnSipThread(reason);
}

/// Without a description where the far end knows UPDATE, else an INVITE with the one that it has.
void SipDialog::RefreshOnSipThread() {
  // Each of them refreshes too; an INVITE that met theirs has its own time (RFC 3261, 14.1).
  if (exchange_ != Exchange::kNone || updating_ || glare_timer_) return;
  if (!far_end_updates_) {
    refreshing_ = true;
    our_offer_ = local_sdp_;
    return SendReinviteOnSipThread();
  }
  updating_ = true;
  ++unanswered_;
  const std::string expires = timer_.RequestExpires();
  const std::string least = timer_.RequestLeast();
  nua_update(handle_, SIPTAG_SUPPORTED_STR(kSupported), SIPTAG_SESSION_EXPIRES_STR(expires.c_str()),
             TAG_IF(!least.empty(), SIPTAG_MIN_SE_STR(least.c_str())), TAG_END());
}

void SipDialog::OnUpdateResponseOnSipThread(int status, const sip_s* sip) {
  if (status < 200 || !std::exchange(updating_, false) || phase_ != Phase::kUp) return;
  if (status < 300) {
    timer_.OnAnswered(TimerHeaders(sip));
    StartSessionTimerOnSipThread();
  } else if (status == 422 && timer_.OnTooSmall(TimerHeaders(sip))) {
    RefreshOnSipThread();
  } else if (status == 408 || status == 481) {
    EndUnrefreshedOnSipThread();
  } else if (status == 405 || status == 501) {
    far_end_updates_ = false;
    RefreshOnSipThread();
  }
}

/// An UPDATE without a description refreshes; one with a description is an offer like that of a further INVITE.
void SipDialog::OnUpdateOnSipThread(const sip_s* sip) {
  nua_t* stack = agent_->StackOnSipThread();
  const std::string offer = Body(sip);
  const bool changes = !offer.empty() && offer != remote_sdp_;
  if (!sink_ || phase_ == Phase::kEnding || phase_ == Phase::kOver) {
    nua_respond(handle_, SIP_481_NO_TRANSACTION, NUTAG_WITH_THIS(stack), TAG_END());
  } else if (!timer_.OnRequest(TimerHeaders(sip))) {
    nua_respond(handle_, SIP_422_SESSION_TIMER_TOO_SMALL, SIPTAG_MIN_SE_STR(timer_.LeastValue().c_str()),
                NUTAG_WITH_THIS(stack), TAG_END());
  } else if (changes && (phase_ == Phase::kIncoming || exchange_ == Exchange::kTheirs)) {
    // RFC 3311, 5.2: an offer of theirs has no answer yet; below, one of ours.
    nua_respond(handle_, SIP_500_INTERNAL_SERVER_ERROR, SIPTAG_RETRY_AFTER_STR("5"), NUTAG_WITH_THIS(stack), TAG_END());
  } else if (changes && (phase_ == Phase::kCalling || exchange_ == Exchange::kOurs || we_offered_)) {
    nua_respond(handle_, SIP_491_REQUEST_PENDING, NUTAG_WITH_THIS(stack), TAG_END());
  } else if (changes) {
    exchange_ = Exchange::kTheirs;
    their_offer_ = offer;
    their_update_ = std::make_shared<SavedRequest>(stack);
    sink_({DialogEvent::Kind::kReinvite, 0, "", offer, SWITCH_CAUSE_NONE});
  } else {
    AcceptOnSipThread(offer.empty() ? "" : local_sdp_, nua_current_request(stack));
  }
}

}  // namespace kvx_switch
