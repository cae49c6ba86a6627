// Answers that name the call's codec more than once: AMR in its two ways of packing (RFC 4867, 8.1).

#include <switch.h>

#include "sip/call_leg.h"
#include "sip/leg_control.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

constexpr const char* kAligned = "a=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n";
constexpr const char* kBoth = "a=rtpmap:101 AMR/8000\na=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n";

class SipAnsweredPacking : public SipCall {
 protected:
  void Connect() { ConnectToBob(SipPeer::Sdp("100", kAligned), SipPeer::Sdp("100", kAligned)); }

  std::string HoldAlice() {
    return AskLeg(LegUuid(SWITCH_CALL_DIRECTION_INBOUND), [](CallLeg& leg) { return leg.Hold(HoldChange::kHold); });
  }

  /// Alice is put on hold and answers with `sdp`.
  void AliceAnswersHold(const std::string& sdp) {
    const size_t bridges = media_->Count("A bridge");
    EXPECT_EQ(HoldAlice(), "");
    std::optional<SipMessage> invite = alice_.AwaitRequest("INVITE");
    ASSERT_TRUE(invite);
    alice_.Reply(*invite, 200, "", sdp);
    EXPECT_TRUE(alice_.AwaitRequest("ACK"));
    EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
  }
};

TEST_F(SipAnsweredPacking, OfTheCalledSideIsTheOneThatWasOffered) {
  ConnectToBob(SipPeer::Sdp("100", kAligned), SipPeer::Sdp("101 100", kBoth));
  EXPECT_EQ(media_->Of("B set_media").payload_type, 100);
  EXPECT_EQ(media_->Of("B set_media").fmtp, "octet-align=1");
  EndCall();
}

TEST_F(SipAnsweredPacking, OfAHeldFarEndIsTheCalls) {
  Connect();
  AliceAnswersHold(SipPeer::Sdp("101 100", std::string(kBoth) + "a=recvonly\n"));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 100);
  EXPECT_EQ(media_->Of("A set_media").fmtp, "octet-align=1");
  EndCall();
}

TEST_F(SipAnsweredPacking, ThatIsNotTheCallsIsTakenWhenThereIsNoOther) {
  Connect();
  AliceAnswersHold(SipPeer::Sdp("101", "a=rtpmap:101 AMR/8000\na=recvonly\n"));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 101);
  EndCall();
}

TEST_F(SipAnsweredPacking, InAnAckIsTheCalls) {
  Connect();
  const size_t told = media_->Count("A set_media");
  alice_.SendReinvite("");
  std::optional<SipMessage> offer = alice_.AwaitResponse();
  ASSERT_TRUE(offer && offer->Status() == 200);
  alice_.AckReinvite(*offer, SipPeer::Sdp("101 100", kBoth));
  EXPECT_TRUE(media_->WaitFor("A set_media", told + 1));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 100);
  EndCall();
}

TEST_F(SipAnsweredPacking, OfACallerWithoutAnOfferIsTheCalledSides) {
  alice_.SendInvite("2000", "");
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 200, "", SipPeer::Sdp("96", "a=rtpmap:96 AMR/8000\na=fmtp:96 octet-align=1\n"));
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  std::optional<SipMessage> offer = alice_.AwaitResponse();
  ASSERT_TRUE(offer && offer->Status() == 200);
  alice_.SendAck(*offer, SipPeer::Sdp("101 100", kBoth));
  EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 100);
  EndCall();
}

TEST_F(SipAnsweredPacking, AnotherCodecEndsTheCallAndIsNamed) {
  Connect();
  EXPECT_EQ(HoldAlice(), "");
  std::optional<SipMessage> invite = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  alice_.Reply(*invite, 200, "", SipPeer::Sdp("0"));
  EXPECT_TRUE(alice_.AwaitRequest("BYE"));
  EXPECT_TRUE(bob_.AwaitRequest("BYE"));
  alice_.AnswerWhatIsLeft();
  bob_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR,
                     "The answer to our re-INVITE cannot be taken: it names PCMU/8000, the call has "
                     "AMR/8000; the call ends"));
}

}  // namespace
}  // namespace kvx_switch
