// Further INVITEs inside a call, theirs and ours (RFC 3261, 14).
#include <switch.h>

#include <random>
#include <utility>

#include "sip/sip_agent.h"
#include "sip/sip_cause.h"
#include "sip/sip_dialog.h"
#include "sip/sip_dialog_timer.h"
#include "sip/sip_text.h"
#include "sip/sofia.h"

namespace kvx_switch {

namespace {

constexpr int kMostGlares = 5;

/// How long to wait after a 491, in milliseconds: whoever made the Call-ID waits longer, so that the two do not meet
/// again (RFC 3261, 14.1).
unsigned GlareWait(bool we_called) {
  static thread_local std::minstd_rand random{std::random_device{}()};
  std::uniform_int_distribution<unsigned> tens(we_called ? 210 : 0, we_called ? 400 : 200);
  return tens(random) * 10;
}

}  // namespace

void SipDialog::Reinvite(std::string sdp) {
  PostSelf([sdp = std::move(sdp)](SipDialog& self) {
    if (self.exchange_ == Exchange::kOurs && self.refreshing_) {
      self.next_offer_ = sdp;
      return;
    }
    self.our_offer_ = sdp;
    self.refreshing_ = false;
    self.glares_ = 0;
    if (!self.glare_timer_) self.SendReinviteOnSipThread();
  });
}

void SipDialog::AnswerReinvite(std::string sdp, std::string waiting_offer) {
  PostSelf([sdp = std::move(sdp), waiting_offer = std::move(waiting_offer)](SipDialog& self) {
    if (self.phase_ != Phase::kUp || self.exchange_ != Exchange::kTheirs) return;
    self.we_offered_ = self.their_offer_.empty();
    if (!self.we_offered_) self.remote_sdp_ = std::exchange(self.their_offer_, {});
    self.local_sdp_ = sdp;
    if (!waiting_offer.empty()) self.our_offer_ = waiting_offer;
    self.AcceptOnSipThread(sdp, self.their_update_ ? self.their_update_->Message() : nullptr);
    self.EndTheirExchangeOnSipThread();
  });
}

void SipDialog::RefuseReinvite(int status, std::string warning) {
  PostSelf([status, warning = std::move(warning)](SipDialog& self) {
    if (self.phase_ != Phase::kUp || self.exchange_ != Exchange::kTheirs) return;
    self.RefuseTheirsOnSipThread(status, warning);
    self.EndTheirExchangeOnSipThread();
  });
}

void SipDialog::EndTheirExchangeOnSipThread() {
  exchange_ = Exchange::kNone;
  their_update_.reset();
  if (our_offer_ && !glare_timer_) SendReinviteOnSipThread();
}

/// The call ends before their INVITE was answered (RFC 3261, 15.1.2).
void SipDialog::DropTheirExchangeOnSipThread() {
  if (exchange_ != Exchange::kTheirs) return;
  exchange_ = Exchange::kNone;
  RefuseTheirsOnSipThread(487, "");
  their_update_.reset();
}

void SipDialog::SendReinviteOnSipThread() {
  if (phase_ != Phase::kUp || exchange_ != Exchange::kNone || !our_offer_) return;
  exchange_ = Exchange::kOurs;
  // What the far end has been told may have changed while a refresh waited.
  if (refreshing_) our_offer_ = local_sdp_;
  const std::string expires = timer_.enabled() ? timer_.RequestExpires() : "";
  const std::string least = timer_.enabled() ? timer_.RequestLeast() : "";
  nua_invite(handle_, TAG_IF(!expires.empty(), SIPTAG_SUPPORTED_STR(kSupported)),
             TAG_IF(!expires.empty(), SIPTAG_SESSION_EXPIRES_STR(expires.c_str())),
             TAG_IF(!least.empty(), SIPTAG_MIN_SE_STR(least.c_str())), SIPTAG_CONTENT_TYPE_STR(kSdpType),
             SIPTAG_PAYLOAD_STR(our_offer_->c_str()), TAG_END());
}

/// One that changes nothing, as sent to refresh a session, is answered with what was agreed.
void SipDialog::OnReinviteOnSipThread(const sip_s* sip) {
  const std::string offer = Body(sip);
  if (phase_ != Phase::kUp || !sink_) {
    nua_respond(handle_, SIP_488_NOT_ACCEPTABLE, TAG_END());
  } else if (exchange_ == Exchange::kOurs) {
    nua_respond(handle_, SIP_491_REQUEST_PENDING, TAG_END());
  } else if (exchange_ == Exchange::kTheirs) {
    nua_respond(handle_, SIP_500_INTERNAL_SERVER_ERROR, SIPTAG_RETRY_AFTER_STR("5"), TAG_END());
  } else if (!timer_.OnRequest(TimerHeaders(sip))) {
    nua_respond(handle_, SIP_422_SESSION_TIMER_TOO_SMALL, SIPTAG_MIN_SE_STR(timer_.LeastValue().c_str()), TAG_END());
  } else if (!offer.empty() && offer == remote_sdp_) {
    AcceptOnSipThread(local_sdp_, nullptr);
  } else {
    exchange_ = Exchange::kTheirs;
    their_offer_ = offer;
    sink_({DialogEvent::Kind::kReinvite, 0, "", offer, SWITCH_CAUSE_NONE});
  }
}

void SipDialog::OnReinviteResponseOnSipThread(int status, const char* phrase, const sip_s* sip) {
  if (status < 200) return;
  exchange_ = Exchange::kNone;
  if (status >= 300 && refreshing_ && next_offer_) {
    TakeNextOffer();
    if (status != 491) return SendReinviteOnSipThread();
  }
  if (status == 491 && ++glares_ <= kMostGlares) return RepeatReinviteLaterOnSipThread();
  if (status == 422 && timer_.OnTooSmall(TimerHeaders(sip))) return SendReinviteOnSipThread();
  if (status < 300) {
    timer_.OnAnswered(TimerHeaders(sip));
    StartSessionTimerOnSipThread();
  }
  const std::string offered = std::exchange(our_offer_, std::nullopt).value_or("");
  if (refreshing_) {
    TakeNextOffer();
    return SendReinviteOnSipThread();
  }
  DialogEvent event{DialogEvent::Kind::kReinviteRefused, status, phrase, "", SWITCH_CAUSE_NONE};
  if (status < 300) {
    local_sdp_ = offered;
    remote_sdp_ = Body(sip);
    event.kind = DialogEvent::Kind::kReinviteAnswered;
    event.sdp = remote_sdp_;
  }
  if (sink_) sink_(event);
}

/// After a refresh: the offer that came while it was out, if one did.
void SipDialog::TakeNextOffer() {
  our_offer_ = std::exchange(next_offer_, std::nullopt);
  refreshing_ = false;
  glares_ = 0;
}

void SipDialog::RepeatReinviteLaterOnSipThread() {
  glare_timer_ = su_timer_create(su_root_task(agent_->RootOnSipThread()), GlareWait(we_called_));
  const auto expired = [](su_root_magic_t*, su_timer_t* timer, su_timer_arg_t* argument) {
    auto* self = static_cast<SipDialog*>(argument);
    self->glare_timer_ = nullptr;
    su_timer_destroy(timer);
    self->SendReinviteOnSipThread();
  };
  if (!glare_timer_ || su_timer_set(glare_timer_, expired, this) != 0) {
    if (su_timer_t* timer = std::exchange(glare_timer_, nullptr)) su_timer_destroy(timer);
    SendReinviteOnSipThread();
  }
}

}  // namespace kvx_switch
