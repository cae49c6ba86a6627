#pragma once

#include <string>

#include "sip_call_fixture.h"

namespace kvx_switch {

/// Three phones: "2000" reaches bob and "3000" carol.
class SipTransfer : public SipCall {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// A call from `caller` to `number`, answered by `called` with `answer`; the INVITE that reached it.
  SipMessage Connect(SipPeer& caller, const std::string& number, SipPeer& called, const std::string& sdp,
                     const std::string& answer);
  /// The final response to a REFER, and what its NOTIFYs say, each answered, up to the last.
  int AwaitReferResponse(SipPeer& peer);
  std::string NextNotify(SipPeer& peer);
  /// An INVITE comes to the peer, which answers it with `answer`; the INVITE.
  SipMessage AnswerAt(SipPeer& peer, const std::string& answer = SipPeer::Sdp("0"));
  /// A BYE comes to the peer, which answers it; its Reason header.
  std::string ByeAt(SipPeer& peer);

  std::string ReferTo(const std::string& user, const std::string& replaces = "");

  SipPeer carol_;
};

}  // namespace kvx_switch
