// Transfers to another call of the same phone, and calls that take the place of others: Replaces (RFC 3891).

#include <switch.h>

#include <chrono>
#include <future>

#include "sip_transfer_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

constexpr const char* kTrying = "SIP/2.0 100 Trying";
constexpr const char* kDone = "SIP/2.0 200 OK, the last";
const std::string kUlaw = SipPeer::Sdp("0");

using SipAttendedTransfer = SipTransfer;

TEST_F(SipAttendedTransfer, CallerAndCalledOfTwoCallsMeet) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  SipMessage second = Connect(bob_, "3000", carol_, kUlaw, kUlaw);
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("3000", bob_.Replaces()));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_NE(ByeAt(bob_), "none") << "both of bob's calls end";
  EXPECT_EQ(media_->Count("A bridge"), 3u);
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
  carol_.SendByeAsCalled(second);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_THAT(ByeAt(alice_), HasSubstr("Q.850;cause=16"));
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A destroy"), 2u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipAttendedTransfer, TwoCalledSidesMeet) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  const std::string first_call = alice_.Replaces();
  SipMessage second = Connect(alice_, "3000", carol_, kUlaw, kUlaw);
  alice_.SendInCall("REFER", ReferTo("2000", first_call));
  EXPECT_EQ(NextNotify(alice_), kTrying);
  EXPECT_EQ(NextNotify(alice_), kDone);
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_EQ(media_->Count("B bridge"), 1u);
  bob_.SendByeAsCalled(first);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
}

TEST_F(SipAttendedTransfer, TwoCallersMeet) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  SipMessage second = Connect(carol_, "2000", bob_, kUlaw, kUlaw);
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("2000", SipPeer::ReplacesAsCalled(second)));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_NE(ByeAt(bob_), "none");
  alice_.SendBye();
  EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A bridge"), 3u);
  EXPECT_EQ(media_->Count("A unbridge"), 3u);
}

TEST_F(SipAttendedTransfer, TheOtherCallEndingTellsTheRemainingSide) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  SipMessage second = Connect(carol_, "2000", bob_, kUlaw, kUlaw);
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("2000", SipPeer::ReplacesAsCalled(second)));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kDone);
  carol_.SendBye();
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(alice_), "none") << "carol's leg, a caller's, was the partner of alice's";
  bob_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipAttendedTransfer, ADialogThatIsNotOursIsReported) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("3000", "nobody;to-tag=1;from-tag=2"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 481 Call/Transaction Does Not Exist, the last");
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
}

TEST_F(SipAttendedTransfer, CallsWithoutACommonCodecStayAsTheyAre) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  SipMessage second = Connect(carol_, "2000", bob_, SipPeer::Sdp("18"), SipPeer::Sdp("18"));
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("2000", SipPeer::ReplacesAsCalled(second)));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 488 Not Acceptable Here, the last");
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "The transfer is refused with 488"));
}

TEST_F(SipAttendedTransfer, AMediaServerThatDoesNotJoinThemEndsBothCalls) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  SipMessage second = Connect(bob_, "3000", carol_, kUlaw, kUlaw);
  media_->Refuse("A bridge");
  bob_.SendInCallAsCalled(first, "REFER", ReferTo("3000", bob_.Replaces()));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 503 Service Unavailable, the last");
  for (SipPeer* peer : {&alice_, &carol_, &bob_, &bob_}) EXPECT_NE(ByeAt(*peer), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipAttendedTransfer, AnInviteTakesThePlaceOfTheCalledSide) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  carol_.SendInvite("2000", SipPeer::Sdp("8 0"), "Replaces: " + SipPeer::ReplacesAsCalled(first) + "\n");
  std::optional<SipMessage> response = carol_.AwaitResponse();
  ASSERT_TRUE(response && response->Status() == 200);
  carol_.SendAck(*response);
  EXPECT_THAT(response->body, HasSubstr("RTP/AVP 0\r\n")) << "what alice speaks";
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  alice_.SendBye();
  EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipAttendedTransfer, AnInviteTakesThePlaceOfTheCaller) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  carol_.SendInvite("2000", kUlaw, "Replaces: " + alice_.Replaces() + "\n");
  std::optional<SipMessage> response = carol_.AwaitResponse();
  ASSERT_TRUE(response && response->Status() == 200);
  carol_.SendAck(*response);
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  bob_.SendByeAsCalled(first);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipAttendedTransfer, AnInviteThatCannotTakeAPlaceIsRefused) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  const struct {
    std::string replaces;
    std::string sdp;
    int status;
  } kInvites[] = {{"nobody;to-tag=1;from-tag=2", kUlaw, 481},
                  {alice_.Replaces() + ";early-only", kUlaw, 486},
                  {alice_.Replaces(), SipPeer::Sdp("18"), 488}};
  for (const auto& invite : kInvites) {
    carol_.SendInvite("2000", invite.sdp, "Replaces: " + invite.replaces + "\n");
    std::optional<SipMessage> response = carol_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), invite.status) << invite.replaces;
    carol_.SendAck(*response);
  }
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
  EndCall();
}

TEST_F(SipAttendedTransfer, AnInviteThatIsCancelledWhileItTakesAPlaceGivesItBack) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  std::promise<void> cancelled;
  const std::shared_future<void> carol_gave_up = cancelled.get_future().share();
  // Alice's leg is about to part from bob's.
  media_->OnCall("A unbridge", [carol_gave_up] { carol_gave_up.wait_for(std::chrono::seconds(10)); });
  carol_.SendInvite("2000", kUlaw, "Replaces: " + SipPeer::ReplacesAsCalled(first) + "\n");
  for (int tries = 0; tries < 1000 && !Logged(SWITCH_LOG_INFO, "Takes the place of leg"); ++tries) switch_sleep(5000);
  carol_.SendCancel();
  for (int tries = 0; tries < 1000 && !Logged(SWITCH_LOG_INFO, "Cancelled by the calling side"); ++tries) {
    switch_sleep(5000);
  }
  cancelled.set_value();
  std::optional<SipMessage> response = carol_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 487);
  carol_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("B bridge", 1)) << "by bob's leg, whose place was to be taken";
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EndCall();
}

TEST_F(SipAttendedTransfer, AnInviteThatFailsWhenItHasThePlaceGivesItBack) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  media_->Refuse("A get_media");
  carol_.SendInvite("2000", kUlaw, "Replaces: " + SipPeer::ReplacesAsCalled(first) + "\n");
  std::optional<SipMessage> response = carol_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 503);
  carol_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EndCall();
}

TEST_F(SipAttendedTransfer, AnInviteThatTheMediaServerHasNoRoomForTouchesNothing) {
  SipMessage first = Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  media_->SetAvailable(false);
  carol_.SendInvite("2000", kUlaw, "Replaces: " + SipPeer::ReplacesAsCalled(first) + "\n");
  std::optional<SipMessage> response = carol_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 503);
  carol_.SendAck(*response);
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
