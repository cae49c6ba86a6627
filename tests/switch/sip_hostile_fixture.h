#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sip/sip_front.h"
#include "sip_call_fixture.h"
#include "sip_peer_socket.h"
#include "support/sip_mutation.h"

namespace kvx_switch {

/// The switch with SIP timers short enough for thousands of transactions that nobody ends, and somebody who sends it
/// what he likes. After each message the switch has to answer OPTIONS; when a test is over, nothing may be left of what
/// was sent: no session, no media of a leg, no socket.
class HostileSip : public SipCall {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Serves SIP over `transports` alone: what comes over UDP shall not make the switch connect anywhere.
  void Listen(const std::string& transports);
  /// Sends bytes as they are, from the hostile socket.
  void Send(const std::string& bytes) { hostile_->Send(SipAddress(), bytes); }
  /// Whether the switch answers OPTIONS with 200. What comes at the hostile socket before that is kept in `heard_`; ACK
  /// is sent for final responses to INVITE, and bob, if he `hears`, refuses what reaches him.
  testing::AssertionResult AnswersOptions();
  /// Hangs up what is left; then nothing may be.
  void ExpectNothingLeft();

  /// Requests and an INVITE's course as a phone has them, each with a Call-ID and branch of its own.
  std::vector<std::string> ValidRequests(int number) const;
  std::string Message(const std::string& start, const std::string& method, int sequence, const std::string& id,
                      const std::string& to_tag, const std::string& sdp) const;

  /// Takes what has reached bob and refuses INVITEs with 486, says 200 to the rest.
  void LetBobRefuse();
  /// Both called on lines with CRLF.
  std::string ResponseTo(const std::string& request, int status, const std::string& sdp, const std::string& tag) const;
  static std::string HeaderOf(const std::string& message, const std::string& name);

  std::unique_ptr<SipPeerSocket> hostile_;
  std::unique_ptr<SipPeerSocket> called_;    // where "2000" leads
  std::unique_ptr<SipPeerSocket> observer_;  // asks OPTIONS
  std::vector<std::string> heard_;

 private:
  void Acknowledge(const std::string& response);

  int asked_ = 0;
  size_t sockets_before_ = 0;
};

/// UDP and TCP sockets that this process has open.
size_t OpenSockets();

}  // namespace kvx_switch
