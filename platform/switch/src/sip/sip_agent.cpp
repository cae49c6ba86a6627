#include "sip/sip_agent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <switch.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <utility>

#include "sip/connection_limit.h"
#include "sip/message_limits.h"
#include "sip/sip_stack.h"

namespace kvx_switch {

namespace {

// How long the last BYEs and CANCELs may wait for their answers when the switch stops.
constexpr std::chrono::seconds kLastMessages{3};
constexpr int kStepMilliseconds = 50;

std::string Text(const char* text) {
  return text ? text : "";
}

/// The sender of the message that is being dealt with.
void ReadSource(nua_t* nua, InboundInvite& invite) {
  const msg_t* message = nua_current_request(nua);
  const su_sockaddr_t* source = message ? msg_addr(const_cast<msg_t*>(message)) : nullptr;
  if (!source) return;
  char text[INET6_ADDRSTRLEN] = "";
  if (source->su_family == AF_INET) inet_ntop(AF_INET, &source->su_sin.sin_addr, text, sizeof(text));
  if (source->su_family == AF_INET6) inet_ntop(AF_INET6, &source->su_sin6.sin6_addr, text, sizeof(text));
  invite.network_address = text;
  invite.network_port = ntohs(source->su_port);
}

/// A display name, which may be UTF-8, without its quotes.
std::string Unquoted(const char* display) {
  std::string name = display ? display : "";
  for (char& c : name) {
    if (static_cast<unsigned char>(c) < 0x20) c = '?';
  }
  if (name.size() < 2 || name.front() != '"' || name.back() != '"') return name;
  std::string plain;
  for (size_t i = 1; i + 1 < name.size(); ++i) {
    if (name[i] == '\\' && i + 2 < name.size()) ++i;
    plain += name[i];
  }
  return plain;
}

InboundInvite CopyInvite(nua_t* nua, const sip_t* sip) {
  InboundInvite invite;
  if (sip->sip_call_id) invite.call_id = Text(sip->sip_call_id->i_id);
  if (sip->sip_from) {
    invite.from_name = Unquoted(sip->sip_from->a_display);
    invite.from_user = Text(sip->sip_from->a_url->url_user);
    invite.from_host = Text(sip->sip_from->a_url->url_host);
  }
  if (sip->sip_to) invite.to_user = Text(sip->sip_to->a_url->url_user);
  invite.request_user = Text(sip->sip_request->rq_url->url_user);
  invite.request_host = Text(sip->sip_request->rq_url->url_host);
  if (sip->sip_content_type) invite.content_type = Text(sip->sip_content_type->c_type);
  if (sip->sip_payload && sip->sip_payload->pl_data) {
    invite.body.assign(sip->sip_payload->pl_data, sip->sip_payload->pl_len);
  }
  if (sip->sip_max_forwards) invite.max_forwards = static_cast<int>(sip->sip_max_forwards->mf_count);
  invite.over_tcp = sip->sip_via && strcasecmp(sip->sip_via->v_protocol, sip_transport_tcp) == 0;
  ReadSource(nua, invite);
  return invite;
}

// The two functions that the stack calls. Nothing may be thrown through it.

void StackEvent(nua_event_t event, int status, char const* phrase, nua_t*, SipAgent* agent, nua_handle_t* handle,
                SipDialog* dialog, sip_t const* sip, tagi_t tags[]) {
  try {
    agent->OnEventOnSipThread(event, status, phrase ? phrase : "", handle, dialog, sip, tags);
  } catch (const std::exception& problem) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "SIP event %s: %s\n", nua_event_name(event),
                      problem.what());
  }
}

int WakeUp(SipAgent* agent, su_wait_t* wait, su_wakeup_arg_t*) {
  su_wait_events(wait, wait->fd);
  agent->RunTasksOnSipThread();
  return 0;
}

}  // namespace

std::shared_ptr<SipAgent> SipAgent::Start(const SipProfile& profile, InviteHandler handler, std::string& error) {
  const std::string place = profile.file + ": cannot listen on " + profile.transports.Names() + " " +
                            HostPort(profile, profile.sip_port) + ": ";
  // The stack only says that it could not; the system says why.
  std::string problem = ProbeAddress(profile);
  if (!problem.empty()) {
    error = profile.file + ": cannot listen on " + problem;
    return nullptr;
  }
  auto agent = std::make_shared<SipAgent>(profile, std::move(handler));
  if (agent->wake_fd_ < 0) {
    error = place + "no event descriptor: " + std::strerror(errno);
    return nullptr;
  }
  CountWholeMilliseconds();
  std::promise<std::string> started;
  std::future<std::string> result = started.get_future();
  agent->thread_ = std::thread(&SipAgent::ThreadMain, agent.get(), std::move(started));
  problem = result.get();
  if (problem.empty()) return agent;
  agent->thread_.join();
  error = place + problem;
  return nullptr;
}

SipAgent::SipAgent(const SipProfile& profile, InviteHandler handler)
    : profile_(profile), handler_(std::move(handler)), wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

SipAgent::~SipAgent() {
  if (wake_fd_ >= 0) close(wake_fd_);
}

bool SipAgent::Post(std::function<void()> task) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!accepting_) return false;
    tasks_.push_back(std::move(task));
    if (tasks_.size() > 1) return true;  // who put the first one in wakes the thread
  }
  uint64_t one = 1;
  // Fails only when the counter is full, and then the thread is to be woken already.
  return write(wake_fd_, &one, sizeof(one)) == static_cast<ssize_t>(sizeof(one)) || errno == EAGAIN;
}

void SipAgent::Stop() {
  Post([this] { stopping_ = true; });
  if (thread_.joinable()) thread_.join();
}

void SipAgent::RunTasksOnSipThread() {
  uint64_t count;
  while (read(wake_fd_, &count, sizeof(count)) < 0 && errno == EINTR) {
  }
  std::vector<std::function<void()>> tasks;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    tasks.swap(tasks_);
  }
  for (const std::function<void()>& task : tasks) {
    try {
      task();
    } catch (const std::exception& problem) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "On the SIP thread: %s\n", problem.what());
    }
  }
}

bool SipAgent::OpenOnSipThread() {
  root_ = su_root_create(this);
  if (!root_) return false;
  su_root_threading(root_, 0);
  su_wait_t wait[1] = {SU_WAIT_INIT};
  if (su_wait_create(wait, wake_fd_, SU_WAIT_IN) != 0) return false;
  wake_index_ = su_root_register(root_, wait, WakeUp, nullptr, 0);
  if (wake_index_ < 0) return false;
  nua_ = CreateStack(root_, StackEvent, this, profile_);
  if (!nua_) return false;
  nua_get_params(nua_, TAG_ANY(), TAG_END());
  return true;
}

void SipAgent::ReadContactOnSipThread(const void* tags) {
  const sip_contact_t* contact = nullptr;
  tl_gets(static_cast<const tagi_t*>(tags), NTATAG_CONTACT_REF(contact), TAG_END());
  if (!contact || !contact->m_url->url_host) return;
  unsigned port = contact->m_url->url_port ? static_cast<unsigned>(std::atoi(contact->m_url->url_port)) : 5060;
  address_ = HostPort(profile_, port);
}

void SipAgent::ThreadMain(std::promise<std::string> started) {
  su_init();
  std::string problem;
  if (!OpenOnSipThread()) problem = "the SIP stack did not start";
  auto deadline = std::chrono::steady_clock::now() + kLastMessages;
  while (problem.empty() && address_.empty()) {
    su_root_step(root_, kStepMilliseconds);
    if (std::chrono::steady_clock::now() > deadline) problem = "the SIP stack does not say where it listens";
  }
  started.set_value(problem);
  // Tasks and messages wake the step; its length only bounds how late an end is noticed that nothing announces.
  if (problem.empty()) Serve();
  CloseOnSipThread();
  su_deinit();
}

void SipAgent::Serve() {
  constexpr std::chrono::milliseconds kLongestStep{1000};
  if (!profile_.transports.tcp) {
    while (!stopping_) su_root_step(root_, kLongestStep.count());
    return;
  }
  const auto port = static_cast<uint16_t>(std::atoi(address_.c_str() + address_.rfind(':') + 1));
  ConnectionLimit connections(profile_.name, profile_.sip_address, port, profile_.tcp_connections);
  while (!stopping_) su_root_step(root_, connections.Look(std::chrono::steady_clock::now()).count());
}

void SipAgent::CloseOnSipThread() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    accepting_ = false;
  }
  if (nua_) {
    RunTasksOnSipThread();
    auto deadline = std::chrono::steady_clock::now() + kLastMessages;
    while (!dialogs_.empty() && std::chrono::steady_clock::now() < deadline) su_root_step(root_, kStepMilliseconds);
    while (!dialogs_.empty()) ForgetOnSipThread(dialogs_.begin()->first);
    nua_shutdown(nua_);
    deadline = std::chrono::steady_clock::now() + kLastMessages;
    while (!stack_is_down_ && std::chrono::steady_clock::now() < deadline) su_root_step(root_, kStepMilliseconds);
    if (stack_is_down_) nua_destroy(std::exchange(nua_, nullptr));
  }
  if (wake_index_ >= 0) su_root_deregister(root_, wake_index_);
  // A stack that is not down still refers to the root.
  if (root_ && !nua_) su_root_destroy(root_);
  root_ = nullptr;
}

void SipAgent::AddOnSipThread(const std::shared_ptr<SipDialog>& dialog) {
  dialogs_[dialog.get()] = dialog;
}

void SipAgent::ForgetOnSipThread(SipDialog* dialog) {
  auto found = dialogs_.find(dialog);
  if (found == dialogs_.end()) return;
  std::shared_ptr<SipDialog> kept = std::move(found->second);
  dialogs_.erase(found);
  kept->CloseOnSipThread();
}

void SipAgent::OnInviteOnSipThread(nua_handle_s* handle, const sip_s* sip) {
  if (stopping_) {
    nua_respond(handle, SIP_503_SERVICE_UNAVAILABLE, TAG_END());
    nua_handle_destroy(handle);
    return;
  }
  InboundInvite invite = CopyInvite(nua_, sip);
  const std::string excess = TooLarge(nua_, sip);
  if (!excess.empty()) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "INVITE from %s refused with 513: %s\n",
                      invite.network_address.c_str(), excess.c_str());
    nua_respond(handle, SIP_513_MESSAGE_TOO_LARGE, TAG_END());
    nua_handle_destroy(handle);
    return;
  }
  invite.replaces = sip->sip_replaces != nullptr;
  invite.replaced_leg = LegOfReplacesOnSipThread(sip->sip_replaces);
  invite.early_only = invite.replaces && sip->sip_replaces->rp_early_only;
  auto dialog = std::make_shared<SipDialog>(shared_from_this(), "", nullptr);
  if (!dialog->AdoptOnSipThread(handle, sip, invite.over_tcp)) {
    nua_handle_destroy(handle);
    return;
  }
  handler_(invite, dialog);
}

void SipAgent::OnEventOnSipThread(int event, int status, const char* phrase, nua_handle_s* handle, SipDialog* dialog,
                                  const sip_s* sip, const void* tags) {
  switch (event) {
    case nua_r_shutdown:
      if (status >= 200) stack_is_down_ = true;
      return;
    case nua_r_get_params:
      ReadContactOnSipThread(tags);
      return;
    case nua_r_set_params:
    case nua_i_error:
    case nua_i_network_changed:
      return;
    default:
      break;
  }
  if (!dialog) {
    if (event == nua_i_invite && handle && sip) {
      OnInviteOnSipThread(handle, sip);
    } else if (handle && event < nua_r_set_params) {
      // A transfer of no call.
      if (event == nua_i_refer) nua_respond(handle, SIP_403_FORBIDDEN, NUTAG_WITH_THIS(nua_), TAG_END());
      nua_handle_destroy(handle);  // answered by the stack itself (OPTIONS) or refused by it; nobody's call
    }
    return;
  }
  auto found = dialogs_.find(dialog);
  if (found == dialogs_.end()) return;
  std::shared_ptr<SipDialog> kept = found->second;
  int call_state = nua_callstate_init;
  tl_gets(static_cast<const tagi_t*>(tags), NUTAG_CALLSTATE_REF(call_state), TAG_END());
  kept->OnEventOnSipThread(event, status, phrase, sip, call_state);
}

}  // namespace kvx_switch
