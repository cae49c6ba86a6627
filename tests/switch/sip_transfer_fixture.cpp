#include "sip_transfer_fixture.h"

#include <switch.h>

#include "sip/sip_front.h"

namespace kvx_switch {

namespace {

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (char c : text) {
    if (c == ';') {
      escaped += "%3B";
    } else if (c == '=') {
      escaped += "%3D";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

}  // namespace

void SipTransfer::SetUp() {
  SipCall::SetUp();
  StopSipSide();
  Dialplan(dialplan_ +
           "<extension name=\"carol\"><condition field=\"destination_number\" expression=\"^3000$\">"
           "<action application=\"bridge\" data=\"sip:3000@" +
           carol_.Address() + "\"/></condition></extension>");
  StartSipSide();
  carol_.Use(SipAddress());
}

void SipTransfer::TearDown() {
  switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_TRUE(NoLegsLeft());
  carol_.AnswerWhatIsLeft();
  SipCall::TearDown();
}

SipMessage SipTransfer::Connect(SipPeer& caller, const std::string& number, SipPeer& called, const std::string& sdp,
                                const std::string& answer) {
  const size_t bridges = media_->Count("A bridge");
  caller.SendInvite(number, sdp);
  SipMessage invite = AnswerAt(called, answer);
  std::optional<SipMessage> response = caller.AwaitResponse();
  EXPECT_TRUE(response && response->Status() == 200) << (response ? response->start_line : "no response");
  if (response) caller.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
  return invite;
}

int SipTransfer::AwaitReferResponse(SipPeer& peer) {
  std::optional<SipMessage> response = peer.AwaitResponse("REFER");
  return response ? response->Status() : 0;
}

std::string SipTransfer::NextNotify(SipPeer& peer) {
  std::optional<SipMessage> notify = peer.AwaitRequest("NOTIFY");
  if (!notify) return "none";
  peer.Reply(*notify, 200);
  EXPECT_THAT(notify->Header("Content-Type"), testing::StartsWith("message/sipfrag"));
  EXPECT_THAT(notify->Header("Event"), testing::StartsWith("refer"));
  const std::string status = notify->body.substr(0, notify->body.find("\r\n"));
  const bool last = notify->Header("Subscription-State").rfind("terminated", 0) == 0;
  return status + (last ? ", the last" : "");
}

SipMessage SipTransfer::AnswerAt(SipPeer& peer, const std::string& answer) {
  std::optional<SipMessage> invite = peer.AwaitRequest("INVITE");
  EXPECT_TRUE(invite) << "no INVITE";
  if (!invite) return {};
  peer.Reply(*invite, 200, "", answer);
  EXPECT_TRUE(peer.AwaitRequest("ACK"));
  return *invite;
}

std::string SipTransfer::ByeAt(SipPeer& peer) {
  std::optional<SipMessage> bye = peer.AwaitRequest("BYE");
  if (!bye) return "none";
  peer.Reply(*bye, 200);
  return bye->Header("Reason");
}

std::string SipTransfer::ReferTo(const std::string& user, const std::string& replaces) {
  return "Refer-To: <sip:" + user + "@" + SipAddress() + (replaces.empty() ? "" : "?Replaces=" + Escaped(replaces)) +
         ">\n";
}

}  // namespace kvx_switch
