// What a far end is offered that is held, or has refused to fax.

#include <switch.h>

#include "sip/call_leg.h"
#include "sip/leg_control.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kUlaw = SipPeer::Sdp("0");

class SipHeldOffer : public SipCall {
 protected:
  std::string Hold(switch_call_direction_t leg, HoldChange change) {
    return AskLeg(LegUuid(leg), [change](CallLeg& asked) { return asked.Hold(change); });
  }

  /// A re-INVITE of ours comes to the phone, which answers it; the INVITE.
  static SipMessage Answers(SipPeer& phone, int status, const std::string& sdp = "") {
    std::optional<SipMessage> invite = phone.AwaitRequest("INVITE");
    EXPECT_TRUE(invite) << "no re-INVITE";
    if (!invite) return {};
    phone.Reply(*invite, status, "", sdp);
    return *invite;
  }

  /// Alice wants to fax, and hears `status` for it.
  void FaxIsRefused(int status) {
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), status);
    alice_.AckReinvite(*response);
  }
};

TEST_F(SipHeldOffer, AfterARefusedFaxAudioIsOffered) {
  ConnectToBob(kUlaw);
  alice_.SendReinvite(SipPeer::FaxSdp());
  Answers(bob_, 415);
  FaxIsRefused(488);
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_OUTBOUND, HoldChange::kHold), "");
  const SipMessage hold = Answers(bob_, 200, SipPeer::Sdp("0", "a=recvonly\n"));
  EXPECT_THAT(hold.body, HasSubstr("m=audio "));
  EXPECT_THAT(hold.body, HasSubstr("a=sendonly\r\n"));
  EXPECT_THAT(hold.body, Not(HasSubstr("image")));
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_RECEIVE);
  EndCall();
}

TEST_F(SipHeldOffer, AFaxThatIsAnsweredWithoutAStreamIsFollowedByAudio) {
  ConnectToBob(kUlaw);
  alice_.SendReinvite(SipPeer::FaxSdp());
  EXPECT_THAT(Answers(bob_, 200, SipPeer::FaxSdp(0)).body, HasSubstr("m=image "));
  FaxIsRefused(488);
  const SipMessage audio = Answers(bob_, 200, kUlaw);
  EXPECT_THAT(audio.body, HasSubstr("m=audio "));
  EXPECT_THAT(audio.body, HasSubstr("a=sendrecv\r\n"));
  EXPECT_THAT(audio.body, Not(HasSubstr("image")));
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  EndCall();
}

TEST_F(SipHeldOffer, AHeldPhoneThatWantsAnOfferStaysHeld) {
  ConnectToBob(kUlaw);
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kHold), "");
  Answers(alice_, 200, SipPeer::Sdp("0", "a=recvonly\n"));
  EXPECT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_SEND);
  const size_t descriptions = media_->Count("A set_media");
  alice_.SendReinvite("");
  std::optional<SipMessage> offer = alice_.AwaitResponse();
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->Status(), 200);
  EXPECT_THAT(offer->body, HasSubstr("a=sendonly\r\n"));
  alice_.AckReinvite(*offer, kUlaw);
  EXPECT_TRUE(media_->WaitFor("A set_media", descriptions + 1));
  EXPECT_EQ(Hold(SWITCH_CALL_DIRECTION_INBOUND, HoldChange::kResume), "");
  EXPECT_EQ(media_->Count("A bridge"), 2u) << "a phone that answers more than was offered is held all the same";
  Answers(alice_, 200, kUlaw);
  EXPECT_TRUE(media_->WaitFor("A bridge", 3));
  EXPECT_EQ(media_->Of("A bridge").direction, RTPDIR_DUPLEX);
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
