// What the called side plays before it answers.

#include <switch.h>

#include <algorithm>

#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class SipEarlyMedia : public SipCall {
 protected:
  /// Bob plays something; alice's provisional response that says so.
  SipMessage Play(const std::string& sdp = SipPeer::Sdp("0")) {
    bob_.Reply(CallBob(), 183, "", sdp);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response);
    return response.value_or(SipMessage{});
  }

  /// Bob answers; alice's 200, acknowledged.
  SipMessage Answer(const std::string& sdp) {
    bob_.Reply(bobs_invite_, 200, "", sdp);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response);
    if (!response) return {};
    alice_.SendAck(*response);
    return *response;
  }

  /// Until bob's leg has been hung up: a moment at which nothing can be joined with it any more.
  void WaitUntilBobsLegIsDown() {
    for (int tries = 0; tries < 1000; ++tries) {
      if (VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "direction") == "no leg") return;
      switch_sleep(5000);
    }
  }
};

TEST_F(SipEarlyMedia, IsHeardBeforeTheAnswer) {
  SipMessage progress = Play();
  EXPECT_EQ(progress.Status(), 183);
  EXPECT_THAT(progress.body, HasSubstr("m=audio "));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_THAT(media_->Calls(), ElementsAre("A create", "A set_media", "B create", "B get_media", "B set_media",
                                           "A get_media", "A bridge"));
  SipMessage answer = Answer(SipPeer::Sdp("0"));
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_EQ(answer.body, progress.body) << "the caller is told the same twice";
  EXPECT_EQ(media_->Count("A bridge"), 1u);
  EXPECT_EQ(media_->Count("B set_media"), 1u) << "the answer says nothing new";
  EndCall();
}

TEST_F(SipEarlyMedia, AnAnswerThatSaysSomethingElseIsTaken) {
  Play();
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  std::string moved = SipPeer::Sdp("0");
  moved.replace(moved.find("40000"), 5, "45678");
  EXPECT_EQ(Answer(moved).Status(), 200);
  EXPECT_TRUE(media_->WaitFor("B set_media", 2));
  EXPECT_EQ(media_->Of("B set_media").address, "127.0.0.1:45678/0");
  EndCall();
}

TEST_F(SipEarlyMedia, TheAnswerMayLeaveOutWhatWasSaid) {
  Play();
  EXPECT_EQ(Answer("").Status(), 200);
  EndCall();
}

TEST_F(SipEarlyMedia, IsTakenOnceAndRingingGoesOn) {
  Play();
  bob_.Reply(bobs_invite_, 180);
  bob_.Reply(bobs_invite_, 183, "", SipPeer::Sdp("0"));
  EXPECT_EQ(Answer(SipPeer::Sdp("0")).Status(), 200);
  EXPECT_EQ(media_->Count("A bridge"), 1u);
  EndCall();
}

TEST_F(SipEarlyMedia, RefusalAfterItReachesTheCallerWithItsStatus) {
  Play();
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  bob_.Reply(bobs_invite_, 486);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 486);
  alice_.SendAck(*response);
  EXPECT_TRUE(NoLegsLeft());
  const std::vector<std::string> calls = media_->Calls();
  const auto unbridge = std::find(calls.begin(), calls.end(), "A unbridge");
  EXPECT_NE(unbridge, calls.end());
  EXPECT_NE(std::find(unbridge, calls.end(), "B destroy"), calls.end()) << "the bridge is undone first";
}

TEST_F(SipEarlyMedia, CancellingItEndsBothLegs) {
  Play();
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  alice_.SendCancel();
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 487);
  alice_.SendAck(*response);
  EXPECT_TRUE(bob_.AwaitRequest("CANCEL"));
  bob_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipEarlyMedia, OneThatCannotBeUsedIsPassedOver) {
  EXPECT_EQ(Play(SipPeer::Sdp("18")).Status(), 183);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The answer takes none of the offered codecs"));
  EXPECT_EQ(Answer(SipPeer::Sdp("0")).Status(), 200);
  EndCall();
}

TEST_F(SipEarlyMedia, ARefusalRightBehindItKeepsItsStatus) {
  media_->OnCall("A get_media", [this] { WaitUntilBobsLegIsDown(); });
  CallBob();
  bob_.Reply(bobs_invite_, 183, "", SipPeer::Sdp("0"));
  bob_.Reply(bobs_invite_, 486);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  while (response && response->Status() < 200) response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 486);
  alice_.SendAck(*response);
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipEarlyMedia, AnAnswerInAnotherCodecEndsTheCall) {
  bob_.Reply(CallBob(SipPeer::Sdp("0 18")), 183, "", SipPeer::Sdp("18"));
  std::optional<SipMessage> progress = alice_.AwaitResponse();
  ASSERT_TRUE(progress);
  EXPECT_EQ(progress->Status(), 183);
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(Answer(SipPeer::Sdp("0")).Status(), 488);
  std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  bob_.Reply(*bye, 200);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The called side answered with another codec than the caller was told before"));
}

TEST_F(SipEarlyMedia, AnAnswerInAnotherDirectionTurnsTheBridge) {
  Play(SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_SEND);
  EXPECT_EQ(Answer(SipPeer::Sdp("0", "a=sendrecv\n")).Status(), 200);
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
