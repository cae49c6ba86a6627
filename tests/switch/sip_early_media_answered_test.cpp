// What a called side plays before it answers, to a caller that is answered already.

#include <switch.h>

#include "sip_applications_fixture.h"
#include "sip_transfer_fixture.h"

namespace kvx_switch {
namespace {

const std::string kUlaw = SipPeer::Sdp("0");

class SipEarlyMediaAnswered : public SipApplications {
 protected:
  /// Alice is answered, bob called and playing something; his INVITE.
  SipMessage BobPlays(const std::string& more_actions = "", const std::string& sdp = kUlaw) {
    Start(Action("answer") + Action("bridge", Bob()) + more_actions);
    Dial(kUlaw);
    EXPECT_EQ(AliceHears(), 200);
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    EXPECT_TRUE(invite);
    bobs_invite_ = invite.value_or(SipMessage{});
    bob_.Reply(bobs_invite_, 183, "", sdp);
    return bobs_invite_;
  }
};

TEST_F(SipEarlyMediaAnswered, IsHeard) {
  SipMessage invite = BobPlays();
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
  bob_.Reply(invite, 200, "", kUlaw);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EXPECT_TRUE(LogBecomes(SWITCH_LOG_NOTICE, "Answered: "));
  EndCall();
  EXPECT_EQ(media_->Count("A bridge"), 1u) << "the answer says nothing new";
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
}

TEST_F(SipEarlyMediaAnswered, FollowsTheAnswersDirection) {
  SipMessage invite = BobPlays("", SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_SEND);
  bob_.Reply(invite, 200, "", kUlaw);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
  EndCall();
}

TEST_F(SipEarlyMediaAnswered, IsLeftForTheNextTargetWhenItEndsInARefusal) {
  SipMessage invite = BobPlays("");
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  bob_.Reply(invite, 486);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  std::optional<SipMessage> bye = alice_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  EXPECT_THAT(bye->Header("Reason"), testing::HasSubstr("Q.850;cause=17"));
  alice_.Reply(*bye, 200);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
}

TEST_F(SipEarlyMediaAnswered, TheNextTargetIsHeardInItsTurn) {
  Start(Action("set", "continue_on_fail=true") + Action("answer") + Action("bridge", Bob() + "|" + Carol()));
  Dial(kUlaw);
  EXPECT_EQ(AliceHears(), 200);
  size_t bridges = 0;
  for (SipPeer* phone : {&bob_, &carol_}) {
    std::optional<SipMessage> invite = phone->AwaitRequest("INVITE");
    ASSERT_TRUE(invite);
    phone->Reply(*invite, 183, "", kUlaw);
    EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
    phone->Reply(*invite, 486);
    EXPECT_TRUE(phone->AwaitRequest("ACK"));
    EXPECT_TRUE(media_->WaitFor("A unbridge", bridges));
  }
  Confirm(alice_, "BYE");
}

TEST_F(SipEarlyMediaAnswered, AFaxThatIsAskedForMeanwhileIsRefused) {
  SipMessage invite = BobPlays();
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  alice_.SendReinvite(SipPeer::FaxSdp());
  std::optional<SipMessage> refusal = alice_.AwaitResponse();
  ASSERT_TRUE(refusal) << "left without an answer";
  EXPECT_EQ(refusal->Status(), 488);
  alice_.AckReinvite(*refusal);
  bob_.Reply(invite, 200, "", kUlaw);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EndCall();
}

using SipEarlyMediaTransferred = SipTransfer;

TEST_F(SipEarlyMediaTransferred, IsHeardByWhoWasSentOn) {
  ConnectToBob(kUlaw);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 100 Trying");
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 183, "", kUlaw);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 183 Session Progress");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  carol_.Reply(*invite, 200, "", kUlaw);
  EXPECT_TRUE(carol_.AwaitRequest("ACK"));
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 200 OK, the last");
  EXPECT_NE(ByeAt(bob_), "none");
  alice_.SendBye();
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A bridge"), 2u);
}

TEST_F(SipEarlyMediaTransferred, IsLeftWhenTheTargetRefuses) {
  ConnectToBob(kUlaw);
  alice_.SendInCall("REFER", ReferTo("3000"));
  EXPECT_EQ(NextNotify(alice_), "SIP/2.0 100 Trying");
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 183, "", kUlaw);
  EXPECT_EQ(NextNotify(alice_), "SIP/2.0 183 Session Progress");
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  carol_.Reply(*invite, 486);
  EXPECT_EQ(NextNotify(alice_), "SIP/2.0 486 Busy Here, the last");
  EXPECT_TRUE(media_->WaitFor("B bridge", 2)) << "back with alice";
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
