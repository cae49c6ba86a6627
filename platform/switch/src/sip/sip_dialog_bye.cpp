// The end of a call that is up, also where the far end has stopped answering.
#include <switch.h>

#include <utility>

#include "sip/sip_agent.h"
#include "sip/sip_dialog.h"
#include "sip/sip_home.h"
#include "sip/sofia.h"

namespace kvx_switch {

namespace {

// For the answer to a NOTIFY or UPDATE that is out: far more than a phone takes, and a user hardly notices.
constexpr su_duration_t kByePatience = 500;

// Nothing may come behind a BYE, so that the highest number there is (RFC 3261, 8.1.1.5) is right for it, whatever the
// stack has counted up to. The stack adds one.
constexpr const char* kLastSequence = "2147483646 BYE";

}  // namespace

/// The stack sends one request after the other, so that a BYE would wait behind one that a far end leaves unanswered,
/// 64 times T1 at worst.
void SipDialog::SendByeOnSipThread(const std::string& reason) {
  nua_bye(handle_, TAG_IF(!reason.empty(), SIPTAG_REASON_STR(reason.c_str())), TAG_END());
  if (unanswered_ == 0 || !target_.known() || bye_timer_) return;
  bye_reason_ = reason;
  bye_timer_ = su_timer_create(su_root_task(agent_->RootOnSipThread()), kByePatience);
  const auto expired = [](su_root_magic_t*, su_timer_t* timer, su_timer_arg_t* argument) {
    auto* self = static_cast<SipDialog*>(argument);
    self->bye_timer_ = nullptr;
    su_timer_destroy(timer);
    self->SendByePastTheQueueOnSipThread();
  };
  if (bye_timer_) su_timer_set(bye_timer_, expired, this);
}

void SipDialog::OnOursAnsweredOnSipThread() {
  if (unanswered_ == 0 || --unanswered_ > 0) return;
  if (su_timer_t* timer = std::exchange(bye_timer_, nullptr)) su_timer_destroy(timer);  // the BYE is out
}

/// In the same dialog, by a handle of its own; what the other one has queued goes with it.
void SipDialog::SendByePastTheQueueOnSipThread() {
  Home home;
  const sip_replaces_t* dialog = nua_handle_make_replaces(handle_, home, 0);
  sip_from_t* from = sip_from_dup(home, nua_handle_local(handle_));
  sip_to_t* to = sip_to_dup(home, nua_handle_remote(handle_));
  if (!dialog || !from || !to) return;
  sip_from_tag(home, from, dialog->rp_from_tag);
  sip_to_tag(home, to, dialog->rp_to_tag);
  const url_t* target = url_make(home, target_.uri().c_str());
  nua_handle_t* past = nua_handle(agent_->StackOnSipThread(), this, SIPTAG_FROM(from), SIPTAG_TO(to),
                                  SIPTAG_CALL_ID_STR(dialog->rp_call_id), TAG_END());
  if (!past || !target) return;
  nua_handle_t* stuck = std::exchange(handle_, past);
  nua_handle_bind(stuck, nullptr);
  nua_handle_destroy(stuck);
  nua_method(past, NUTAG_METHOD("BYE"), NUTAG_DIALOG(2), NUTAG_URL(target), SIPTAG_CSEQ_STR(kLastSequence),
             TAG_IF(!target_.route().empty(), SIPTAG_ROUTE_STR(target_.route().c_str())),
             TAG_IF(!bye_reason_.empty(), SIPTAG_REASON_STR(bye_reason_.c_str())), TAG_END());
}

}  // namespace kvx_switch
