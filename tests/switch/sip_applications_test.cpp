#include <switch.h>

#include <thread>

#include "core/session.h"
#include "sip/call_leg.h"
#include "sip/leg_helpers.h"
#include "sip_applications_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

class SipParkAndSleep : public SipApplications {};

TEST_F(SipParkAndSleep, ParkedLegWaitsWithoutABridge) {
  Start(Action("answer") + Action("park"));
  Dial();
  ASSERT_EQ(AliceHears(), 200);
  EXPECT_TRUE(StateBecomes("CS_PARK"));
  AliceHangsUp();
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A bridge"), 0u);
  EXPECT_EQ(media_->Count("A destroy"), 1u);
}

TEST_F(SipParkAndSleep, SleepEndsAfterItsTime) {
  Start(Action("sleep", "50") + Action("hangup", "USER_BUSY"));
  Dial();
  EXPECT_EQ(AliceHears(), 486);
}

TEST_F(SipParkAndSleep, SleepEndsWhenTheCallerGoes) {
  Start(Action("sleep", "86400000"));
  Dial();
  EXPECT_TRUE(StateBecomes("CS_EXECUTE"));
  alice_.SendCancel();
  EXPECT_EQ(AliceHears(), 487);
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipParkAndSleep, SleepThatIsNoNumberIsLoggedAndPassedOver) {
  Start(Action("sleep", "${none}") + Action("hangup", "USER_BUSY"));
  Dial();
  EXPECT_EQ(AliceHears(), 486);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "sleep: \"\" is not a number of milliseconds from 0 to 86400000"));
}

class SipSentOn : public SipApplications {
 protected:
  std::string Transfer(const std::string& uuid, std::optional<Destination> own, std::optional<Destination> partners) {
    return AskLeg(uuid, [&](CallLeg& leg) { return leg.Redirect({own, partners}); });
  }
  std::string Transfer(switch_call_direction_t direction, std::optional<Destination> own,
                       std::optional<Destination> partners) {
    return Transfer(LegUuid(direction), own, partners);
  }

  const Destination to_carol_{"3000", "", {}};
};

TEST_F(SipSentOn, RunsAnotherExtensionInsteadOfWhatFollows) {
  directory_.Write("dialplan/other.xml", "<context name=\"other\">" +
                                             Extension("4711", Action("log", "INFO ${destination_number} ${context}") +
                                                                   Action("hangup", "UNALLOCATED_NUMBER")) +
                                             "</context>");
  Start(Action("transfer", "4711 XML other") + Action("hangup", "USER_BUSY"));
  Dial();
  EXPECT_EQ(AliceHears(), 404);
  EXPECT_TRUE(Logged(SWITCH_LOG_INFO, "4711 other"));
}

TEST_F(SipSentOn, ToNowhereEndsTheCall) {
  Start(Action("set", "target=nowhere") + Action("transfer", "${target}"));
  Dial();
  EXPECT_EQ(AliceHears(), 404);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "the dialplan has nothing for \"nowhere\" in context \"default\""));
}

TEST_F(SipSentOn, DialplanThatGoesRoundIsLeft) {
  Start(Action("transfer", "1"));
  Dial();
  EXPECT_EQ(AliceHears(), 483);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "the dialplan goes round"));
}

TEST_F(SipSentOn, ParkedLegGoesOnWhereItIsSent) {
  Start(Action("answer") + Action("park"));
  Dial();
  ASSERT_EQ(AliceHears(), 200);
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, to_carol_, std::nullopt), "");
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  AliceHangsUp();
  Confirm(carol_, "BYE");
}

TEST_F(SipSentOn, BridgingLegLeavesItsPartnerBehind) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, to_carol_, std::nullopt), "");
  Confirm(bob_, "BYE");
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  AliceHangsUp();
  Confirm(carol_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipSentOn, CalledLegTakesItsMediaAlongAndBridgesItself) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, std::nullopt, to_carol_), "");
  Confirm(alice_, "BYE");
  const SipMessage carols = Answers(carol_);
  EXPECT_THAT(carols.Header("From"), HasSubstr("sip:2000@")) << "bob's own number";
  ASSERT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EXPECT_EQ(media_->Count("B unbridge"), 0u);
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  Confirm(carol_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A unbridge"), 1u);
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipSentOn, CalledLegMayBeAskedItself) {
  Start(Action("bridge", Bob()) + Action("bridge", Carol()));
  TalkToBob();
  const std::string bob = LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND);
  EXPECT_EQ(Transfer(bob, Destination{"", "", {{"park", ""}}}, std::nullopt), "");
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("A bridge", 2)) << "alice goes on with what follows the bridge";
  EXPECT_EQ(Transfer(bob, Destination{"", "", {{"hangup", "USER_BUSY"}}}, std::nullopt), "");
  Confirm(bob_, "BYE");
  AliceHangsUp();
  Confirm(carol_, "BYE");
}

TEST_F(SipSentOn, BothLegsMayGo) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  const Destination park{"", "", {{"park", ""}}};
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, park, park), "");
  ASSERT_TRUE(media_->WaitFor("A unbridge", 1));
  EXPECT_TRUE(alice_.StaysSilent("BYE", std::chrono::milliseconds(100)));
  EXPECT_EQ(ListSessions().size(), 2u);
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  AliceHangsUp();
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("B unbridge"), 0u);
}

TEST_F(SipSentOn, IsRefusedWhereThereIsNothingToTransfer) {
  Start(Action("answer") + Action("park"));
  Dial();
  ASSERT_EQ(AliceHears(), 200);
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, std::nullopt, to_carol_), "the leg is not bridged");
  EXPECT_EQ(Transfer("00000000-0000-0000-0000-000000000000", to_carol_, std::nullopt), "No such channel!");
  AliceHangsUp();
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipSentOn, BobsOwnReinvitesStillWorkAfterHeWasSentOn) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, std::nullopt, to_carol_), "");
  Confirm(alice_, "BYE");
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("B bridge", 1));
  bob_.SendReinviteAsCalled(bobs_invite_, SipPeer::Sdp("0", "a=sendonly\n"));
  std::optional<SipMessage> answer = bob_.AwaitResponse();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Status(), 200);
  bob_.AckReinviteAsCalled(bobs_invite_, *answer);
  ASSERT_TRUE(media_->WaitFor("B bridge", 2));
  EXPECT_EQ(media_->Of("B bridge").direction, RTPDIR_RECEIVE) << "bob sends, carol hears";
}

TEST_F(SipSentOn, RingingPhoneIsLeftWhenTheCallerIsSentOn) {
  Start(Action("bridge", Bob()));
  Dial();
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 180);
  ASSERT_TRUE(alice_.AwaitResponse());
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_OUTBOUND, to_carol_, std::nullopt), "the leg is not answered");
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, to_carol_, to_carol_), "the leg is not bridged");
  EXPECT_EQ(Transfer(SWITCH_CALL_DIRECTION_INBOUND, to_carol_, std::nullopt), "");
  Confirm(bob_, "CANCEL");
  bob_.Reply(*invite, 487);
  Answers(carol_);
  EXPECT_EQ(AliceHears(), 200);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
}

TEST_F(SipSentOn, LegsThatEndMeanwhileLeaveNothingBehind) {
  Start(Action("bridge", Bob()));
  const Destination park{"", "", {{"park", ""}}};
  constexpr size_t kRounds = 20;
  for (size_t round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    Dial();
    Answers(bob_);
    ASSERT_EQ(AliceHears(), 200);
    ASSERT_TRUE(media_->WaitFor("A bridge", round + 1));
    const std::string alice = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
    const std::string bob = LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND);
    std::thread transfer([&] { Transfer(round % 4 < 2 ? alice : bob, park, park); });
    if (round % 2) {
      HangUpLeg(alice, SWITCH_CAUSE_NORMAL_CLEARING);
    } else {
      HangUpLeg(bob, SWITCH_CAUSE_NORMAL_CLEARING);
    }
    transfer.join();
    switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
    ASSERT_TRUE(NoLegsLeft());
    alice_.AnswerWhatIsLeft();
    bob_.AnswerWhatIsLeft();
  }
  EXPECT_EQ(media_->Count("A destroy"), kRounds);
  EXPECT_EQ(media_->Count("B destroy"), kRounds);
  EXPECT_EQ(media_->Count("A unbridge"), kRounds);
  EXPECT_EQ(media_->Count("B unbridge"), 0u);
  EXPECT_FALSE(Logged(SWITCH_LOG_WARNING, "did not undo the bridge in time"));
}

class SipHold : public SipApplications {
 protected:
  std::string Hold(switch_call_direction_t direction, HoldChange change) {
    return AskLeg(LegUuid(direction), [change](CallLeg& leg) { return leg.Hold(change); });
  }
};

TEST_F(SipHold, CallersPhoneIsToldAndTheBridgeTurns) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kHold), "");
  std::optional<SipMessage> hold = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(hold);
  EXPECT_THAT(hold->body, HasSubstr("a=sendonly\r\n"));
  alice_.Reply(*hold, 200, "", SipPeer::Sdp("0", "a=recvonly\n"));
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_SEND);
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kHold), "") << "it is held already";
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kToggle), "");
  std::optional<SipMessage> resume = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(resume);
  EXPECT_THAT(resume->body, HasSubstr("a=sendrecv\r\n"));
  alice_.Reply(*resume, 200, "", SipPeer::Sdp("0"));
  ASSERT_TRUE(media_->WaitFor("A bridge", 3));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
}

TEST_F(SipHold, CalledPhoneIsToldAndTheBridgeTurns) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_OUTBOUND, HoldChange::kHold), "");
  std::optional<SipMessage> hold = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(hold);
  EXPECT_THAT(hold->body, HasSubstr("a=sendonly\r\n"));
  bob_.Reply(*hold, 200, "", SipPeer::Sdp("0"));
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_RECEIVE) << "bob is held even if his phone says sendrecv";
}

TEST_F(SipHold, RefusalLeavesTheCallAsItWas) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kHold), "");
  std::optional<SipMessage> hold = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(hold);
  alice_.Reply(*hold, 488);
  EXPECT_TRUE(LogBecomes(SWITCH_LOG_WARNING, "The far end refused to be held with 488"));
  EXPECT_EQ(media_->Count("A bridge"), 1u);
  EXPECT_EQ(ListSessions().size(), 2u);
}

TEST_F(SipHold, IsRefusedBeforeTheAnswer) {
  Start(Action("sleep", "60000"));
  Dial();
  ASSERT_TRUE(StateBecomes("CS_EXECUTE"));
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kHold), "the leg is not answered");
  alice_.SendCancel();
  EXPECT_EQ(AliceHears(), 487);
}

}  // namespace
}  // namespace kvx_switch
