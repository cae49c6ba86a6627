// INVITEs without a description: the switch offers, the ACK answers.

#include <switch.h>

#include "sip_call_fixture.h"
#include "support/process_child.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class SipDelayedOffer : public SipCall {
 protected:
  /// Bob answers alice's INVITE without description; her 200.
  SipMessage CallWithoutOffer(const std::string& bobs_answer) {
    alice_.SendInvite("2000", "");
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    EXPECT_TRUE(invite);
    bobs_invite_ = invite.value_or(SipMessage{});
    bob_.Reply(bobs_invite_, 200, "", bobs_answer);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response && response->Status() == 200) << (response ? response->start_line : "no response");
    return response.value_or(SipMessage{});
  }

  /// Alice's INVITE without description within the call; the 200 with our offer.
  SipMessage AskForOffer() {
    alice_.SendReinvite("");
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response && response->Status() == 200);
    return response.value_or(SipMessage{});
  }

  void ExpectBothHungUp(const std::string& reason) {
    std::optional<SipMessage> bye = alice_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    EXPECT_THAT(bye->Header("Reason"), HasSubstr(reason));
    alice_.Reply(*bye, 200);
    bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    bob_.Reply(*bye, 200);
    EXPECT_TRUE(NoLegsLeft());
  }
};

TEST_F(SipDelayedOffer, TheCallerIsOfferedWhatTheCalledSideTakes) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("8 101", "a=rtpmap:101 telephone-event/8000\n"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("RTP/AVP 0 8 18 96 101\r\n")) << "everything that we have";
  EXPECT_THAT(offer.body, HasSubstr("RTP/AVP 8 101\r\n"));
  EXPECT_THAT(offer.body, HasSubstr("a=sendrecv\r\n"));
  EXPECT_EQ(media_->Count("A set_media"), 0u);
  alice_.SendAck(offer, SipPeer::Sdp("8 101", "a=rtpmap:101 telephone-event/8000\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_THAT(media_->Calls(), ElementsAre("A create", "B create", "B get_media", "B set_media", "A get_media",
                                           "A set_media", "A bridge"));
  const auto asked = media_->Of("A get_media");
  EXPECT_EQ(asked.state, SWITCH_SDP_STATE_UNKNOWN);
  EXPECT_FALSE(asked.has_answer_codec);
  EXPECT_EQ(asked.codecs, "PCMA/20");
  const auto told = media_->Of("A set_media");
  EXPECT_EQ(told.state, SWITCH_SDP_ANSWER_RECEIVED);
  EXPECT_EQ(told.codecs, "PCMA/20");
  EXPECT_EQ(told.event_type, 101);
  EXPECT_EQ(told.address, "127.0.0.1:40000/0");
  EndCall();
}

TEST_F(SipDelayedOffer, WithoutAnAnswerTheCallEnds) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("0"));
  alice_.SendAck(offer);
  ExpectBothHungUp("Q.850;cause=88");
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The caller's answer cannot be taken: it is empty"));
}

TEST_F(SipDelayedOffer, AnAnswerInAnotherCodecEndsTheCall) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("0"));
  alice_.SendAck(offer, SipPeer::Sdp("8"));
  ExpectBothHungUp("Q.850;cause=88");
  EXPECT_TRUE(
      Logged(SWITCH_LOG_ERROR, "The caller's answer cannot be taken: it names PCMA/8000, offered were PCMU/8000"));
}

TEST_F(SipDelayedOffer, ACallThatTheDialplanAnswersOffersEveryCodec) {
  Dialplan(
      "<extension name=\"bob\"><condition><action application=\"answer\"/>"
      "<action application=\"bridge\" data=\"sip:2000@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  alice_.SendInvite("2000", "");
  std::optional<SipMessage> offer = alice_.AwaitResponse();
  ASSERT_TRUE(offer && offer->Status() == 200);
  EXPECT_THAT(offer->body, HasSubstr("RTP/AVP 0 8 18 96 101\r\n"));
  alice_.SendAck(*offer, SipPeer::Sdp("18"));
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->body, HasSubstr("RTP/AVP 18\r\n")) << "what alice chose";
  bob_.Reply(*invite, 200, "", SipPeer::Sdp("18"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EndCall();
}

TEST_F(SipDelayedOffer, AProfileThatWantsSrtpOffersAKey) {
  Profile("<param name=\"rtp-secure-media\" value=\"mandatory\"/>");
  StopSipSide();
  StartSipSide();
  alice_.SendInvite("2000", "");
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  std::string sealed = SipPeer::Sdp("0",
                                    "a=crypto:1 AES_CM_128_HMAC_SHA1_80 "
                                    "inline:QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVowMTIz\n");
  sealed.replace(sealed.find("RTP/AVP"), 7, "RTP/SAVP");
  bob_.Reply(*invite, 200, "", sealed);
  std::optional<SipMessage> offer = alice_.AwaitResponse();
  ASSERT_TRUE(offer && offer->Status() == 200);
  EXPECT_THAT(offer->body, HasSubstr("RTP/SAVP 0"));
  EXPECT_THAT(offer->body, HasSubstr("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:"));
  alice_.SendAck(*offer, sealed);
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_THAT(media_->Of("A set_media").crypto, HasSubstr("80 QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVowMTIz"));
  EndCall();
}

TEST_F(SipDelayedOffer, WithinACallTheMediaThatThereIsIsOffered) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0"));
  SipMessage offer = AskForOffer();
  EXPECT_THAT(offer.body, HasSubstr("RTP/AVP 0\r\n"));
  EXPECT_THAT(offer.body, HasSubstr("a=sendrecv\r\n"));
  alice_.AckReinvite(offer, SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_RECEIVE);
  EXPECT_EQ(media_->Of("A set_media").state, SWITCH_SDP_ANSWER_RECEIVED);
  offer = AskForOffer();
  EXPECT_THAT(offer.body, HasSubstr("a=sendrecv\r\n")) << "the way back from holding";
  alice_.AckReinvite(offer, SipPeer::Sdp("0"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
  EndCall();
}

TEST_F(SipDelayedOffer, AnAckWithoutAnswerLeavesTheCallAsItWas) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.AckReinvite(AskForOffer());
  alice_.AckReinvite(AskForOffer(), SipPeer::Sdp("0"));
  EXPECT_TRUE(media_->WaitFor("A set_media", 2));
  EXPECT_EQ(media_->Count("A bridge"), 1u);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "The far end did not answer our offer; the call goes on as it was"));
  EndCall();
}

TEST_F(SipDelayedOffer, AnUpdateBeforeTheAckWaitsAndTheCallCanStillChange) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("0"));
  alice_.JoinDialog(offer);
  alice_.SendInCall("UPDATE", "", SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> update = alice_.AwaitResponse("UPDATE");
  ASSERT_TRUE(update);
  EXPECT_EQ(update->Status(), 491) << "our offer has no answer yet";
  alice_.SendAck(offer, SipPeer::Sdp("0"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  alice_.SendReinvite(SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> held = alice_.AwaitResponse();
  ASSERT_TRUE(held);
  EXPECT_EQ(held->Status(), 200);
  alice_.AckReinvite(*held);
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_RECEIVE);
  EndCall();
}

TEST_F(SipDelayedOffer, TheCalledSideMayHoldBeforeTheCallerAnswers) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("0"));
  bob_.SendReinviteAsCalled(bobs_invite_, SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> held = bob_.AwaitResponse();
  ASSERT_TRUE(held);
  EXPECT_EQ(held->Status(), 200);
  bob_.AckReinviteAsCalled(bobs_invite_, *held);
  alice_.SendAck(offer, SipPeer::Sdp("0"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  // Whether the legs are joined before or after bob's leg has taken down what he wishes.
  EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(10), [this] {
    return media_->Of("A bridge").direction == RTPDIR_SEND;
  })) << "bob only sends";
  EndCall();
}

TEST_F(SipDelayedOffer, ACalledSideThatLeavesBeforeTheCallersAckIsLetGoAtOnce) {
  SipMessage offer = CallWithoutOffer(SipPeer::Sdp("0"));
  bob_.SendByeAsCalled(bobs_invite_, "Reason: Q.850;cause=41\n");
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_TRUE(media_->WaitFor("B destroy", 1));
  EXPECT_FALSE(Logged(SWITCH_LOG_WARNING, "The calling leg did not undo the bridge in time"));
  alice_.SendAck(offer, SipPeer::Sdp("0"));
  std::optional<SipMessage> bye = alice_.AwaitRequest("BYE");
  ASSERT_TRUE(bye);
  EXPECT_THAT(bye->Header("Reason"), HasSubstr("Q.850;cause=41"));
  alice_.Reply(*bye, 200);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A bridge"), 0u);
}

}  // namespace
}  // namespace kvx_switch
