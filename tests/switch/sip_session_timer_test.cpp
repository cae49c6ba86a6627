// Session timers (RFC 4028) and UPDATE (RFC 3311) between real dialogs.

#include <switch.h>

#include <chrono>

#include "sip/call_leg.h"
#include "sip/leg_control.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

const std::string kUlaw = SipPeer::Sdp("0");

// On bob's side the phone refreshes; nobody in these tests wants his timer.
constexpr const char* kBobRefreshesLater = "Require: timer\nSession-Expires: 600;refresher=uas\n";

class SipSessionTimer : public SipCall {
 protected:
  void WithTwoSeconds() {
    Profile("<param name=\"session-timeout\" value=\"2\"/><param name=\"minimum-session-expires\" value=\"1\"/>");
    StopSipSide();
    StartSipSide();
  }

  /// The first refresh of ours comes after three of them, and the call ends after six without.
  void WithEightSeconds() {
    Profile("<param name=\"session-timeout\" value=\"8\"/><param name=\"minimum-session-expires\" value=\"1\"/>");
    StopSipSide();
    StartSipSide();
  }

  /// A call with these headers in alice's INVITE and in bob's 200; her 200.
  SipMessage Connect(const std::string& alices, const std::string& bobs) {
    const size_t bridges = media_->Count("A bridge");
    alice_.SendInvite("2000", kUlaw, alices);
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    EXPECT_TRUE(invite);
    bobs_invite_ = invite.value_or(SipMessage{});
    bob_.Reply(bobs_invite_, 200, bobs, kUlaw);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response && response->Status() == 200);
    if (response) alice_.SendAck(*response);
    EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
    return response.value_or(SipMessage{});
  }

  SipMessage Update(const std::string& headers, const std::string& sdp = "") {
    alice_.SendInCall("UPDATE", headers, sdp);
    return alice_.AwaitResponse("UPDATE").value_or(SipMessage{});
  }

  std::string Hold(HoldChange change) {
    return AskLeg(LegUuid(SWITCH_CALL_DIRECTION_INBOUND), [change](CallLeg& leg) { return leg.Hold(change); });
  }

  /// A refresh by alice every half second, for longer than her session of four would last without any: it ends 2.7 s
  /// after the last one.
  template <typename Refresh>
  void KeepsTheCallWith(const Refresh& refresh) {
    WithTwoSeconds();
    Connect("Supported: timer\nSession-Expires: 4;refresher=uac\n", kBobRefreshesLater);
    for (const auto start = steady_clock::now(); steady_clock::now() - start < milliseconds(3200);) {
      ASSERT_TRUE(alice_.StaysSilent("BYE", milliseconds(500)));
      refresh();
    }
    EXPECT_EQ(media_->Count("A set_media"), 1u);
    EndCall();
  }

  std::string ReasonOfBye(SipPeer& peer) {
    std::optional<SipMessage> bye = peer.AwaitRequest("BYE");
    if (!bye) return "none";
    peer.Reply(*bye, 200);
    return bye->Header("Reason");
  }
};

TEST_F(SipSessionTimer, BothSidesAreToldTheInterval) {
  SipMessage answer = Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", kBobRefreshesLater);
  EXPECT_EQ(answer.Header("Session-Expires"), "600;refresher=uac");
  EXPECT_THAT(answer.Header("Require"), HasSubstr("timer"));
  EXPECT_EQ(bobs_invite_.Header("Session-Expires"), "1800");
  EXPECT_EQ(bobs_invite_.Header("Min-SE"), "120");
  EXPECT_THAT(bobs_invite_.Header("Supported"), HasSubstr("timer"));
  EXPECT_THAT(bobs_invite_.Header("Allow"), HasSubstr("UPDATE"));
  EndCall();
}

TEST_F(SipSessionTimer, APhoneMayRequireIt) {
  SipMessage answer = Connect("Require: timer\nSession-Expires: 600;refresher=uac\n", kBobRefreshesLater);
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_EQ(answer.Header("Session-Expires"), "600;refresher=uac");
  answer = Update("Require: timer\nSession-Expires: 600;refresher=uac\n");
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_EQ(answer.Header("Session-Expires"), "600;refresher=uac");
  alice_.SendInCall("OPTIONS", "");
  std::optional<SipMessage> known = alice_.AwaitResponse("OPTIONS");
  ASSERT_TRUE(known);
  EXPECT_EQ(known->Header("Supported"), "replaces, timer");
  EndCall();
}

TEST_F(SipSessionTimer, SwitchedOffItMayNotBeRequired) {
  Profile("<param name=\"enable-timer\" value=\"false\"/>");
  StopSipSide();
  StartSipSide();
  SipMessage refusal = CallAndBeRefused("2000", kUlaw, "Require: timer\nSession-Expires: 600\n");
  EXPECT_EQ(refusal.Status(), 420);
  EXPECT_EQ(refusal.Header("Unsupported"), "timer");
}

TEST_F(SipSessionTimer, SwitchedOffNothingIsSaid) {
  Profile("<param name=\"enable-timer\" value=\"false\"/>");
  StopSipSide();
  StartSipSide();
  SipMessage answer = Connect("Supported: timer\nSession-Expires: 30\n", "");
  EXPECT_EQ(answer.Header("Session-Expires"), "");
  EXPECT_EQ(bobs_invite_.Header("Session-Expires"), "");
  EXPECT_THAT(bobs_invite_.Header("Supported"), Not(HasSubstr("timer")));
  EndCall();
}

TEST_F(SipSessionTimer, AnIntervalThatIsTooSmallIsRefused) {
  SipMessage refusal = CallAndBeRefused("2000", kUlaw, "Supported: timer\nSession-Expires: 60\n");
  EXPECT_EQ(refusal.Status(), 422);
  EXPECT_EQ(refusal.Header("Min-SE"), "120");
  Connect("", kBobRefreshesLater);
  refusal = Update("Supported: timer\nSession-Expires: 60\n");
  EXPECT_EQ(refusal.Status(), 422);
  EXPECT_EQ(refusal.Header("Min-SE"), "120");
  EndCall();
}

TEST_F(SipSessionTimer, APhoneThatWantsMoreIsAskedAgain) {
  alice_.SendInvite("2000", kUlaw);
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  for (int i = 0; i < 6 && invite && invite->Header("Session-Expires") != "3600"; ++i) {
    bob_.Reply(*invite, 422, "Min-SE: 3600\n");
    invite = bob_.AwaitRequest("INVITE");
  }
  ASSERT_TRUE(invite);
  EXPECT_EQ(invite->Header("Session-Expires"), "3600");
  EXPECT_EQ(invite->Header("Min-SE"), "3600");
  bob_.Reply(*invite, 200, kBobRefreshesLater, kUlaw);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response && response->Status() == 200);
  alice_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
}

TEST_F(SipSessionTimer, APhoneThatFallsSilentIsHungUp) {
  WithTwoSeconds();
  const auto start = steady_clock::now();
  Connect("Supported: timer\nSession-Expires: 2;refresher=uac\n", kBobRefreshesLater);
  EXPECT_THAT(ReasonOfBye(alice_), HasSubstr("Q.850;cause=102"));
  EXPECT_GE(steady_clock::now() - start, milliseconds(1600));
  EXPECT_THAT(ReasonOfBye(bob_), HasSubstr("Q.850;cause=102"));
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "was not refreshed in time"));
}

TEST_F(SipSessionTimer, AnUpdateKeepsTheCall) {
  KeepsTheCallWith([this] {
    SipMessage answer = Update("Supported: timer\nSession-Expires: 4;refresher=uac\n");
    EXPECT_EQ(answer.Status(), 200);
    EXPECT_EQ(answer.Header("Session-Expires"), "4;refresher=uac");
    EXPECT_EQ(answer.body, "");
  });
}

TEST_F(SipSessionTimer, AnInviteThatChangesNothingKeepsTheCall) {
  KeepsTheCallWith([this] {
    alice_.SendReinvite(kUlaw, "Supported: timer\nSession-Expires: 4;refresher=uac\n");
    std::optional<SipMessage> answer = alice_.AwaitResponse();
    ASSERT_TRUE(answer);
    alice_.AckReinvite(*answer);
    EXPECT_EQ(answer->Status(), 200);
  });
}

TEST_F(SipSessionTimer, WeRefreshWithUpdateWhereThePhoneAllowsIt) {
  WithTwoSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "Allow: INVITE, ACK, BYE, UPDATE\n");
  for (int i = 0; i < 3; ++i) {
    std::optional<SipMessage> update = bob_.AwaitRequest("UPDATE");
    ASSERT_TRUE(update);
    EXPECT_EQ(update->body, "");
    EXPECT_EQ(update->Header("Session-Expires"), "2;refresher=uac");
    bob_.Reply(*update, 200, "Session-Expires: 2;refresher=uac\n");
  }
  EXPECT_EQ(media_->Count("B set_media"), 1u);
  EndCall();
}

TEST_F(SipSessionTimer, WeRefreshWithTheSameDescriptionElsewhere) {
  WithTwoSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "");
  for (int i = 0; i < 3; ++i) {
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    ASSERT_TRUE(invite);
    EXPECT_EQ(invite->body, bobs_invite_.body);
    bob_.Reply(*invite, 200, "", kUlaw);
    EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  }
  EXPECT_EQ(media_->Count("B set_media") + media_->Count("B get_media"), 2u);
  EXPECT_EQ(media_->Count("A bridge"), 1u);
  EndCall();
}

TEST_F(SipSessionTimer, WeRefreshTheCallerToo) {
  WithTwoSeconds();
  SipMessage answer = Connect("Supported: timer\nSession-Expires: 2;refresher=uas\n", kBobRefreshesLater);
  EXPECT_EQ(answer.Header("Session-Expires"), "2;refresher=uas");
  std::optional<SipMessage> invite = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_EQ(invite->body, answer.body);
  EXPECT_THAT(invite->Header("Session-Expires"), testing::StartsWith("2"));
  alice_.Reply(*invite, 200, "Session-Expires: 2;refresher=uac\n", kUlaw);
  EXPECT_TRUE(alice_.AwaitRequest("ACK"));
}

TEST_F(SipSessionTimer, ARefreshThatNobodyAnswersEndsTheCall) {
  WithTwoSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "Allow: INVITE, ACK, BYE, UPDATE\n");
  EXPECT_TRUE(bob_.AwaitRequest("UPDATE"));
  EXPECT_THAT(ReasonOfBye(alice_), HasSubstr("Q.850;cause=102"));
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipSessionTimer, ARefreshThatFindsNoCallEndsIt) {
  WithTwoSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "Allow: INVITE, ACK, BYE, UPDATE\n");
  std::optional<SipMessage> update = bob_.AwaitRequest("UPDATE");
  ASSERT_TRUE(update);
  bob_.Reply(*update, 481);
  EXPECT_THAT(ReasonOfBye(alice_), HasSubstr("Q.850;cause=102"));
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipSessionTimer, AnUpdateWithADescriptionIsLikeAFurtherInvite) {
  Connect("", kBobRefreshesLater);
  SipMessage answer = Update("", SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_EQ(answer.Status(), 200);
  EXPECT_THAT(answer.body, HasSubstr("a=recvonly\r\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_RECEIVE);
  EXPECT_EQ(Update("", SipPeer::Sdp("8")).Status(), 488);
  EXPECT_EQ(Update("", kUlaw).Status(), 200);
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  EndCall();
}

TEST_F(SipSessionTimer, BeforeTheAnswerADescriptionIsTooEarly) {
  CallBob(kUlaw);
  bob_.Reply(bobs_invite_, 180);
  std::optional<SipMessage> ringing = alice_.AwaitResponse();
  ASSERT_TRUE(ringing && ringing->Status() == 180);
  alice_.JoinDialog(*ringing);
  EXPECT_EQ(Update("").Status(), 200);
  SipMessage refusal = Update("", SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_EQ(refusal.Status(), 500) << "her own offer has no answer yet";
  EXPECT_NE(refusal.Header("Retry-After"), "");
  bob_.SendInCallAsCalled(bobs_invite_, "UPDATE", "", SipPeer::Sdp("0", "a=sendonly\n"));
  EXPECT_EQ(bob_.AwaitResponse("UPDATE")->Status(), 491) << "our offer has no answer yet";
  alice_.SendCancel();
  EXPECT_TRUE(alice_.AwaitResponse("CANCEL"));
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  bob_.Reply(*cancel, 200);
  bob_.Reply(bobs_invite_, 487);
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipSessionTimer, ARefreshThatIsRefusedIsFollowedByAnother) {
  WithEightSeconds();
  Connect("Supported: timer\nSession-Expires: 8;refresher=uas\n", "Allow: INVITE, ACK, BYE, UPDATE\n");
  for (int refused = 1; refused >= 0; --refused) {
    std::optional<SipMessage> update = bob_.AwaitRequest("UPDATE");
    std::optional<SipMessage> invite = alice_.AwaitRequest("INVITE");
    ASSERT_TRUE(update && invite) << (refused ? "no refresh" : "no further refresh");
    bob_.Reply(*update, refused ? 491 : 200);
    alice_.Reply(*invite, refused ? 488 : 200, "", refused ? "" : kUlaw);
  }
  EXPECT_TRUE(alice_.StaysSilent("BYE", milliseconds(1700))) << "it would have ended 1.4 s after the second refresh";
  EXPECT_FALSE(Logged(SWITCH_LOG_NOTICE, "was not refreshed in time"));
  EndCall();
}

TEST_F(SipSessionTimer, ARefreshThatMeetsTheirInviteWaitsAsAnyOfOurInvitesDoes) {
  WithEightSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "");
  std::optional<SipMessage> refresh = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(refresh);
  bob_.Reply(*refresh, 491);
  EXPECT_TRUE(bob_.StaysSilent("INVITE", milliseconds(1900))) << "who made the Call-ID waits 2.1 s at the least";
  EndCall();
}

TEST_F(SipSessionTimer, SoDoesTheHoldThatCameWhileTheRefreshWasOut) {
  WithEightSeconds();
  Connect("Supported: timer\nSession-Expires: 600;refresher=uac\n", "");
  std::optional<SipMessage> refresh = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(refresh);
  EXPECT_EQ(AskLeg(LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND), [](CallLeg& leg) { return leg.Hold(HoldChange::kHold); }),
            "");
  bob_.Reply(*refresh, 491);
  EXPECT_TRUE(bob_.StaysSilent("INVITE", milliseconds(1900)));
  EndCall();
}

TEST_F(SipSessionTimer, AHoldWaitsForOurRefreshHoweverThatEnds) {
  WithTwoSeconds();
  Connect("Supported: timer\nSession-Expires: 4;refresher=uas\n", kBobRefreshesLater);
  size_t bridges = media_->Count("A bridge");
  const struct {
    int refresh_status;
    HoldChange change;
    const char* offered;
    const char* answer;
    RTPDirection direction;
  } kSteps[] = {{200, HoldChange::kHold, "a=sendonly\r\n", "a=recvonly\n", RTPDIR_SEND},
                {488, HoldChange::kResume, "a=sendrecv\r\n", "a=sendrecv\n", RTPDIR_DUPLEX}};
  for (const auto& step : kSteps) {
    std::optional<SipMessage> refresh = alice_.AwaitRequest("INVITE");
    ASSERT_TRUE(refresh);
    EXPECT_EQ(Hold(step.change), "");
    EXPECT_TRUE(alice_.StaysSilent("INVITE", milliseconds(100))) << "one of ours is out";
    const bool taken = step.refresh_status == 200;
    alice_.Reply(*refresh, step.refresh_status, "", taken ? kUlaw : "");
    std::optional<SipMessage> change = alice_.AwaitRequest("INVITE");
    ASSERT_TRUE(change) << step.offered;
    EXPECT_THAT(change->body, HasSubstr(step.offered));
    alice_.Reply(*change, 200, "", SipPeer::Sdp("0", step.answer));
    EXPECT_TRUE(media_->WaitFor("A bridge", ++bridges));
    EXPECT_EQ(media_->Of("A bridge").direction, step.direction);
  }
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
