// What the switch refuses to take on: too many calls, too large messages, callers who may not.
#include <switch.h>

#include "core/session_rate.h"
#include "sip/message_limits.h"
#include "sip/sip_front.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

class SipLimits : public SipCall {
 protected:
  void TearDown() override {
    SessionRate::Get().Reset();
    SipCall::TearDown();
  }

  void Restart() {
    StopSipSide();
    StartSipSide();
  }

  void AccessLists(const std::string& lists) {
    directory_.Write("autoload_configs/acl.conf.xml",
                     "<configuration name=\"acl.conf\"><network-lists>" + lists + "</network-lists></configuration>");
  }

  /// Bob is reached and refuses.
  void ExpectCallReachesBob() {
    EXPECT_TRUE(NoLegsLeft());
    bob_.Reply(CallBob(), 486);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), 486);
    alice_.SendAck(*response);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  }
};

TEST_F(SipLimits, CallBeyondMaxSessionsIs503WithRetryAfter) {
  int32_t most = 2;
  ASSERT_EQ(switch_core_session_ctl(SCSC_MAX_SESSIONS, &most), 2);
  ConnectToBob();
  SipPeer carol;
  carol.Use(SipAddress());
  carol.SendInvite("2000", SipPeer::Sdp());
  std::optional<SipMessage> refused = carol.AwaitResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->Status(), 503);
  EXPECT_EQ(refused->Header("Retry-After"), "5");
  EXPECT_EQ(refused->Header("Reason"), "Q.850;cause=42;text=\"SWITCH_CONGESTION\"");
  carol.SendAck(*refused);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "No new leg: there are 2 of at most 2 legs"));
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Call to 2000 refused with 503: no session (call-id call-1-"));
  EndCall();
  ExpectCallReachesBob();
}

TEST_F(SipLimits, CallWithoutRoomForItsSecondLegIs503WithRetryAfter) {
  int32_t most = 1;
  ASSERT_EQ(switch_core_session_ctl(SCSC_MAX_SESSIONS, &most), 1);
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 503);
  EXPECT_EQ(refused.Header("Retry-After"), "5");
}

TEST_F(SipLimits, RefusalsOfTheCalledSideCarryNoRetryAfter) {
  bob_.Reply(CallBob(), 503);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 503);
  EXPECT_EQ(response->Header("Retry-After"), "");
  alice_.SendAck(*response);
}

TEST_F(SipLimits, CallBeyondSessionsPerSecondIs503WithRetryAfter) {
  // Four legs within the second, however slowly this test runs: they are counted here.
  SessionRate::Get().SetLimit(4);
  const auto now = std::chrono::steady_clock::now();
  for (int leg = 0; leg < 4; ++leg) SessionRate::Get().Count(now + std::chrono::hours(1));
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 503);
  EXPECT_EQ(refused.Header("Retry-After"), "5");
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "No new leg: there were 4 new legs within a second, at most 4 may be"));
  SessionRate::Get().Reset();
  ExpectCallReachesBob();
}

TEST_F(SipLimits, SecondLegCountsButIsNotRefused) {
  SessionRate::Get().SetLimit(1);
  ExpectCallReachesBob();
  EXPECT_EQ(SessionRate::Get().At(std::chrono::steady_clock::time_point{}).peak, 2u);
}

TEST_F(SipLimits, LargeBodyIs513) {
  const SipMessage refused =
      CallAndBeRefused("2000", SipPeer::Sdp("0", "a=x-filler:" + std::string(kLargestBody, 'x') + "\n"));
  EXPECT_EQ(refused.Status(), 513);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "INVITE from 127.0.0.1 refused with 513: a body of 3"));
  EXPECT_EQ(switch_core_session_count(), 0u);
  ExpectCallReachesBob();
}

TEST_F(SipLimits, LargeHeadersAre513) {
  const SipMessage refused =
      CallAndBeRefused("2000", SipPeer::Sdp(), "X-Filler: " + std::string(kLargestHeaders, 'x') + "\n");
  EXPECT_EQ(refused.Status(), 513);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "INVITE from 127.0.0.1 refused with 513: headers of 1"));
  ExpectCallReachesBob();
}

TEST_F(SipLimits, ManyHeadersAreBoundedByTheirBytes) {
  std::string headers;
  for (int i = 0; i < 3000; ++i) headers += "X-" + std::to_string(i) + ": y\n";
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp(), headers).Status(), 513);
  ExpectCallReachesBob();
}

TEST_F(SipLimits, MessagesWithinTheLimitsAreTaken) {
  bob_.Reply(CallBob(SipPeer::Sdp("0", "a=x-filler:" + std::string(kLargestBody - 1024, 'x') + "\n")), 486);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 486);
  alice_.SendAck(*response);
}

TEST_F(SipLimits, AccessListRefusesWith403AndNamesTheAddress) {
  AccessLists("<list name=\"lan\" default=\"deny\"><node type=\"allow\" cidr=\"10.0.0.0/8\"/></list>");
  Profile("<param name=\"apply-inbound-acl\" value=\"lan\"/>");
  Restart();
  const SipMessage refused = CallAndBeRefused("2000", SipPeer::Sdp());
  EXPECT_EQ(refused.Status(), 403);
  EXPECT_EQ(refused.Header("Reason"), "Q.850;cause=21;text=\"CALL_REJECTED\"");
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING,
                     "IP 127.0.0.1 rejected by acl \"lan\": call to 2000 refused with 403 (call-id call-1-"));
  EXPECT_EQ(switch_core_session_count(), 0u);
  EXPECT_TRUE(media_->Calls().empty());
}

TEST_F(SipLimits, AccessListLetsItsOwnIn) {
  AccessLists("<list name=\"lan\" default=\"deny\"><node type=\"allow\" cidr=\"127.0.0.0/8\"/></list>");
  Profile("<param name=\"apply-inbound-acl\" value=\"lan\"/>");
  Restart();
  ExpectCallReachesBob();
}

TEST_F(SipLimits, AccessListIsReadAnewOrStaysAsItWas) {
  AccessLists("<list name=\"lan\" default=\"deny\"/>");
  Profile("<param name=\"apply-inbound-acl\" value=\"lan\"/>");
  Restart();
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 403);
  AccessLists("<list name=\"other\" default=\"allow\"/>");
  const char* what = "";
  EXPECT_NE(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(what, HasSubstr("internal.xml:1: \"apply-inbound-acl\" is \"lan\", a list that is not in "));
  EXPECT_THAT(what, testing::EndsWith("acl.conf.xml; the access lists stay as they were"));
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 403);
  AccessLists("<list name=\"lan\" default=\"allow\"/>");
  EXPECT_EQ(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS) << what;
  ExpectCallReachesBob();
}

TEST_F(SipLimits, SettingsThatContradictEachOtherAreWarnedOf) {
  Profile(
      "\n<param name=\"session-timeout\" value=\"60\"/>\n<param name=\"minimum-session-expires\" value=\"89\"/>"
      "\n<param name=\"sid\" value=\"true\"/>\n<param name=\"sid\" value=\"false\"/>");
  Restart();
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING,
                     "internal.xml:2: \"session-timeout\" is 60, less than the 89 of \"minimum-session-expires\""));
  EXPECT_TRUE(
      Logged(SWITCH_LOG_WARNING, "internal.xml:3: \"minimum-session-expires\" is 89, less than the 90 of RFC 4028"));
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "internal.xml:5: \"sid\" stands here again; the last counts"));
}

TEST_F(SipLimits, MistakesInTheAccessListsFailTheStart) {
  StopSipSide();
  std::string error;
  directory_.Write("sip_profiles/internal.xml",
                   "<profile name=\"internal\"><settings><param name=\"apply-inbound-acl\" value=\"lan\"/>"
                   "</settings></profile>");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("internal.xml:1: \"apply-inbound-acl\" is \"lan\", a list that is not in "));
  AccessLists("\n<list name=\"lan\" default=\"perhaps\"/>");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("acl.conf.xml:2: \"default\" of \"list\" is \"perhaps\", not \"allow\" or \"deny\""));
}

}  // namespace
}  // namespace kvx_switch
