#include <switch.h>

#include "sip_applications_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

class SipBridgeFailover : public SipApplications {};

TEST_F(SipBridgeFailover, NextTargetIsCalledWhenOneFails) {
  Start(Action("bridge", "{both=x}[note=of bob]" + Bob() + "|[note=of carol]" + Carol()));
  Dial();
  Refuses(bob_, 486);
  Answers(carol_);
  EXPECT_EQ(AliceHears(), 200);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "note"), "of carol");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "both"), "x");
  AliceHangsUp();
  Confirm(carol_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipBridgeFailover, LastFailureIsWhatTheCallerHears) {
  Start(Action("bridge", Bob() + "|" + Carol()));
  Dial();
  Refuses(bob_, 486);
  Refuses(carol_, 404);
  EXPECT_EQ(AliceHears(), 404);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A bridge"), 0u);
}

TEST_F(SipBridgeFailover, ATargetThatOnlyRingsIsLeftAfterItsOwnTime) {
  Start(Action("bridge", "[leg_timeout=1]" + Bob() + "|" + Carol()));
  Dial();
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 180);
  Confirm(bob_, "CANCEL");
  bob_.Reply(*invite, 487);
  Answers(carol_);
  EXPECT_EQ(AliceHears(), 200);
}

TEST_F(SipBridgeFailover, OriginateTimeoutIsForAllTargetsTogether) {
  Start(Action("bridge", "{originate_timeout=1}" + Bob() + "|" + Carol()));
  Dial();
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 180);
  Confirm(bob_, "CANCEL");
  bob_.Reply(*invite, 487);
  EXPECT_EQ(AliceHears(), 480);
  EXPECT_TRUE(carol_.StaysSilent("INVITE", std::chrono::milliseconds(100)));
}

TEST_F(SipBridgeFailover, NobodyElseIsCalledAfterTheCallerHasGone) {
  Start(Action("bridge", Bob() + "|" + Carol()));
  Dial();
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 180);
  ASSERT_TRUE(alice_.AwaitResponse());
  alice_.SendCancel();
  Confirm(bob_, "CANCEL");
  bob_.Reply(*invite, 487);
  EXPECT_EQ(AliceHears(), 487);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(carol_.StaysSilent("INVITE", std::chrono::milliseconds(100)));
}

TEST_F(SipBridgeFailover, EarlyMediaOfAFailedTargetBindsTheNextOneToItsCodec) {
  Start(Action("bridge", Bob() + "|" + Carol()));
  Dial(SipPeer::Sdp("0 8"));
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 183, "", SipPeer::Sdp("8"));
  std::optional<SipMessage> early = alice_.AwaitResponse();
  ASSERT_TRUE(early);
  EXPECT_EQ(early->Status(), 183);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  bob_.Reply(*invite, 486);
  const SipMessage carols = Answers(carol_, SipPeer::Sdp("8"));
  EXPECT_THAT(carols.body, HasSubstr("RTP/AVP 8\r\n"));
  std::optional<SipMessage> answer = alice_.AwaitResponse();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Status(), 200);
  EXPECT_EQ(answer->body, early->body);
  alice_.SendAck(*answer);
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
}

TEST_F(SipBridgeFailover, DialplanGoesOnAfterACauseThatItNames) {
  Start(Action("set", "continue_on_fail=USER_BUSY,NO_ANSWER") + Action("bridge", Bob()) +
        Action("log", "INFO failed with ${originate_disposition}") + Action("hangup", "UNALLOCATED_NUMBER"));
  Dial();
  Refuses(bob_, 486);
  EXPECT_EQ(AliceHears(), 404);
  EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "failed with USER_BUSY"));
  EXPECT_TRUE(NoLegsLeft());
  Dial();
  Refuses(bob_, 603);
  EXPECT_EQ(AliceHears(), 603) << "not a cause that was named";
}

TEST_F(SipBridgeFailover, DialplanGoesOnAfterAnyCauseWhenToldSo) {
  Start(Action("set", "continue_on_fail=true") + Action("bridge", Bob()) + Action("bridge", Carol()));
  Dial();
  Refuses(bob_, 603);
  Answers(carol_);
  EXPECT_EQ(AliceHears(), 200);
}

TEST_F(SipBridgeFailover, DialplanGoesOnWhenTheCalledSideHangsUp) {
  Start(Action("bridge", Bob()) + Action("log", "INFO bob ended with ${bridge_hangup_cause}") +
        Action("bridge", Carol()));
  Dial(SipPeer::Sdp("0 8"));
  bobs_invite_ = Answers(bob_);
  ASSERT_EQ(AliceHears(), 200);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  bob_.SendByeAsCalled(bobs_invite_);
  const SipMessage carols = Answers(carol_);
  EXPECT_THAT(carols.body, HasSubstr("RTP/AVP 0\r\n"));
  EXPECT_THAT(carols.body, Not(HasSubstr("PCMA"))) << "what alice was told stays";
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "bob ended with NORMAL_CLEARING"));
  AliceHangsUp();
  Confirm(carol_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipBridgeFailover, HangupAfterBridgeEndsTheCallerToo) {
  Start(Action("set", "hangup_after_bridge=true") + Action("bridge", Bob()) + Action("bridge", Carol()));
  TalkToBob();
  bob_.SendByeAsCalled(bobs_invite_);
  Confirm(alice_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(carol_.StaysSilent("INVITE", std::chrono::milliseconds(100)));
}

TEST_F(SipBridgeFailover, ATargetThatRefusesRightBehindItsEarlyMediaIsFollowedByTheNext) {
  Start(Action("bridge", Bob() + "|" + Carol()));
  media_->OnCall("A get_media", [this] {
    for (int tries = 0; tries < 1000; ++tries) {
      if (VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "direction") == "no leg") return;
      switch_sleep(5000);
    }
  });
  Dial();
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 183, "", SipPeer::Sdp("0"));
  bob_.Reply(*invite, 486);
  Answers(carol_);
  EXPECT_EQ(AliceHears(), 200);
  // The one with bob's leg could not be made.
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
}

}  // namespace
}  // namespace kvx_switch
