// Transfers to a number: REFER and what it leads to.

#include <switch.h>

#include <chrono>
#include <future>

#include "sip/sip_front.h"
#include "sip_transfer_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kTrying = "SIP/2.0 100 Trying";
constexpr const char* kDone = "SIP/2.0 200 OK, the last";

using SipBlindTransfer = SipTransfer;

TEST_F(SipBlindTransfer, TheCalledSideSendsTheCallerOn) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000") + "Referred-By: <sip:bob@example.com>\n");
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->Header("Referred-By"), HasSubstr("<sip:bob@example.com>"));
  EXPECT_THAT(invite->Header("From"), HasSubstr("<sip:alice@"));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  carol_.Reply(*invite, 180);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 180 Ringing");
  carol_.Reply(*invite, 200, "", SipPeer::Sdp("0"));
  EXPECT_TRUE(carol_.AwaitRequest("ACK"));
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_THAT(ByeAt(bob_), HasSubstr("Q.850;cause=16"));
  EXPECT_EQ(media_->Count("A bridge"), 2u);
  EXPECT_EQ(media_->Count("A create"), 1u);
  EXPECT_EQ(media_->Count("A get_media"), 1u) << "the caller's port stays";
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "sip_refer_to"), "sip:3000@" + SipAddress());
  alice_.SendBye();
  EXPECT_EQ(alice_.AwaitResponse("BYE")->Status(), 200);
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipBlindTransfer, TheCallerSendsTheCalledSideOn) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendInCall("REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(alice_), 202);
  EXPECT_EQ(NextNotify(alice_), kTrying);
  SipMessage invite = AnswerAt(carol_);
  EXPECT_THAT(invite.Header("From"), HasSubstr("<sip:2000@")) << "who calls carol is whom alice called";
  EXPECT_EQ(NextNotify(alice_), kDone);
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EXPECT_EQ(media_->Count("B unbridge"), 0u);
  carol_.SendByeAsCalled(invite);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_THAT(ByeAt(bob_), HasSubstr("Q.850;cause=16"));
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
}

TEST_F(SipBlindTransfer, WhoAskedMayLeaveAtOnce) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_EQ(bob_.AwaitResponse("BYE")->Status(), 200);
  SipMessage invite = AnswerAt(carol_);
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  alice_.SendBye();
  EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipBlindTransfer, TheCallerMayLeaveAtOnceToo) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendInCall("REFER", ReferTo("3000"));
  alice_.SendBye();
  EXPECT_EQ(AwaitReferResponse(alice_), 202);
  SipMessage invite = AnswerAt(carol_);
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipBlindTransfer, ABusyTargetLeadsBackToWhoAsked) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 486);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 486 Busy Here, the last");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_TRUE(bob_.StaysSilent("BYE", std::chrono::milliseconds(100)));
  EndCall();
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
}

TEST_F(SipBlindTransfer, ABusyTargetLeadsBackToTheCallerToo) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendInCall("REFER", ReferTo("3000"));
  EXPECT_EQ(NextNotify(alice_), kTrying);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 486);
  EXPECT_EQ(NextNotify(alice_), "SIP/2.0 486 Busy Here, the last");
  EXPECT_TRUE(media_->WaitFor("B bridge", 1)) << "the leg that went away and came back bridges now";
  EndCall();
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
}

TEST_F(SipBlindTransfer, ABusyTargetEndsWhoHasNobodyLeft) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  carol_.Reply(*invite, 486);
  EXPECT_THAT(ByeAt(alice_), HasSubstr("Q.850;cause=17"));
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipBlindTransfer, ANumberThatLeadsNowhereIsReported) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("9999"));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 404 Not Found, the last");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EndCall();
}

TEST_F(SipBlindTransfer, WhoIsSentOnMayHangUpWhileTheTargetRings) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 180);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 180 Ringing");
  alice_.SendBye();
  std::optional<SipMessage> cancel = carol_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  carol_.Reply(*cancel, 200);
  carol_.Reply(*invite, 487);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 487 Request Terminated, the last");
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipBlindTransfer, ACallCanBeSentOnAgainAndAgain) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  SipMessage invite = AnswerAt(carol_);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  carol_.SendInCallAsCalled(invite, "REFER", ReferTo("2000"));
  SipMessage again = AnswerAt(bob_);
  EXPECT_EQ(NextNotify(carol_), kTrying);
  EXPECT_EQ(NextNotify(carol_), kDone);
  EXPECT_NE(ByeAt(carol_), "none");
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  alice_.SendBye();
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 3u);
}

TEST_F(SipBlindTransfer, HoldingWorksAfterATransfer) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendInCall("REFER", ReferTo("3000"));
  SipMessage invite = AnswerAt(carol_);
  EXPECT_EQ(NextNotify(alice_), kTrying);
  EXPECT_EQ(NextNotify(alice_), kDone);
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  carol_.SendReinviteAsCalled(invite, SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> held = carol_.AwaitResponse();
  ASSERT_TRUE(held);
  carol_.AckReinviteAsCalled(invite, *held);
  EXPECT_TRUE(media_->WaitFor("B bridge", 2));
  EXPECT_EQ(media_->Of("B bridge").direction, RTPDIR_SEND) << "seen from bob's leg, which bridges";
}

TEST_F(SipBlindTransfer, WishesThatCannotBeMetLeaveTheCallAlone) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", "");
  EXPECT_EQ(AwaitReferResponse(bob_), 400);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", "Refer-To: <tel:+1234>\n");
  EXPECT_EQ(AwaitReferResponse(bob_), 400);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", "Refer-To: <sip:127.0.0.1>\n");
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 484 Address Incomplete, the last");
  EXPECT_EQ(media_->Count("A unbridge"), 0u);
  EndCall();
}

TEST_F(SipBlindTransfer, ReferOutsideACallIsForbidden) {
  carol_.SendRaw("REFER sip:2000@" + SipAddress() + " SIP/2.0\nVia: SIP/2.0/UDP " + carol_.Address() +
                 ";branch=z9hG4bK-r1;rport\nMax-Forwards: 70\nFrom: <sip:carol@" + carol_.Address() +
                 ">;tag=c\nTo: <sip:2000@" + SipAddress() + ">\nCall-ID: refer-" + carol_.Address() +
                 "\nCSeq: 1 REFER\nContact: <sip:carol@" + carol_.Address() + ">\n" + ReferTo("3000") +
                 "Content-Length: 0\n\n");
  EXPECT_EQ(AwaitReferResponse(carol_), 403);
}

TEST_F(SipBlindTransfer, AFailureInAnExtensionThatGoesOnLeadsBackForGood) {
  Dialplan(dialplan_ +
           "<extension name=\"more\"><condition field=\"destination_number\" expression=\"^4000$\">"
           "<action application=\"bridge\" data=\"sip:3000@" +
           carol_.Address() + "\"/><action application=\"log\" data=\"INFO went on\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  carol_.Use(SipAddress());
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("4000"));
  EXPECT_EQ(NextNotify(bob_), kTrying);
  std::optional<SipMessage> invite = carol_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  carol_.Reply(*invite, 486);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 486 Busy Here, the last");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  bob_.SendByeAsCalled(bobs_invite_, "Reason: Q.850;cause=41\n");
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_THAT(ByeAt(alice_), HasSubstr("Q.850;cause=41")) << "what bob said";
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_FALSE(Logged(SWITCH_LOG_INFO, "went on"));
}

TEST_F(SipBlindTransfer, AFaxThatIsAskedForWhileThePartnerGoesElsewhereIsRefused) {
  ConnectToBob(SipPeer::Sdp("0"));
  const size_t asked = media_->Count("A get_media");
  std::promise<void> referred;
  const std::shared_future<void> bobs_wish = referred.get_future().share();
  media_->OnCall("A get_media", [bobs_wish] { bobs_wish.wait_for(std::chrono::seconds(10)); });
  alice_.SendReinvite(SipPeer::FaxSdp());
  ASSERT_TRUE(media_->WaitFor("A set_media", 2)) << "alice's leg is at it";
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  EXPECT_EQ(NextNotify(bob_), kTrying);
  for (int tries = 0; tries < 1000 && !Logged(SWITCH_LOG_INFO, "asked for by the far end"); ++tries) switch_sleep(5000);
  EXPECT_EQ(media_->Count("A get_media"), asked);
  referred.set_value();
  std::optional<SipMessage> fax = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(fax);
  bob_.Reply(*fax, 488);
  std::optional<SipMessage> refusal = alice_.AwaitResponse();
  ASSERT_TRUE(refusal) << "no final response to the re-INVITE";
  EXPECT_EQ(refusal->Status(), 491);
  alice_.AckReinvite(*refusal);
  SipMessage invite = AnswerAt(carol_);
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(NextNotify(bob_), kDone);
  EXPECT_NE(ByeAt(bob_), "none");
  carol_.SendByeAsCalled(invite);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

}  // namespace
}  // namespace kvx_switch
