#pragma once

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "sip/sip_dialog.h"
#include "sip/sip_profile.h"

struct nua_s;
struct nua_handle_s;
struct sip_s;
struct sip_replaces_s;
struct su_root_s;

/// The SIP stack of one profile and the only thread that touches it. Everything else speaks to it in posted tasks, so
/// that a stack without locks serves legs that all have threads of their own.
namespace kvx_switch {

/// What an incoming INVITE says, copied out of it.
struct InboundInvite {
  std::string call_id;
  std::string from_name;
  std::string from_user;
  std::string from_host;
  std::string to_user;
  std::string request_user;
  std::string request_host;
  std::string content_type;
  std::string body;
  std::string network_address;
  uint16_t network_port = 0;
  bool over_tcp = false;
  int max_forwards = 70;
  bool replaces = false;     ///< takes the place of a dialog (RFC 3891), and of this leg's:
  std::string replaced_leg;  ///< "" when it is none of this profile's
  bool early_only = false;
};

class SipAgent : public std::enable_shared_from_this<SipAgent> {
 public:
  /// Called on the SIP thread for each new INVITE; must not block. The dialog waits for Ring, Answer or End.
  using InviteHandler = std::function<void(const InboundInvite& invite, const std::shared_ptr<SipDialog>& dialog)>;

  /// Listens on the profile's address. Null and `error`, which names file, address and port, when that is not possible.
  static std::shared_ptr<SipAgent> Start(const SipProfile& profile, InviteHandler handler, std::string& error);

  SipAgent(const SipProfile& profile, InviteHandler handler);
  ~SipAgent();
  SipAgent(const SipAgent&) = delete;
  SipAgent& operator=(const SipAgent&) = delete;

  /// Ends what dialogs are left, gives their last messages a moment, joins the thread. Not on the SIP thread.
  void Stop();

  /// Runs `task` on the SIP thread, in order; from any thread. False when the agent has stopped; the task is dropped.
  bool Post(std::function<void()> task);

  const SipProfile& profile() const { return profile_; }
  /// "127.0.0.1:5060", with the port really used.
  const std::string& address() const { return address_; }

  nua_s* StackOnSipThread() const { return nua_; }
  su_root_s* RootOnSipThread() const { return root_; }
  void AddOnSipThread(const std::shared_ptr<SipDialog>& dialog);
  void ForgetOnSipThread(SipDialog* dialog);
  /// The uuid of the leg whose dialog `replaces` names; "" when there is none.
  std::string LegOfReplacesOnSipThread(const sip_replaces_s* replaces);
  void OnEventOnSipThread(int event, int status, const char* phrase, nua_handle_s* handle, SipDialog* dialog,
                          const sip_s* sip, const void* tags);
  void RunTasksOnSipThread();

 private:
  void ThreadMain(std::promise<std::string> started);
  bool OpenOnSipThread();
  void Serve();
  void CloseOnSipThread();
  void OnInviteOnSipThread(nua_handle_s* handle, const sip_s* sip);
  void ReadContactOnSipThread(const void* tags);

  const SipProfile profile_;
  const InviteHandler handler_;
  std::string address_;  // written before Start returns
  std::thread thread_;
  int wake_fd_ = -1;

  std::mutex mutex_;
  std::vector<std::function<void()>> tasks_;  // guarded by mutex_
  bool accepting_ = true;                     // guarded by mutex_

  // Used on the SIP thread only.
  su_root_s* root_ = nullptr;
  nua_s* nua_ = nullptr;
  int wake_index_ = -1;
  bool stopping_ = false;
  bool stack_is_down_ = false;
  std::unordered_map<SipDialog*, std::shared_ptr<SipDialog>> dialogs_;
};

}  // namespace kvx_switch
