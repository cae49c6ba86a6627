// A far end that has stopped answering is hung up all the same, and at once.

#include <switch.h>

#include "sip_transfer_fixture.h"

namespace kvx_switch {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

const std::string kUlaw = SipPeer::Sdp("0");

using SipUnansweredRequest = SipTransfer;

TEST_F(SipUnansweredRequest, ANotifyThatNobodyAnswersDoesNotHoldTheByeBack) {
  ConnectToBob(kUlaw);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(bob_), 202);
  ASSERT_TRUE(bob_.AwaitRequest("NOTIFY"));
  SipMessage carols_invite = AnswerAt(carol_);
  std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
  ASSERT_TRUE(bye) << "the stack waits for 32 s";
  bob_.Reply(*bye, 200);
  EXPECT_EQ(bye->start_line, "BYE sip:bob@" + bob_.Address() + " SIP/2.0");
  EXPECT_EQ(bye->Header("Call-ID"), bobs_invite_.Header("Call-ID"));
  EXPECT_EQ(bye->Header("From"), bobs_invite_.Header("From"));
  EXPECT_EQ(bye->Header("To"), bobs_invite_.Header("To") + ";tag=bob");
  EXPECT_EQ(bye->Header("CSeq"), "2147483647 BYE") << "above all that went before";
  EXPECT_THAT(bye->Header("Reason"), HasSubstr("Q.850;cause=16"));
  EXPECT_EQ(bye->Header("Route"), "");
  EXPECT_TRUE(media_->WaitFor("A bridge", 2)) << "alice talks to carol";
  carol_.SendByeAsCalled(carols_invite);
  EXPECT_TRUE(carol_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipUnansweredRequest, TheCallersByeIsNotHeldBackEither) {
  alice_.SendInvite("2000", kUlaw, "Record-Route: <sip:" + alice_.Address() + ";lr;hop=1>\n");
  bobs_invite_ = AnswerAt(bob_);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response && response->Status() == 200);
  alice_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  alice_.SendInCall("REFER", ReferTo("3000"));
  EXPECT_EQ(AwaitReferResponse(alice_), 202);
  ASSERT_TRUE(alice_.AwaitRequest("NOTIFY"));
  AnswerAt(carol_);
  std::optional<SipMessage> bye = alice_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  alice_.Reply(*bye, 200);
  EXPECT_EQ(bye->start_line, "BYE sip:alice@" + alice_.Address() + " SIP/2.0");
  EXPECT_EQ(bye->Header("Call-ID"), response->Header("Call-ID"));
  EXPECT_EQ(bye->Header("From"), response->Header("To"));
  EXPECT_THAT(bye->Header("To"), EndsWith(";tag=alice1"));
  EXPECT_EQ(bye->Header("Route"), "<sip:" + alice_.Address() + ";lr;hop=1>");
}

TEST_F(SipUnansweredRequest, WhoAnswersTheNotifyGetsTheByeBehindIt) {
  ConnectToBob(kUlaw);
  bob_.SendInCallAsCalled(bobs_invite_, "REFER", ReferTo("3000"));
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 100 Trying");
  AnswerAt(carol_);
  EXPECT_EQ(NextNotify(bob_), "SIP/2.0 200 OK, the last");
  std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  bob_.Reply(*bye, 200);
  EXPECT_NE(bye->Header("CSeq"), "2147483647 BYE");
}

TEST_F(SipUnansweredRequest, AnUpdateThatNobodyAnswersDoesNotHoldTheByeBack) {
  Profile("<param name=\"session-timeout\" value=\"2\"/><param name=\"minimum-session-expires\" value=\"1\"/>");
  StopSipSide();
  StartSipSide();
  alice_.SendInvite("2000", kUlaw, "Supported: timer\nSession-Expires: 600;refresher=uac\n");
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 200, "Allow: INVITE, ACK, BYE, UPDATE\n", kUlaw);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response && response->Status() == 200);
  alice_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  ASSERT_TRUE(bob_.AwaitRequest("UPDATE"));
  alice_.SendBye();
  EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(NoLegsLeft());
}

}  // namespace
}  // namespace kvx_switch
