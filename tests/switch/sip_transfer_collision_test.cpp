// Transfers that meet: both far ends of a call ask for one, or an operator does at the same time.

#include <switch.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>

#include "core/session.h"
#include "sip/call_leg.h"
#include "sip/leg_control.h"
#include "sip_transfer_fixture.h"

namespace kvx_switch {
namespace {

constexpr const char* kTrying = "SIP/2.0 100 Trying";
constexpr const char* kDone = "SIP/2.0 200 OK, the last";
constexpr const char* kPending = "SIP/2.0 491 Request Pending, the last";
const std::string kUlaw = SipPeer::Sdp("0");

class SipTransferCollision : public SipTransfer {
 protected:
  bool BecomesLogged(const std::string& part, size_t times) const {
    for (int tries = 0; tries < 2000; ++tries) {
      const std::vector<test_support::LogLine> lines = log_->Lines();
      const auto count = std::count_if(lines.begin(), lines.end(), [&part](const test_support::LogLine& line) {
        return line.text.find(part) != std::string::npos;
      });
      if (static_cast<size_t>(count) >= times) return true;
      switch_sleep(5000);
    }
    return false;
  }

  static bool OneLegIsLeft() {
    for (int tries = 0; tries < 6000; ++tries) {
      if (ListSessions().size() <= 1) return true;  // the last one may end as soon as somebody else has seen it alone
      switch_sleep(5000);
    }
    return false;
  }
};

TEST_F(SipTransferCollision, OfTwoThatSendEachOtherOnOneIsRefused) {
  ConnectToBob(kUlaw);
  std::promise<void> both_asked;
  media_->OnCall("A unbridge", [asked = both_asked.get_future().share()] { asked.wait_for(std::chrono::seconds(30)); });
  alice_.SendInCall("REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(alice_), 202);
  ASSERT_TRUE(BecomesLogged("asked for by the far end", 1));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  ASSERT_TRUE(BecomesLogged("asked for by the far end", 2));
  both_asked.set_value();
  SipMessage invite = AnswerAt(carol_);
  EXPECT_THAT(invite.Header("From"), testing::HasSubstr("<sip:2000@")) << "bob is sent on by alice";
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kPending);
  EXPECT_EQ(NextNotify(alice_), kTrying);
  EXPECT_EQ(NextNotify(alice_), kDone);
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "The transfer is refused with 491: the other side is going elsewhere"));
  EXPECT_TRUE(carol_.StaysSilent("INVITE", std::chrono::milliseconds(100)));
  carol_.SendByeAsCalled(invite);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipTransferCollision, OneThatComesWhileThePartnerGoesElsewhereIsRefused) {
  ConnectToBob(kUlaw);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  alice_.SendInCall("REFER", ReferTo("2000"));
  EXPECT_EQ(NextNotify(alice_), kTrying);
  EXPECT_EQ(NextNotify(alice_), kPending);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("2000"));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kTrying) << "of the second";
  EXPECT_EQ(NextNotify(bob_), kPending) << "of the second, too";
  carol_.Reply(*invite, 200, "", kUlaw);
  EXPECT_TRUE(carol_.AwaitRequest("ACK"));
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  alice_.SendBye();
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

// Alice has two calls and would join their far ends; carol, in the second, sends her elsewhere before the first has
// given up its partner.
TEST_F(SipTransferCollision, AnAttendedOneThatLosesLeavesTheOtherCallAsItWas) {
  SipMessage to_bob = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  const std::string first_call = alice_.Replaces();
  SipMessage to_carol = Connect(alice_, "3000", carol_, kUlaw, kUlaw);
  std::promise<void> reached, released;
  std::atomic<int> calls{0};
  media_->OnCall("A unbridge", [&] {
    if (calls++ > 0) return;
    reached.set_value();
    released.get_future().wait_for(std::chrono::seconds(30));
  });
  alice_.SendInCall("REFER", ReferTo("2000", first_call));
  ASSERT_EQ(reached.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  carol_.SendInCallAsCalled(to_carol, "REFER", ReferTo("2000"));
  std::optional<SipMessage> second = bob_.AwaitRequest("INVITE");
  released.set_value();
  ASSERT_TRUE(second) << "alice's second leg is on its way";
  EXPECT_EQ(NextNotify(alice_), kTrying);
  EXPECT_EQ(NextNotify(alice_), kPending);
  EXPECT_TRUE(media_->WaitFor("A bridge", 3)) << "alice's first call is back";
  bob_.Reply(*second, 486);
  EXPECT_EQ(NextNotify(carol_), kTrying);
  EXPECT_EQ(NextNotify(carol_), "SIP/2.0 486 Busy Here, the last");
  EXPECT_TRUE(media_->WaitFor("A bridge", 4)) << "and so is her second";
  carol_.SendByeAsCalled(to_carol);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(alice_), "none");
  bob_.SendByeAsCalled(to_bob);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipTransferCollision, WhoIsAskedToPartAndLeftIsHungUp) {
  ConnectToBob(kUlaw);
  // Alice's leg is stopped in the middle for so long that bob's does not wait for it any more.
  media_->OnCall("A bridge", [] { OneLegIsLeft(); });
  bob_.SendReinviteAsCalled(bobs_invite_, SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> held = bob_.AwaitResponse();
  ASSERT_TRUE(held);
  bob_.AckReinviteAsCalled(bobs_invite_, *held);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  ASSERT_TRUE(BecomesLogged("asked for by the far end", 1));
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_TRUE(OneLegIsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "The leg that bridged did not undo the bridge in time"));
  EXPECT_NE(ByeAt(alice_), "none") << "she has nobody to talk to, and nobody is coming";
  EXPECT_TRUE(NoLegsLeft());
}

// Alice's leg is sent elsewhere; what is asked of it for bob's sake comes behind that.
TEST_F(SipTransferCollision, AWishForAPartnerThatHasGoneIsPassedOver) {
  ConnectToBob(kUlaw);
  const std::string alices = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
  const std::string bobs = LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND);
  media_->OnCall("A bridge", [alices, bobs] {
    CallLeg::Post(alices, [](CallLeg& leg) { leg.Redirect({Destination{"3000", "default", {}}, std::nullopt}); });
    // "own" is bob's leg; for alice's it is the partner.
    AskLeg(bobs, [](CallLeg& leg) { return leg.Redirect({std::nullopt, Destination{"9999", "default", {}}}); });
  });
  bob_.SendReinviteAsCalled(bobs_invite_, SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> held = bob_.AwaitResponse();
  ASSERT_TRUE(held);
  bob_.AckReinviteAsCalled(bobs_invite_, *held);
  EXPECT_NE(ByeAt(bob_), "none");
  media_->OnCall("A bridge", nullptr);
  AnswerAt(carol_);
  EXPECT_TRUE(media_->WaitFor("A bridge", 3)) << "alice talks to carol";
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "Not transferred: the leg is not bridged"));
  alice_.SendBye();
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

}  // namespace
}  // namespace kvx_switch
