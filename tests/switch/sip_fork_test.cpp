// A number that rings on several phones: their answers come under different To tags (RFC 3261, 13.2.2.4).
#include <switch.h>

#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

class SipFork : public SipCall {
 protected:
  static std::string SdpAt(int port, const std::string& formats = "0") {
    std::string sdp = SipPeer::Sdp(formats);
    sdp.replace(sdp.find("40000"), 5, std::to_string(port));
    return sdp;
  }

  void ReplyAs(const std::string& tag, int status, const std::string& sdp = "") {
    bob_.TagAs(tag);
    bob_.Reply(bobs_invite_, status, "", sdp);
  }

  SipMessage AwaitAtAlice(int status) {
    std::optional<SipMessage> response = alice_.AwaitResponse();
    EXPECT_TRUE(response) << "no " << status;
    EXPECT_EQ(response.value_or(SipMessage{}).Status(), status);
    return response.value_or(SipMessage{});
  }

  /// The ACK or BYE to the phone of that tag.
  SipMessage AwaitAt(const std::string& tag, const std::string& method) {
    std::optional<SipMessage> request = bob_.AwaitRequest(method);
    EXPECT_TRUE(request) << "no " << method << " to " << tag;
    EXPECT_THAT(request.value_or(SipMessage{}).Header("To"), HasSubstr(";tag=" + tag));
    return request.value_or(SipMessage{});
  }

  void ExpectCallUpWith(const std::string& tag) {
    AwaitAt(tag, "ACK");
    alice_.SendAck(AwaitAtAlice(200));
    EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  }

  void EndCallOf(const std::string& tag) {
    alice_.SendBye();
    EXPECT_TRUE(alice_.AwaitResponse("BYE"));
    bob_.Reply(AwaitAt(tag, "BYE"), 200);
    EXPECT_TRUE(NoLegsLeft());
  }

  std::string MediaOfBob() { return media_->Of("B set_media").address; }
};

TEST_F(SipFork, CallIsThatOfThePhoneWhichAnswers) {
  for (const std::string answering : {"one", "two"}) {
    const size_t bridges = media_->Count("A bridge");
    CallBob(SipPeer::Sdp("0"));
    ReplyAs("one", 180);
    AwaitAtAlice(180);
    ReplyAs("two", 180);
    ReplyAs(answering, 200, SdpAt(answering == "one" ? 41000 : 42000));
    AwaitAt(answering, "ACK");
    alice_.SendAck(AwaitAtAlice(200));
    EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
    EXPECT_EQ(MediaOfBob(), answering == "one" ? "127.0.0.1:41000/0" : "127.0.0.1:42000/0");
    EndCallOf(answering);
  }
}

TEST_F(SipFork, EarlyMediaIsThatOfThePhoneThatBeganLast) {
  CallBob(SipPeer::Sdp("0"));
  ReplyAs("one", 183, SdpAt(41000));
  AwaitAtAlice(183);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:41000/0");
  ReplyAs("two", 183, SdpAt(42000));
  ASSERT_TRUE(media_->WaitFor("B set_media", 2));
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:42000/0");
  EXPECT_EQ(media_->Count("A get_media"), 1u) << "the caller is told nothing new";
  ReplyAs("two", 200, SdpAt(42000));
  AwaitAt("two", "ACK");
  alice_.SendAck(AwaitAtAlice(200));
  EXPECT_EQ(media_->Count("B set_media"), 2u) << "the answer says nothing new";
  EndCallOf("two");
}

TEST_F(SipFork, MediaFollowsThePhoneThatAnswersNotTheOneThatPlays) {
  CallBob(SipPeer::Sdp("0"));
  ReplyAs("one", 183, SdpAt(41000));
  AwaitAtAlice(183);
  ReplyAs("two", 183, SdpAt(42000));
  ASSERT_TRUE(media_->WaitFor("B set_media", 2));
  ReplyAs("one", 200, SdpAt(41000));
  ASSERT_TRUE(media_->WaitFor("B set_media", 3));
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:41000/0");
  AwaitAt("one", "ACK");
  alice_.SendAck(AwaitAtAlice(200));
  EndCallOf("one");
}

TEST_F(SipFork, AnswerWithoutDescriptionStandsForItsOwnEarlyOne) {
  CallBob(SipPeer::Sdp("0"));
  ReplyAs("one", 183, SdpAt(41000));
  AwaitAtAlice(183);
  ReplyAs("two", 183, SdpAt(42000));
  ASSERT_TRUE(media_->WaitFor("B set_media", 2));
  ReplyAs("one", 200);
  ASSERT_TRUE(media_->WaitFor("B set_media", 3));
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:41000/0");
  AwaitAt("one", "ACK");
  alice_.SendAck(AwaitAtAlice(200));
  EndCallOf("one");
}

TEST_F(SipFork, EarlyMediaInAnotherCodecIsNotFollowed) {
  CallBob(SipPeer::Sdp("0 8"));
  ReplyAs("one", 183, SdpAt(41000, "0"));
  AwaitAtAlice(183);
  ReplyAs("two", 183, SdpAt(42000, "8"));
  ReplyAs("one", 200, SdpAt(41000, "0"));
  AwaitAt("one", "ACK");
  alice_.SendAck(AwaitAtAlice(200));
  EXPECT_EQ(media_->Count("B set_media"), 1u);
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:41000/0");
  EndCallOf("one");
}

TEST_F(SipFork, SecondAnswerGetsAckAndByeAndTheCallStays) {
  CallBob(SipPeer::Sdp("0"));
  ReplyAs("one", 180);
  AwaitAtAlice(180);
  ReplyAs("two", 180);
  ReplyAs("one", 200, SdpAt(41000));
  ExpectCallUpWith("one");
  ReplyAs("two", 200, SdpAt(42000));
  AwaitAt("two", "ACK");
  SipMessage bye = AwaitAt("two", "BYE");
  bob_.Reply(bye, 200);
  EXPECT_EQ(MediaOfBob(), "127.0.0.1:41000/0");
  EXPECT_EQ(switch_core_session_count(), 2u);
  EndCallOf("one");
}

TEST_F(SipFork, AnswersOfSeveralPhonesThatCrossOurCancelAreAllTakenDown) {
  CallBob(SipPeer::Sdp("0"));
  ReplyAs("one", 180);
  AwaitAtAlice(180);
  alice_.SendCancel();
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  bob_.Reply(*cancel, 200);
  ReplyAs("one", 200, SdpAt(41000));
  AwaitAt("one", "ACK");
  SipMessage bye = AwaitAt("one", "BYE");
  EXPECT_EQ(bye.Header("Reason"), "SIP;cause=487;text=\"ORIGINATOR_CANCEL\"");
  bob_.Reply(bye, 200);
  ReplyAs("two", 200, SdpAt(42000));
  AwaitAt("two", "ACK");
  bob_.Reply(AwaitAt("two", "BYE"), 200);
  EXPECT_TRUE(NoLegsLeft());
}

class SipCancelRace : public SipCall {
 protected:
  void ShortTimers() {
    Profile(
        "<param name=\"timer-T1\" value=\"20\"/><param name=\"timer-T1X64\" value=\"400\"/>"
        "<param name=\"timer-T2\" value=\"80\"/><param name=\"timer-T4\" value=\"100\"/>");
    StopSipSide();
    StartSipSide();
  }
};

TEST_F(SipCancelRace, CancelAfterTheAnswerChangesNothing) {
  bob_.Reply(CallBob(), 200, "", SipPeer::Sdp("0"));
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  std::optional<SipMessage> answer = alice_.AwaitResponse();
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->Status(), 200);
  alice_.SendCancel();
  std::optional<SipMessage> cancelled = alice_.AwaitResponse("CANCEL");
  ASSERT_TRUE(cancelled);
  EXPECT_TRUE(cancelled->Status() == 200 || cancelled->Status() == 481) << cancelled->start_line;
  alice_.SendAck(*answer);
  ASSERT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(switch_core_session_count(), 2u);
  EndCall();
}

TEST_F(SipCancelRace, CancelAfterARefusalChangesNothing) {
  bob_.Reply(CallBob(), 486);
  std::optional<SipMessage> refused = alice_.AwaitResponse();
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->Status(), 486);
  alice_.SendCancel();
  EXPECT_TRUE(alice_.AwaitResponse("CANCEL"));
  alice_.SendAck(*refused);
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipCancelRace, CancelOfNothingIs481) {
  alice_.SendRaw("CANCEL sip:2000@127.0.0.1 SIP/2.0\nVia: SIP/2.0/UDP " + alice_.Address() +
                 ";branch=z9hG4bK-none\nMax-Forwards: 70\nFrom: <sip:a@b>;tag=1\nTo: <sip:b@b>\nCall-ID: none\n"
                 "CSeq: 1 CANCEL\nContent-Length: 0\n\n");
  std::optional<SipMessage> response = alice_.AwaitResponse("CANCEL");
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 481);
}

TEST_F(SipCancelRace, CalleeThatNeverSendsThe487IsForgotten) {
  ShortTimers();
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  alice_.SendCancel();
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  bob_.Reply(*cancel, 200);
  EXPECT_TRUE(NoLegsLeft());
  bob_.Forget();  // so that the end of the test answers nothing for it
  const auto start = std::chrono::steady_clock::now();
  StopSipSide();  // waits for dialogs that are left, but no longer than 3 s
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900));
  StartSipSide();
}

TEST_F(SipCancelRace, CallerThatNeverAcknowledgesThe487IsForgotten) {
  ShortTimers();
  bob_.Reply(CallBob(), 180);
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 180);
  alice_.SendCancel();
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 487);
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipCancelRace, CancelBeforeAnyResponseWaitsForOne) {
  CallBob();
  alice_.SendCancel();
  ASSERT_EQ(alice_.AwaitResponse()->Status(), 487);
  EXPECT_TRUE(bob_.StaysSilent("CANCEL", std::chrono::milliseconds(100))) << "not before a response (RFC 3261, 9.1)";
  bob_.Reply(bobs_invite_, 180);
  std::optional<SipMessage> cancel = bob_.AwaitRequest("CANCEL");
  ASSERT_TRUE(cancel);
  bob_.Reply(*cancel, 200);
  bob_.Reply(bobs_invite_, 487);
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EXPECT_TRUE(NoLegsLeft());
}

}  // namespace
}  // namespace kvx_switch
