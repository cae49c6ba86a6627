#include <switch.h>

#include "core/session.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

using SipCallEnd = SipCall;

TEST_F(SipCallEnd, CancelReachesTheCalledSide) {
  bob_.Reply(CallBob(), 180);
  EXPECT_EQ(alice_.AwaitResponse()->Status(), 180);
  alice_.SendCancel();
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  EXPECT_EQ(cancel->Header("Reason"), "SIP;cause=487;text=\"ORIGINATOR_CANCEL\"");
  bob_.Reply(*cancel, 200);
  bob_.Reply(bobs_invite_, 487);
  EXPECT_EQ(alice_.AwaitResponse()->Status(), 487);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 1u);
  EXPECT_EQ(media_->Count("A bridge"), 0u);
}

TEST_F(SipCallEnd, AnswerThatCrossesOurCancelIsTakenDown) {
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  alice_.SendCancel();
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  bob_.Reply(bobs_invite_, 200, "", SipPeer::Sdp("0"));
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EXPECT_TRUE(bob_.AwaitRequest("BYE"));
}

TEST_F(SipCallEnd, RefusalsReachTheCallerAsTheyStand) {
  for (int status : {404, 480, 486, 500, 600, 603}) {
    SipMessage invite = CallBob();
    bob_.Reply(invite, status);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), status);
    alice_.SendAck(*response);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    EXPECT_TRUE(NoLegsLeft());
  }
}

TEST_F(SipCallEnd, BusyComesWithItsCause) {
  bob_.Reply(CallBob(), 486);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.SendAck(*response);
  EXPECT_EQ(response->Header("Reason"), "Q.850;cause=17;text=\"USER_BUSY\"");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "Hung up by the called side: USER_BUSY (17), unanswered"));
}

TEST_F(SipCallEnd, ChallengesAndRedirectionsAreNotPassedOn) {
  for (int status : {302, 401, 407}) {
    bob_.Reply(CallBob(), status, status == 302 ? "" : "WWW-Authenticate: Digest realm=\"x\", nonce=\"y\"\n");
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    alice_.SendAck(*response);
    EXPECT_EQ(response->Status(), status == 302 ? 410 : 603);
    EXPECT_TRUE(NoLegsLeft());
  }
}

TEST_F(SipCallEnd, RingingPassesOnOnce) {
  SipMessage invite = CallBob();
  bob_.Reply(invite, 183);
  std::optional<SipMessage> progress = alice_.AwaitResponse();
  ASSERT_TRUE(progress);
  EXPECT_EQ(progress->Status(), 183);
  EXPECT_EQ(progress->body, "");
  bob_.Reply(invite, 180);
  EXPECT_EQ(alice_.AwaitResponse()->Status(), 180);
  bob_.Reply(invite, 180, "X-Again: yes\n");
  EXPECT_TRUE(alice_.StaysSilent("INVITE", std::chrono::milliseconds(200)));
}

TEST_F(SipCallEnd, NoAnswerCancelsAndSaysSo) {
  Profile("<param name=\"leg-timeout\" value=\"1\"/>");
  StopSipSide();
  StartSipSide();
  bob_.Reply(CallBob(), 180);
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  EXPECT_EQ(cancel->Header("Reason"), "Q.850;cause=19;text=\"NO_ANSWER\"");
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 480);
  EXPECT_EQ(response->Header("Reason"), "Q.850;cause=19;text=\"NO_ANSWER\"");
  alice_.SendAck(*response);
  EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "No answer within 1 s"));
}

TEST_F(SipCallEnd, ReasonOfABYEReachesTheOtherSide) {
  ConnectToBob();
  alice_.SendBye("Reason: Q.850;cause=41;text=\"x\"\n");
  std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=41;text=\"NORMAL_TEMPORARY_FAILURE\"");
}

TEST_F(SipCallEnd, HangUpFromAnotherThreadEndsBothLegsWithItsCause) {
  for (switch_call_direction_t direction : {SWITCH_CALL_DIRECTION_INBOUND, SWITCH_CALL_DIRECTION_OUTBOUND}) {
    ConnectToBob();
    switch_core_session_t* session = switch_core_session_locate(LegUuid(direction).c_str());
    ASSERT_TRUE(session);
    switch_channel_hangup(switch_core_session_get_channel(session), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
    switch_core_session_rwunlock(session);
    for (SipPeer* phone : {&alice_, &bob_}) {
      std::optional<SipMessage> bye = phone->AwaitRequest("BYE");
      ASSERT_TRUE(bye);
      EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
      phone->Reply(*bye, 200);
    }
    EXPECT_TRUE(NoLegsLeft());
  }
}

TEST_F(SipCallEnd, HangUpOfTheCalledLegBeforeTheBridgeKeepsItsCause) {
  media_->OnCall("A get_media", [this] {
    switch_core_session_t* session = switch_core_session_locate(LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND).c_str());
    ASSERT_TRUE(session);
    switch_channel_hangup(switch_core_session_get_channel(session), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
    switch_core_session_rwunlock(session);
  });
  bob_.Reply(CallBob(), 200, "", SipPeer::Sdp("0"));
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.SendAck(*response);
  std::optional<SipMessage> bye = alice_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
}

TEST_F(SipCallEnd, HangUpWhileRingingRefusesTheCaller) {
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  switch_core_session_hupall(SWITCH_CAUSE_SYSTEM_SHUTDOWN);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 503);
  EXPECT_EQ(response->Header("Reason"), "Q.850;cause=31;text=\"SYSTEM_SHUTDOWN\"");
  EXPECT_TRUE(bob_.AwaitRequest("CANCEL"));
}

TEST_F(SipCallEnd, BadAnswerEndsTheCallOnBothSides) {
  for (const std::string& answer : {std::string("v=0\nnonsense\n"), SipPeer::Sdp("18"),
                                    std::string("v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nm=audio 0 RTP/AVP 0\n")}) {
    bob_.Reply(CallBob(), 200, "", answer);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye) << answer;
    bob_.Reply(*bye, 200);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), 488);
    alice_.SendAck(*response);
    EXPECT_TRUE(NoLegsLeft());
  }
  EXPECT_EQ(media_->Count("A destroy"), media_->Count("A create"));
  EXPECT_EQ(media_->Count("B destroy"), media_->Count("B create"));
}

class SipCallMediaFailure : public SipCall, public testing::WithParamInterface<const char*> {};

TEST_P(SipCallMediaFailure, EndsBothLegsEachDestroyedOnce) {
  const std::string failing = GetParam();
  media_->Refuse(failing);
  alice_.SendInvite("2000", SipPeer::Sdp("0 8"));
  if (failing == "B set_media" || failing == "A get_media" || failing == "A bridge") {
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    ASSERT_TRUE(invite);
    bob_.Reply(*invite, 200, "", SipPeer::Sdp("0"));
    ASSERT_TRUE(bob_.AwaitRequest("ACK"));
    std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    bob_.Reply(*bye, 200);
  }
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.SendAck(*response);
  if (failing == "A bridge") {
    EXPECT_EQ(response->Status(), 200);
    EXPECT_TRUE(alice_.AwaitRequest("BYE"));
  } else {
    EXPECT_EQ(response->Status(), 503);
  }
  EXPECT_TRUE(NoLegsLeft());
  // A leg that could not be created has nothing to destroy.
  EXPECT_EQ(media_->Count("A destroy"), failing == "A create" ? 0u : media_->Count("A create"));
  EXPECT_EQ(media_->Count("B destroy"), failing == "B create" ? 0u : media_->Count("B create"));
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The media server refused"));

  // The next call is not touched by it.
  EXPECT_EQ(switch_core_session_count(), 0u);
}

INSTANTIATE_TEST_SUITE_P(EveryCallback, SipCallMediaFailure,
                         testing::Values("A create", "A set_media", "B create", "B get_media", "B set_media",
                                         "A get_media", "A bridge"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           std::string name = info.param;
                           name[1] = '_';
                           return name;
                         });

TEST_F(SipCallEnd, FailingEndCallbacksDoNotHoldTheCallUp) {
  for (const char* failing : {"A unbridge", "A destroy", "B destroy"}) media_->Refuse(failing);
  ConnectToBob();
  EndCall();
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 1u);
}

}  // namespace
}  // namespace kvx_switch
