// Transfers asked for inside a call: REFER and the NOTIFYs about it (RFC 3515), Replaces (RFC 3891).
#include "sip/sip_refer.h"

#include <strings.h>
#include <switch.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "sip/sip_agent.h"
#include "sip/sip_cause.h"
#include "sip/sip_dialog.h"
#include "sip/sip_home.h"
#include "sip/sip_text.h"
#include "sip/sofia.h"

namespace kvx_switch {

namespace {

/// The value of "Replaces" among a URI's headers ("a=b&Replaces=..."), unescaped; "" when it is not there.
std::string ReplacesOf(const url_t* url) {
  const std::string headers = url->url_headers ? url->url_headers : "";
  const std::string name = "Replaces=";
  for (size_t start = 0; start < headers.size();) {
    const size_t end = std::min(headers.find('&', start), headers.size());
    if (strncasecmp(headers.c_str() + start, name.c_str(), name.size()) == 0) {
      std::string value = headers.substr(start + name.size(), end - start - name.size());
      value.resize(url_unescape_to(value.data(), value.c_str(), value.size()));
      return value;
    }
    start = end + 1;
  }
  return "";
}

std::string UriWithoutHeaders(Home& home, const url_t* url) {
  url_t* plain = url_hdup(home, url);
  if (!plain) return "";
  plain->url_headers = nullptr;
  const char* text = url_as_string(home, plain);
  return text ? text : "";
}

/// The user part without escapes; "" when there is none.
std::string UserOf(const url_t* url) {
  std::string user = url->url_user ? url->url_user : "";
  user.resize(url_unescape_to(user.data(), user.c_str(), user.size()));
  return user;
}

}  // namespace

std::string SipAgent::LegOfReplacesOnSipThread(const sip_replaces_s* replaces) {
  nua_handle_t* handle = replaces ? nua_handle_by_replaces(nua_, replaces) : nullptr;
  if (!handle) return "";
  auto found = dialogs_.find(nua_handle_magic(handle));
  nua_handle_unref(handle);
  return found == dialogs_.end() ? "" : found->second->LegOnSipThread();
}

void SipDialog::OnReferOnSipThread(const sip_s* sip) {
  nua_t* stack = agent_->StackOnSipThread();
  if (phase_ != Phase::kUp || !sink_) {
    nua_respond(handle_, SIP_403_FORBIDDEN, NUTAG_WITH_THIS(stack), TAG_END());
    return;
  }
  const sip_refer_to_t* target = sip ? sip->sip_refer_to : nullptr;
  const bool to_sip = target && (target->r_url->url_type == url_sip || target->r_url->url_type == url_sips);
  if (!to_sip || !target->r_url->url_host) {
    nua_respond(handle_, SIP_400_BAD_REQUEST, NUTAG_WITH_THIS(stack), TAG_END());
    return;
  }
  Home home;
  auto refer = std::make_shared<ReferRequest>();
  refer->id = sip->sip_cseq->cs_seq;
  refer->user = UserOf(target->r_url);
  refer->uri = UriWithoutHeaders(home, target->r_url);
  if (sip->sip_referred_by) {
    const char* by = sip_header_as_string(home, reinterpret_cast<const sip_header_t*>(sip->sip_referred_by));
    refer->referred_by = by ? by : "";
  }
  const std::string replaces = ReplacesOf(target->r_url);
  refer->replaces = !replaces.empty();
  if (refer->replaces) {
    refer->replaced_leg = agent_->LegOfReplacesOnSipThread(sip_replaces_make(home, replaces.c_str()));
  }
  nua_respond(handle_, SIP_202_ACCEPTED, NUTAG_WITH_THIS(stack), TAG_END());
  NotifyReferrer(refer->id, 100);
  DialogEvent event{DialogEvent::Kind::kRefer, 0, "", "", SWITCH_CAUSE_NONE};
  event.refer = std::move(refer);
  sink_(event);
}

void SipDialog::NotifyReferrer(unsigned id, int status) {
  PostSelf([id, status](SipDialog& self) {
    if (self.phase_ != Phase::kUp) return;
    const bool last = status >= 200;
    const std::string event = "refer;id=" + std::to_string(id);
    const std::string fragment = "SIP/2.0 " + std::to_string(status) + " " + PhraseOfStatus(status) + "\r\n";
    ++self.unanswered_;
    nua_notify(self.handle_, NUTAG_SUBSTATE(last ? nua_substate_terminated : nua_substate_active),
               SIPTAG_SUBSCRIPTION_STATE_STR(last ? "terminated;reason=noresource" : "active;expires=60"),
               SIPTAG_EVENT_STR(event.c_str()), SIPTAG_CONTENT_TYPE_STR("message/sipfrag;version=2.0"),
               SIPTAG_PAYLOAD_STR(fragment.c_str()), TAG_END());
  });
}

}  // namespace kvx_switch
