// Descriptions that the media server does not take, such as those with an address of a family that it does not have.

#include <switch.h>

#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

const std::string kUlaw = SipPeer::Sdp("0");

using SipAddressFamily = SipCall;

TEST_F(SipAddressFamily, OfAnOfferThatTheMediaServerRefusesIsNotAcceptable) {
  media_->Refuse("A set_media");
  const SipMessage refusal = CallAndBeRefused("2000", SipPeer::Sdp6("0"));
  EXPECT_EQ(refusal.Status(), 488);
  EXPECT_THAT(refusal.Header("Warning"), HasSubstr("\"the media server takes no media at ::1\""));
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(
      Logged(SWITCH_LOG_ERROR, "Call refused with 488: the media server takes no media at ::1 (call-id call-1-"));
}

TEST_F(SipAddressFamily, IsNotBlamedForWhatElseTheMediaServerRefuses) {
  media_->Refuse("A set_media");
  EXPECT_EQ(CallAndBeRefused("2000", kUlaw).Status(), 503);
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "The offer could not be given to the media server"));
}

TEST_F(SipAddressFamily, OfAnAnswerThatTheMediaServerRefusesEndsTheCallWith488) {
  media_->Refuse("B set_media");
  bob_.Reply(CallBob(kUlaw), 200, "", SipPeer::Sdp6("0"));
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  std::optional<SipMessage> refusal = alice_.AwaitResponse();
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->Status(), 488);
  alice_.SendAck(*refusal);
  EXPECT_TRUE(bob_.AwaitRequest("BYE"));
  bob_.AnswerWhatIsLeft();
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipAddressFamily, OfAChangeIsRefusedAndTheCallGoesOn) {
  ConnectToBob(kUlaw);
  std::string fax = SipPeer::FaxSdp();
  fax.replace(fax.find("c=IN IP4 127.0.0.1"), 18, "c=IN IP6 ::1");
  for (const std::string& offer : {SipPeer::Sdp6("0"), fax}) {
    alice_.SendReinvite(offer);
    std::optional<SipMessage> refusal = alice_.AwaitResponse();
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->Status(), 488);
    EXPECT_THAT(refusal->Header("Warning"), HasSubstr("the media server takes no media at ::1"));
    alice_.AckReinvite(*refusal);
  }
  EXPECT_EQ(media_->Count("A set_media"), 1u) << "it would let the leg go";
  EndCall();
}

TEST_F(SipAddressFamily, OfNowhereIsNoFamily) {
  ConnectToBob(kUlaw);
  std::string nowhere = kUlaw;
  nowhere.replace(nowhere.find("c=IN IP4 127.0.0.1"), 18, "c=IN IP6 ::");
  alice_.SendReinvite(nowhere);
  std::optional<SipMessage> held = alice_.AwaitResponse();
  ASSERT_TRUE(held);
  EXPECT_EQ(held->Status(), 200) << "it only holds the call";
  alice_.AckReinvite(*held);
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
