#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sip_peer_socket.h"

namespace kvx_switch {

struct SipMessage {
  std::string start_line;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  int Status() const;          ///< 0 for a request
  std::string Method() const;  ///< of a request; "" for a response
  std::string Header(const std::string& name) const;
  std::string CSeqMethod() const;
};

/// A phone made of one socket and text: sends what a test tells it to and hands over what comes, so that a test can do
/// what no well-behaved phone does. One call at a time; the time limits are generous, since only a failure waits for
/// them.
class SipPeer {
 public:
  explicit SipPeer(SipPeerTransport transport = {})
      : transport_(transport), socket_(SipPeerSocket::Open(transport)), address_(socket_->Address()) {}

  /// Where the switch is; before anything is sent.
  void Use(const std::string& switch_address);

  std::string Address() const { return address_; }
  /// The same as the host and parameters of a SIP URI: "[::1]:5060;transport=tcp".
  std::string UriAddress() const { return address_ + (transport_.tcp ? ";transport=tcp" : ""); }

  /// Sends text as it stands, with every line end made CRLF.
  void SendRaw(const std::string& text);

  // As a calling phone.
  void SendInvite(const std::string& number, const std::string& sdp, const std::string& more_headers = "");
  /// ACK for the final response that came (to a 2xx a transaction of its own).
  void SendAck(const SipMessage& response, const std::string& sdp = "");
  /// Further requests go into the dialog of this provisional response.
  void JoinDialog(const SipMessage& response);
  void SendCancel(const std::string& more_headers = "");
  void SendBye(const std::string& more_headers = "");

  /// Any other request in the call.
  void SendInCall(const std::string& method, const std::string& more_headers, const std::string& sdp = "");
  /// "call-id;to-tag=...;from-tag=..." of the call, as Replaces names it to the switch (RFC 3891).
  std::string Replaces() const;
  /// A further INVITE in the call, and the ACK for the final response to it.
  void SendReinvite(const std::string& sdp, const std::string& more_headers = "");
  void AckReinvite(const SipMessage& response, const std::string& sdp = "");

  /// The To tag of this phone's answers from now on, "bob" before: a fork of its own for each (RFC 3261, 13.2.2.4).
  void TagAs(const std::string& tag) { tag_ = tag; }

  // As a called phone.
  void Reply(const SipMessage& request, int status, const std::string& more_headers = "", const std::string& sdp = "");
  /// The same two inside the call that `invite` set up and this peer answered.
  void SendReinviteAsCalled(const SipMessage& invite, const std::string& sdp);
  void AckReinviteAsCalled(const SipMessage& invite, const SipMessage& response);
  void SendInCallAsCalled(const SipMessage& invite, const std::string& method, const std::string& more_headers,
                          const std::string& sdp = "");
  static std::string ReplacesAsCalled(const SipMessage& invite);
  /// BYE inside the call that `invite` set up and this peer answered.
  void SendByeAsCalled(const SipMessage& invite, const std::string& more_headers = "");

  /// The next response to INVITE other than 100, or to another method; empty when none comes in time.
  std::optional<SipMessage> AwaitResponse(const std::string& method = "INVITE");
  /// The next request of that method; others that come meanwhile are answered 200 (BYE) or passed over. A BYE that
  /// comes before an awaited NOTIFY, in another call, is kept for who awaits a BYE next.
  std::optional<SipMessage> AwaitRequest(const std::string& method);
  /// Nothing of that method comes within `limit`.
  bool StaysSilent(const std::string& method, std::chrono::milliseconds limit);

  /// Gives a final answer to every request that has come, or is on its way, and has none: 487 to an INVITE, else 200.
  void AnswerWhatIsLeft();

  /// Gives no answer to what has come so far.
  void Forget() { open_.clear(); }

  /// Of a session description with one fax stream (T.38) on this machine.
  static std::string FaxSdp(int port = 41000);
  /// Of a session description with one audio stream on this machine.
  static std::string Sdp(const std::string& formats = "0 8", const std::string& lines = "");
  /// The same with its addresses in IPv6.
  static std::string Sdp6(const std::string& formats = "0 8", const std::string& lines = "");

 private:
  std::optional<SipMessage> Receive(std::chrono::steady_clock::time_point deadline);
  std::string Request(const std::string& method, int sequence, const std::string& branch, const std::string& to_tag,
                      const std::string& more_headers, const std::string& sdp) const;

  std::string RequestAsCalled(const SipMessage& invite, const std::string& method, int sequence,
                              const std::string& branch, const std::string& more_headers, const std::string& sdp) const;

  const SipPeerTransport transport_;
  const std::unique_ptr<SipPeerSocket> socket_;
  const std::string address_;
  std::string switch_;
  std::string tag_ = "bob";
  int calls_ = 0;
  int reinvites_ = 0;
  std::string number_;
  std::string call_id_;
  std::string branch_;
  std::string remote_tag_;
  std::vector<SipMessage> open_;   ///< requests without a final answer
  std::vector<SipMessage> byes_;   ///< those that came before a NOTIFY
  std::vector<std::string> seen_;  ///< messages already handed over, to pass over their repetitions
};

}  // namespace kvx_switch
