// What the two sides of a call, and the log, are told of how it ended.
#include <switch.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "sip_call_fixture.h"
#include "support/free_ports.h"
#include "support/udp_socket.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A name server that knows no name. Its own thread.
class EmptyNameServer {
 public:
  EmptyNameServer() : thread_([this] { Run(); }) {}
  ~EmptyNameServer() {
    stop_ = true;
    thread_.join();
  }
  uint16_t Port() const { return socket_.Port(); }

 private:
  void Run() {
    while (!stop_) {
      std::optional<test_support::UdpDatagram> query = socket_.Receive();
      if (!query || query->data.size() < 12) {
        std::this_thread::yield();
        continue;
      }
      query->data[2] = static_cast<uint8_t>(query->data[2] | 0x84);  // a response, with authority
      query->data[3] = 0x83;                                         // NXDOMAIN (RFC 1035, 4.1.1)
      socket_.SendTo(query->from, query->data);
    }
  }

  test_support::UdpSocket socket_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class SipReason : public SipCall {
 protected:
  void TearDown() override {
    SipCall::TearDown();
    unsetenv("SRESOLV_CONF");
  }

  /// "2000" leads to `target` from now on.
  void Route(const std::string& target, const std::string& profile = "") {
    Profile(profile);
    Dialplan("<extension name=\"x\"><condition><action application=\"bridge\" data=\"" + target +
             "\"/></condition></extension>");
    StopSipSide();
    StartSipSide();
  }

  void ExpectNothingReadsAsIfSomebodyHadAnswered() {
    EXPECT_TRUE(NoLegsLeft());
    for (const test_support::LogLine& line : log_->Lines()) {
      EXPECT_THAT(line.text, Not(HasSubstr("Refused:")));
      EXPECT_THAT(line.text, Not(HasSubstr("by the called side: ")));
    }
  }
};

TEST_F(SipReason, NobodyListeningIs502) {
  const std::string nobody = "127.0.0.1:" + std::to_string(test_support::free_udp_port());
  Route("sip:2000@" + nobody);
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 502);
  EXPECT_EQ(refused.Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Cannot reach sip:2000@" + nobody +
                                             ": nothing listens there, or the network does not lead there"));
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "Hung up by the switch: DESTINATION_OUT_OF_ORDER (27), unanswered"));
  ExpectNothingReadsAsIfSomebodyHadAnswered();
}

TEST_F(SipReason, NobodyListeningOnTcpIs502) {
  const std::string nobody = "127.0.0.1:" + std::to_string(test_support::free_udp_port()) + ";transport=tcp";
  Route("sip:2000@" + nobody);
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 502);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Cannot reach sip:2000@" + nobody + ": nothing listens there"));
  ExpectNothingReadsAsIfSomebodyHadAnswered();
}

TEST_F(SipReason, NoResponseAtAllIs504AfterTheTimer) {
  Route("sip:2000@" + bob_.Address(),
        "<param name=\"timer-T1\" value=\"20\"/><param name=\"timer-T1X64\" value=\"600\"/>");
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 504);
  EXPECT_EQ(refused.Header("Reason"), "Q.850;cause=102;text=\"RECOVERY_ON_TIMER_EXPIRE\"");
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Cannot reach sip:2000@" + bob_.Address() + ": no response within 0.6 s"));
  ExpectNothingReadsAsIfSomebodyHadAnswered();
}

TEST_F(SipReason, NameThatLeadsNowhereIs404) {
  EmptyNameServer names;
  const std::string resolver =
      directory_.Write("resolv.conf", "nameserver 127.0.0.1\nport " + std::to_string(names.Port()) + "\n");
  StopSipSide();  // nobody may look at the environment meanwhile
  setenv("SRESOLV_CONF", resolver.c_str(), 1);
  Route("sip:2000@phone.example");
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 404);
  EXPECT_EQ(refused.Header("Reason"), "Q.850;cause=3;text=\"NO_ROUTE_DESTINATION\"");
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Cannot reach sip:2000@phone.example: the name leads to no address"));
  ExpectNothingReadsAsIfSomebodyHadAnswered();
}

TEST_F(SipReason, CalleeThatAnswers503OrRunsOutOfTimeIsOneThatRefuses) {
  for (int status : {408, 503}) {
    bob_.Reply(CallBob(), status);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    alice_.SendAck(*response);
    EXPECT_TRUE(NoLegsLeft());
    EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "Refused: " + std::to_string(status) + " Whatever"));
  }
  EXPECT_FALSE(Logged(SWITCH_LOG_WARNING, "Cannot reach"));
}

TEST_F(SipReason, OfARefusalReachesTheCaller) {
  bob_.Reply(CallBob(), 480, "Reason: Q.850;cause=20;text=\"gone\"\n");
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.SendAck(*response);
  EXPECT_EQ(response->Status(), 480);
  EXPECT_EQ(response->Header("Reason"), "Q.850;cause=20;text=\"SUBSCRIBER_ABSENT\"");
}

TEST_F(SipReason, OfACancelReachesTheCallee) {
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  alice_.SendCancel("Reason: SIP;cause=200;text=\"Call completed elsewhere\"\n");
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  EXPECT_EQ(cancel->Header("Reason"), "SIP;cause=200;text=\"Call completed elsewhere\"");
  bob_.Reply(*cancel, 200);
  bob_.Reply(bobs_invite_, 487);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "Hung up by the calling side: LOSE_RACE (702), unanswered"));
}

TEST_F(SipReason, Q850CountsBeforeSipWhateverTheOrder) {
  for (const char* headers :
       {"Reason: SIP;cause=486\nReason: Q.850;cause=41\n", "Reason: Q.850;cause=41, SIP;cause=486\n"}) {
    ConnectToBob();
    alice_.SendBye(headers);
    std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=41;text=\"NORMAL_TEMPORARY_FAILURE\"");
    bob_.Reply(*bye, 200);
    EXPECT_TRUE(NoLegsLeft());
  }
}

TEST_F(SipReason, OfSipInAByeIsTakenUnlessItSaysNothing) {
  const struct {
    const char* header;
    const char* passed_on;
  } kCases[] = {{"Reason: SIP;cause=503;text=\"x\"\n", "Q.850;cause=41;text=\"NORMAL_TEMPORARY_FAILURE\""},
                {"Reason: SIP;cause=200;text=\"User triggered\"\n", "Q.850;cause=16;text=\"NORMAL_CLEARING\""},
                {"Reason: Q.850;cause=999\n", "Q.850;cause=16;text=\"NORMAL_CLEARING\""},
                {"Reason: nonsense\n", "Q.850;cause=16;text=\"NORMAL_CLEARING\""}};
  for (const auto& [header, passed_on] : kCases) {
    ConnectToBob();
    alice_.SendBye(header);
    std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    EXPECT_EQ(bye->Header("Reason"), passed_on) << header;
    bob_.Reply(*bye, 200);
    EXPECT_TRUE(NoLegsLeft());
  }
}

// What the media server's module does when RTP stays out or a server is lost: both legs of a call that is up get BYE,
// those of one that is not get a refusal and CANCEL, all with the cause.
TEST_F(SipReason, LostMediaOfARingingCallRefusesTheCallerAndCancelsTheCallee) {
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  switch_core_session_hupall(SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  std::optional<SipMessage> refused = alice_.AwaitResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->Status(), 502);
  EXPECT_EQ(refused->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
  alice_.SendAck(*refused);
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  EXPECT_EQ(cancel->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
}

}  // namespace
}  // namespace kvx_switch
