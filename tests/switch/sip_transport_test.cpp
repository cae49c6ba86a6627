// Calls over UDP and TCP, IPv4 and IPv6, and from one to the other.
#include <switch.h>

#include "sip/message_limits.h"
#include "sip/sip_front.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr SipPeerTransport kUdp{false, false};
constexpr SipPeerTransport kTcp{true, false};
constexpr SipPeerTransport kUdp6{false, true};
constexpr SipPeerTransport kTcp6{true, true};

class SipTransport : public SipCall {
 protected:
  void SetUp() override {
    SipCall::SetUp();
    // The second profile; its name comes after that of the first.
    directory_.Write("sip_profiles/internal6.xml",
                     "<profile name=\"internal6\"><settings><param name=\"sip-ip\" value=\"::1\"/>"
                     "<param name=\"sip-port\" value=\"0\"/></settings></profile>");
  }

  void TearDown() override {
    if (caller_) caller_->AnswerWhatIsLeft();
    if (callee_) callee_->AnswerWhatIsLeft();
    SipCall::TearDown();
  }

  /// A phone for each side; "2000" reaches the called one.
  void Phones(SipPeerTransport caller, SipPeerTransport callee) {
    caller_ = std::make_unique<SipPeer>(caller);
    callee_ = std::make_unique<SipPeer>(callee);
    caller_ipv6_ = caller.ipv6;
    callee_ipv6_ = callee.ipv6;
    caller_tcp_ = caller.tcp;
    callee_tcp_ = callee.tcp;
    media_->SetAddress(caller.ipv6 ? "::1" : "127.0.0.1", "A");
    media_->SetAddress(callee.ipv6 ? "::1" : "127.0.0.1", "B");
    Dialplan(
        "<extension name=\"callee\"><condition field=\"destination_number\" expression=\"^2000$\">"
        "<action application=\"bridge\" data=\"sip:2000@" +
        callee_->UriAddress() + "\"/></condition></extension>");
    StopSipSide();
    StartSipSide();
    caller_->Use(SipAddress(caller.ipv6 ? "internal6" : "internal"));
    callee_->Use(SipAddress(callee.ipv6 ? "internal6" : "internal"));
  }

  static std::string Description(bool ipv6, const std::string& formats = "0", const std::string& lines = "") {
    return ipv6 ? SipPeer::Sdp6(formats, lines) : SipPeer::Sdp(formats, lines);
  }

  /// A call from end to end: set up, held by the caller, hung up by the callee, each message over the leg's own
  /// transport and with addresses of the leg's own family.
  void ExpectWholeCall(const std::string& caller_lines = "") {
    caller_->SendInvite("2000", Description(caller_ipv6_, "0", caller_lines));
    std::optional<SipMessage> invite = callee_->AwaitRequest("INVITE");
    ASSERT_TRUE(invite) << "no INVITE reached the callee";
    const std::string called_network = callee_ipv6_ ? "IN IP6 ::1\r\n" : "IN IP4 127.0.0.1\r\n";
    EXPECT_THAT(invite->body, HasSubstr("c=" + called_network));
    ExpectContact(*invite, callee_tcp_, callee_ipv6_);
    callee_->Reply(*invite, 200, "", Description(callee_ipv6_));
    std::optional<SipMessage> answer = caller_->AwaitResponse();
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->Status(), 200);
    EXPECT_TRUE(callee_->AwaitRequest("ACK"));
    EXPECT_THAT(answer->body, HasSubstr(caller_ipv6_ ? "c=IN IP6 ::1\r\n" : "c=IN IP4 127.0.0.1\r\n"));
    ExpectContact(*answer, caller_tcp_, caller_ipv6_);
    caller_->SendAck(*answer);
    ASSERT_TRUE(media_->WaitFor("A bridge", 1));
    EXPECT_EQ(media_->Of("A set_media").address, std::string(caller_ipv6_ ? "::1" : "127.0.0.1") + ":40000/0");
    EXPECT_EQ(media_->Of("B set_media").address, std::string(callee_ipv6_ ? "::1" : "127.0.0.1") + ":40000/0");
    ExpectHolds(*invite);
    callee_->SendByeAsCalled(*invite);
    std::optional<SipMessage> bye = caller_->AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    caller_->Reply(*bye, 200);
    EXPECT_TRUE(callee_->AwaitResponse("BYE"));
    EXPECT_TRUE(NoLegsLeft());
  }

  /// Where the far end's further requests go.
  static void ExpectContact(const SipMessage& message, bool tcp, bool ipv6) {
    EXPECT_THAT(message.Header("Contact"), HasSubstr(ipv6 ? "<sip:[::1]:" : "<sip:127.0.0.1:"));
    EXPECT_EQ(message.Header("Contact").find(";transport=tcp") != std::string::npos, tcp) << message.Header("Contact");
  }

  /// Either side holds the call.
  void ExpectHolds(const SipMessage& invite) {
    caller_->SendReinvite(Description(caller_ipv6_, "0", "a=sendonly\n"));
    std::optional<SipMessage> answer = caller_->AwaitResponse();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->Status(), 200);
    EXPECT_THAT(answer->body, HasSubstr("a=recvonly"));
    ExpectContact(*answer, caller_tcp_, caller_ipv6_);
    caller_->AckReinvite(*answer);
    ASSERT_TRUE(media_->WaitFor("A bridge", 2));
    callee_->SendReinviteAsCalled(invite, Description(callee_ipv6_, "0", "a=sendonly\n"));
    answer = callee_->AwaitResponse();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->Status(), 200);
    ExpectContact(*answer, callee_tcp_, callee_ipv6_);
    callee_->AckReinviteAsCalled(invite, *answer);
  }

  std::unique_ptr<SipPeer> caller_;
  std::unique_ptr<SipPeer> callee_;
  bool caller_ipv6_ = false;
  bool callee_ipv6_ = false;
  bool caller_tcp_ = false;
  bool callee_tcp_ = false;
};

TEST_F(SipTransport, CallOverTcpOnBothSides) {
  Phones(kTcp, kTcp);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallFromTcpToUdp) {
  Phones(kTcp, kUdp);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallFromUdpToTcp) {
  Phones(kUdp, kTcp);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallOverIpv6AndUdp) {
  Phones(kUdp6, kUdp6);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallOverIpv6AndTcp) {
  Phones(kTcp6, kTcp6);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallFromIpv4ToIpv6GivesEachLegAddressesOfItsOwnFamily) {
  Phones(kUdp, kUdp6);
  ExpectWholeCall();
}

TEST_F(SipTransport, CallFromIpv6OverTcpToIpv4OverUdp) {
  Phones(kTcp6, kUdp);
  ExpectWholeCall();
}

TEST_F(SipTransport, LargeInvitePassesOverTcp) {
  Phones(kTcp, kTcp);
  ExpectWholeCall("a=x-filler:" + std::string(kLargestBody - 2048, 'x') + "\n");
}

TEST_F(SipTransport, TransportOfTheTargetIsHonoured) {
  // A phone that waits on TCP and on UDP of one port would be reached either way: the Via tells which was taken.
  Phones(kUdp, kTcp);
  caller_->SendInvite("2000", SipPeer::Sdp());
  std::optional<SipMessage> invite = callee_->AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->Header("Via"), HasSubstr("SIP/2.0/TCP "));
  EXPECT_THAT(invite->Header("Contact"), HasSubstr(";transport=tcp"));
  callee_->Reply(*invite, 486);
  std::optional<SipMessage> refused = caller_->AwaitResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->Status(), 486);
  EXPECT_THAT(refused->Header("Via"), HasSubstr("SIP/2.0/UDP "));
  caller_->SendAck(*refused);
}

TEST_F(SipTransport, ProfileWithoutTheTransportDoesNotServeIt) {
  Profile("<param name=\"bind-params\" value=\"transport=udp\"/>");
  Phones(kTcp, kUdp);
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "SIP profile \"internal\" listens on udp 127.0.0.1:"));
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "SIP profile \"internal6\" listens on udp and tcp [::1]:"));
  caller_->SendInvite("2000", SipPeer::Sdp());
  EXPECT_TRUE(callee_->StaysSilent("INVITE", std::chrono::milliseconds(200)));
}

TEST_F(SipTransport, AccessListKnowsIpv6Callers) {
  directory_.Write("autoload_configs/acl.conf.xml",
                   "<configuration name=\"acl.conf\"><network-lists><list name=\"lan\" default=\"allow\">"
                   "<node type=\"deny\" cidr=\"::1/128\"/></list></network-lists></configuration>");
  directory_.Write("sip_profiles/internal6.xml",
                   "<profile name=\"internal6\"><settings><param name=\"sip-ip\" value=\"::1\"/>"
                   "<param name=\"sip-port\" value=\"0\"/><param name=\"apply-inbound-acl\" value=\"lan\"/>"
                   "</settings></profile>");
  Phones(kTcp6, kUdp);
  caller_->SendInvite("2000", SipPeer::Sdp6());
  std::optional<SipMessage> refused = caller_->AwaitResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->Status(), 403);
  caller_->SendAck(*refused);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "IP ::1 rejected by acl \"lan\": call to 2000 refused with 403"));
}

TEST_F(SipTransport, MessageBeyondTheLimitOverTcpDoesNotReachTheSwitch) {
  Phones(kTcp, kUdp);
  caller_->SendInvite("2000", SipPeer::Sdp("0", "a=x-filler:" + std::string(kLargestMessage + 1000, 'x') + "\n"));
  std::optional<SipMessage> refused = caller_->AwaitResponse();
  if (refused) {
    EXPECT_EQ(refused->Status(), 413);
  }
  EXPECT_EQ(switch_core_session_count(), 0u);
  // The same phone comes again, with something of a phone's size.
  caller_ = std::make_unique<SipPeer>(kTcp);
  caller_->Use(SipAddress("internal"));
  ExpectWholeCall();
}

TEST_F(SipTransport, ConnectionThatBreaksOffInAMessageLeavesNothing) {
  Phones(kTcp, kUdp);
  {
    SipPeer broken(kTcp);
    broken.Use(SipAddress("internal"));
    broken.SendRaw("INVITE sip:2000@127.0.0.1 SIP/2.0\nVia: SIP/2.0/TCP 127.0.0.1\nContent-Length: 400\n\nv=0\n");
  }
  ExpectWholeCall();
}

TEST_F(SipTransport, MessagesThatCloselyFollowOneAnotherOnAConnectionAreToldApart) {
  Phones(kTcp, kUdp);
  const auto options = [this](int number) {
    const std::string text = std::to_string(number);
    return "OPTIONS sip:" + SipAddress("internal") + " SIP/2.0\nVia: SIP/2.0/TCP " + caller_->Address() +
           ";branch=z9hG4bK-o" + text + "\nMax-Forwards: 70\nFrom: <sip:a@b>;tag=1\nTo: <sip:b@b>\nCall-ID: o" + text +
           "\nCSeq: 1 OPTIONS\nContent-Length: 0\n\n";
  };
  caller_->SendRaw(options(1) + "\n\n" + options(2) + options(3));
  for (int number = 1; number <= 3; ++number) {
    std::optional<SipMessage> answer = caller_->AwaitResponse("OPTIONS");
    ASSERT_TRUE(answer) << number;
    EXPECT_EQ(answer->Status(), 200);
    EXPECT_EQ(answer->Header("Call-ID"), "o" + std::to_string(number));
  }
}

// An INVITE that a datagram may not hold goes over TCP where the callee takes it (RFC 3261, 18.1.1), else over UDP.
TEST_F(SipTransport, LargeInviteToAPhoneWithoutTcpComesOverUdp) {
  Phones(kUdp, kUdp);
  caller_->SendInvite("2000", SipPeer::Sdp("0"), "");
  std::optional<SipMessage> small = callee_->AwaitRequest("INVITE");
  ASSERT_TRUE(small);
  EXPECT_THAT(small->Header("Via"), HasSubstr("SIP/2.0/UDP "));
  callee_->Reply(*small, 486);
  std::optional<SipMessage> refused = caller_->AwaitResponse();
  ASSERT_TRUE(refused);
  caller_->SendAck(*refused);
  EXPECT_TRUE(NoLegsLeft());
  const std::string long_name(700, 'n');
  caller_->SendRaw("INVITE sip:2000@" + SipAddress("internal") + " SIP/2.0\nVia: SIP/2.0/UDP " + caller_->Address() +
                   ";branch=z9hG4bK-long\nMax-Forwards: 70\nFrom: \"" + long_name + "\" <sip:a@" + caller_->Address() +
                   ">;tag=long\nTo: <sip:2000@b>\nCall-ID: long\nCSeq: 1 INVITE\nContact: <sip:a@" +
                   caller_->Address() + ">\nContent-Type: application/sdp\nContent-Length: 96\n\n" +
                   "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=test call\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 40000 RTP/AVP 0\n");
  std::optional<SipMessage> large = callee_->AwaitRequest("INVITE");
  ASSERT_TRUE(large) << "neither over TCP nor over UDP";
  EXPECT_THAT(large->Header("From"), HasSubstr(long_name));
  EXPECT_THAT(large->Header("Via"), HasSubstr("SIP/2.0/UDP "));
  callee_->Reply(*large, 486);
  EXPECT_TRUE(callee_->AwaitRequest("ACK"));
}

}  // namespace
}  // namespace kvx_switch
