// Further INVITEs inside a call: hold and resume, fax and back, and two at once.

#include <switch.h>

#include <chrono>

#include "sip/call_leg.h"
#include "sip/leg_control.h"
#include "sip_call_fixture.h"
#include "support/event_capture.h"

namespace kvx_switch {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

class SipReinvite : public SipCall {
 protected:
  /// Alice's re-INVITE and the final response to it, acknowledged.
  SipMessage Reinvite(const std::string& sdp) {
    alice_.SendReinvite(sdp);
    return Settle();
  }

  SipMessage Settle() {
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response) << "no response to alice's re-INVITE";
    if (!response) return {};
    alice_.AckReinvite(*response);
    return *response;
  }

  SipMessage ReinviteAsBob(const std::string& sdp) {
    bob_.SendReinviteAsCalled(bobs_invite_, sdp);
    return SettleAsBob();
  }

  SipMessage SettleAsBob() {
    std::optional<SipMessage> response = bob_.AwaitResponse();
    EXPECT_TRUE(response) << "no response to bob's re-INVITE";
    if (!response) return {};
    bob_.AckReinviteAsCalled(bobs_invite_, *response);
    return *response;
  }

  /// The switch's re-INVITE to bob.
  SipMessage AwaitAtBob() {
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    EXPECT_TRUE(invite) << "no re-INVITE reached bob";
    return invite.value_or(SipMessage{});
  }

  static std::string MovedSdp() {
    std::string moved = SipPeer::Sdp("0");
    return moved.replace(moved.find("40000"), 5, "45678");
  }

  /// The second number of the origin line.
  static unsigned long long VersionOf(const std::string& sdp) {
    return std::stoull(sdp.substr(sdp.find(' ', sdp.find("o=- ") + 4)));
  }

  RTPDirection Direction() { return static_cast<RTPDirection>(media_->Of("A bridge").direction); }

  void ConnectFax() {
    ConnectToBob(SipPeer::Sdp("0"));
    const size_t answers = media_->Count("B set_media");
    alice_.SendReinvite(SipPeer::FaxSdp(41000));
    SipMessage invite = AwaitAtBob();
    EXPECT_THAT(invite.body, HasSubstr(" udptl t38\r\na=T38FaxVersion:0\r\n"));
    bob_.Reply(invite, 200, "", SipPeer::FaxSdp(42000));
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    EXPECT_EQ(Settle().Status(), 200);
    EXPECT_TRUE(media_->WaitFor("B set_media", answers + 1));
  }
};

TEST_F(SipReinvite, OneThatChangesNothingIsAnsweredAsBefore) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0"));
  SipMessage refreshed = Reinvite(SipPeer::Sdp("0"));
  EXPECT_EQ(refreshed.Status(), 200);
  EXPECT_EQ(refreshed.body, answer.body);
  EXPECT_EQ(ReinviteAsBob(SipPeer::Sdp("0")).body, bobs_invite_.body);
  EXPECT_EQ(media_->Count("A set_media") + media_->Count("B set_media"), 2u);
  EndCall();
}

TEST_F(SipReinvite, HoldAndResumeTurnTheBridge) {
  ConnectToBob(SipPeer::Sdp("0"));
  EXPECT_EQ(Direction(), RTPDIR_DUPLEX);
  const struct {
    const char* line;
    const char* answer;
    RTPDirection direction;
  } kSteps[] = {{"a=sendonly\n", "a=recvonly\r\n", RTPDIR_RECEIVE},
                {"a=recvonly\n", "a=sendonly\r\n", RTPDIR_SEND},
                {"a=inactive\n", "a=inactive\r\n", RTPDIR_INACTIVE},
                {"a=sendrecv\n", "a=sendrecv\r\n", RTPDIR_DUPLEX}};
  size_t bridges = media_->Count("A bridge");
  for (const auto& step : kSteps) {
    SipMessage held = Reinvite(SipPeer::Sdp("0", step.line));
    EXPECT_EQ(held.Status(), 200) << step.line;
    EXPECT_THAT(held.body, HasSubstr(step.answer));
    EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
    EXPECT_EQ(Direction(), step.direction) << step.line;
  }
  EXPECT_TRUE(bob_.StaysSilent("INVITE", milliseconds(100))) << "holding is no business of the other phone's";
  EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "The far end only sends now"));
  EndCall();
}

TEST_F(SipReinvite, HoldAndResumeAreToldToTheWorld) {
  ConnectToBob(SipPeer::Sdp("0"));
  test_support::EventCapture held(SWITCH_EVENT_CHANNEL_HOLD);
  test_support::EventCapture taken_back(SWITCH_EVENT_CHANNEL_UNHOLD);
  Reinvite(SipPeer::Sdp("0", "a=sendonly\n"));
  Reinvite(SipPeer::Sdp("0", "a=inactive\n"));
  ASSERT_EQ(held.WaitFor(1).size(), 1u);
  EXPECT_EQ(held.All()[0].Header("Unique-ID"), LegUuid(SWITCH_CALL_DIRECTION_INBOUND));
  EXPECT_EQ(held.All()[0].Header("Channel-Call-State"), "HELD");
  EXPECT_EQ(taken_back.All().size(), 0u);
  Reinvite(SipPeer::Sdp("0", "a=sendrecv\n"));
  ASSERT_EQ(taken_back.WaitFor(1).size(), 1u);
  EXPECT_EQ(taken_back.All()[0].Header("Channel-Call-State"), "ACTIVE");
  EXPECT_EQ(held.All().size(), 1u) << "it was held once";
  EndCall();
}

TEST_F(SipReinvite, AnAddressOfZerosHoldsTheCall) {
  ConnectToBob(SipPeer::Sdp("0"));
  std::string nowhere = SipPeer::Sdp("0");
  const size_t connection = nowhere.find("c=IN IP4 127.0.0.1");
  ASSERT_NE(connection, std::string::npos);
  nowhere.replace(connection, 18, "c=IN IP4 0.0.0.0");
  EXPECT_THAT(Reinvite(nowhere).body, HasSubstr("a=recvonly\r\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(Direction(), RTPDIR_RECEIVE) << "as with a=sendonly";
  EXPECT_THAT(Reinvite(SipPeer::Sdp("0")).body, HasSubstr("a=sendrecv\r\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  EXPECT_EQ(Direction(), RTPDIR_DUPLEX);
  EXPECT_EQ(media_->Of("A set_media").address, "127.0.0.1:40000/0");
  EndCall();
}

TEST_F(SipReinvite, PackingOfTheCodecStaysAsItIs) {
  const std::string aligned = "a=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n";
  const std::string plain = "a=rtpmap:101 AMR/8000\n";
  ConnectToBob(SipPeer::Sdp("100", aligned), SipPeer::Sdp("96", "a=rtpmap:96 AMR/8000\na=fmtp:96 octet-align=1\n"));
  EXPECT_EQ(Reinvite(SipPeer::Sdp("101", plain)).Status(), 488);
  EXPECT_TRUE(
      Logged(SWITCH_LOG_WARNING, "re-INVITE refused with 488: the call's AMR/8000 is packed otherwise; the call goes"));
  const SipMessage both = Reinvite(SipPeer::Sdp("101 100", plain + aligned));
  EXPECT_EQ(both.Status(), 200);
  EXPECT_THAT(both.body, HasSubstr("RTP/AVP 100\r\n"));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 100);
  EndCall();
}

TEST_F(SipReinvite, TheCalledSideMayHoldTooAndBothCount) {
  ConnectToBob(SipPeer::Sdp("0"));
  size_t bridges = media_->Count("A bridge");
  EXPECT_THAT(ReinviteAsBob(SipPeer::Sdp("0", "a=sendonly\n")).body, HasSubstr("a=recvonly\r\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
  EXPECT_EQ(Direction(), RTPDIR_SEND);
  Reinvite(SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
  EXPECT_EQ(Direction(), RTPDIR_INACTIVE) << "both only send: neither hears the other";
  ReinviteAsBob(SipPeer::Sdp("0", "a=sendrecv\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
  EXPECT_EQ(Direction(), RTPDIR_RECEIVE);
  EXPECT_EQ(media_->Count("B bridge"), 0u) << "one leg alone bridges";
  EndCall();
}

TEST_F(SipReinvite, ACallThatBeginsHeldIsBridgedSo) {
  ConnectToBob(SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_EQ(Direction(), RTPDIR_RECEIVE);
  EndCall();
}

TEST_F(SipReinvite, ANewAddressReachesTheMediaServer) {
  ConnectToBob(SipPeer::Sdp("0"));
  std::string moved = SipPeer::Sdp("0");
  moved.replace(moved.find("40000"), 5, "45678");
  SipMessage answer = Reinvite(moved);
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_EQ(media_->Of("A set_media").address, "127.0.0.1:45678/0");
  EXPECT_EQ(media_->Count("A bridge"), 1u) << "the direction stays";
  EndCall();
}

TEST_F(SipReinvite, TheDescriptionKeepsItsIdentityAndCountsUp) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0"));
  const auto origin = [](const std::string& sdp) {
    const size_t start = sdp.find("o=- ") + 4;
    return std::make_pair(std::stoull(sdp.substr(start)), std::stoull(sdp.substr(sdp.find(' ', start))));
  };
  SipMessage held = Reinvite(SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_EQ(origin(held.body).first, origin(answer.body).first);
  EXPECT_EQ(origin(held.body).second, origin(answer.body).second + 1);
  EndCall();
}

TEST_F(SipReinvite, WhatCannotBeTakenIsRefusedAndTheCallGoesOn) {
  ConnectToBob(SipPeer::Sdp("0"));
  const struct {
    std::string sdp;
    const char* log;
  } kOffers[] = {
      {SipPeer::Sdp("8"), "re-INVITE refused with 488: offered are PCMA/8000, the call has PCMU/8000"},
      {"v=0\nnonsense\n", "re-INVITE refused with 488: the SDP cannot be read"},
      {"v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\nm=video 4000 RTP/AVP 31\n",
       "re-INVITE refused with 488: neither audio nor fax is offered"},
  };
  for (const auto& offer : kOffers) {
    EXPECT_EQ(Reinvite(offer.sdp).Status(), 488);
    EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, offer.log));
  }
  EXPECT_EQ(media_->Count("A set_media"), 1u);
  EndCall();
}

TEST_F(SipReinvite, FaxPassesWhenBothSidesTakeIt) {
  ConnectFax();
  const auto offer = media_->Of("A set_media");
  EXPECT_TRUE(offer.pass_through);
  EXPECT_EQ(offer.state, SWITCH_SDP_OFFER_RECEIVED);
  EXPECT_EQ(offer.address, "127.0.0.1:41000/0");
  EXPECT_TRUE(media_->Of("A get_media").pass_through);
  const auto answer = media_->Of("B set_media");
  EXPECT_TRUE(answer.pass_through);
  EXPECT_EQ(answer.state, SWITCH_SDP_ANSWER_RECEIVED);
  EXPECT_EQ(answer.address, "127.0.0.1:42000/0");
  EXPECT_TRUE(media_->Of("B get_media").pass_through);
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "Fax (T.38) passes between 127.0.0.1:42000 and the other leg"));
  EndCall();
}

TEST_F(SipReinvite, FaxGoesBackToAudio) {
  ConnectFax();
  const size_t bridges = media_->Count("A bridge");
  alice_.SendReinvite(SipPeer::Sdp("0"));
  SipMessage invite = AwaitAtBob();
  EXPECT_THAT(invite.body, HasSubstr("m=audio "));
  EXPECT_THAT(invite.body, Not(HasSubstr("image")));
  bob_.Reply(invite, 200, "", SipPeer::Sdp("0"));
  SipMessage answer = Settle();
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_THAT(answer.body, HasSubstr("m=audio "));
  EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
  EXPECT_EQ(Direction(), RTPDIR_DUPLEX);
  EXPECT_FALSE(media_->Of("A set_media").pass_through);
  EXPECT_FALSE(media_->Of("B set_media").pass_through);
  EndCall();
}

TEST_F(SipReinvite, TheCalledSideMayTurnToFax) {
  ConnectToBob(SipPeer::Sdp("0"));
  bob_.SendReinviteAsCalled(bobs_invite_, SipPeer::FaxSdp(42000));
  std::optional<SipMessage> invite = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->body, HasSubstr("m=image "));
  alice_.Reply(*invite, 200, "", SipPeer::FaxSdp(41000));
  SipMessage answer = SettleAsBob();
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_THAT(answer.body, HasSubstr(" udptl t38\r\na=T38FaxVersion:0\r\na=T38FaxUdpEC:t38UDPRedundancy\r\n"));
  EXPECT_EQ(media_->Of("A set_media").state, SWITCH_SDP_ANSWER_RECEIVED);
  EXPECT_EQ(media_->Of("B set_media").state, SWITCH_SDP_OFFER_RECEIVED);
  EndCall();
}

TEST_F(SipReinvite, FaxThatTheOtherSideRefusesLeavesTheCallAsItWas) {
  ConnectToBob(SipPeer::Sdp("0"));
  const size_t bridges = media_->Count("A bridge");
  alice_.SendReinvite(SipPeer::FaxSdp());
  SipMessage invite = AwaitAtBob();
  bob_.Reply(invite, 415);
  EXPECT_EQ(Settle().Status(), 488);
  EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
  EXPECT_FALSE(media_->Of("A set_media").pass_through);
  EXPECT_FALSE(media_->Of("B set_media").pass_through);
  EXPECT_EQ(Reinvite(SipPeer::Sdp("0", "a=sendonly\n")).Status(), 200) << "the call can still change";
  EndCall();
}

TEST_F(SipReinvite, ABusyCallAnswersPendingAndGlareIsTriedAgain) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendReinvite(SipPeer::FaxSdp());
  SipMessage invite = AwaitAtBob();
  EXPECT_EQ(ReinviteAsBob(SipPeer::Sdp("0", "a=sendonly\n")).Status(), 491) << "ours is under way";
  bob_.Reply(invite, 491);
  const auto start = std::chrono::steady_clock::now();
  SipMessage again = AwaitAtBob();
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, milliseconds(2000)) << "who made the Call-ID waits 2.1 to 4 s";
  EXPECT_LE(waited, milliseconds(5000));
  EXPECT_EQ(again.body, invite.body);
  bob_.Reply(again, 200, "", SipPeer::FaxSdp(42000));
  EXPECT_EQ(Settle().Status(), 200);
  EndCall();
}

// The time after a 491 is there so that the other one may come first.
TEST_F(SipReinvite, WhatTheyWantIsTakenWhileOurHoldWaitsAfterAGlare) {
  ConnectToBob(SipPeer::Sdp("0"));
  EXPECT_EQ(AskLeg(LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND), [](CallLeg& leg) { return leg.Hold(HoldChange::kHold); }),
            "");
  SipMessage hold = AwaitAtBob();
  EXPECT_EQ(ReinviteAsBob(MovedSdp()).Status(), 491) << "ours is under way";
  bob_.Reply(hold, 491);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ReinviteAsBob(SipPeer::Sdp("8")).Status(), 488) << "the call has no such codec";
  SipMessage taken = ReinviteAsBob(MovedSdp());
  EXPECT_EQ(taken.Status(), 200);
  EXPECT_THAT(taken.body, HasSubstr("a=sendrecv\r\n"));
  EXPECT_EQ(media_->Of("B set_media").address, "127.0.0.1:45678/0");
  SipMessage again = AwaitAtBob();
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(2000));
  EXPECT_THAT(again.body, HasSubstr("a=sendonly\r\n"));
  EXPECT_GT(VersionOf(again.body), VersionOf(taken.body));
  bob_.Reply(again, 200, "", SipPeer::Sdp("0", "a=recvonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(Direction(), RTPDIR_RECEIVE);
  EndCall();
}

TEST_F(SipReinvite, HangingUpInTheMiddleOfAChangeEndsBothLegs) {
  ConnectToBob(SipPeer::Sdp("0"));
  alice_.SendReinvite(SipPeer::FaxSdp());
  SipMessage invite = AwaitAtBob();
  bob_.Reply(invite, 487);
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_TRUE(alice_.AwaitRequest("BYE"));
  alice_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 1u);
}

TEST_F(SipReinvite, AMediaServerThatRefusesTheChangeEndsTheCall) {
  ConnectToBob(SipPeer::Sdp("0"));
  media_->Refuse("A set_media");
  EXPECT_EQ(Reinvite(SipPeer::Sdp("0", "a=sendonly\n")).Status(), 500);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The media server refused the far end's new description; the call ends"));
  EXPECT_TRUE(alice_.AwaitRequest("BYE"));
  alice_.AnswerWhatIsLeft();
  bob_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
}

}  // namespace
}  // namespace kvx_switch
