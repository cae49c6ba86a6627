// What far ends say of their streams: to the media server, and back in our descriptions.

#include <switch.h>

#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

using SipAttributes = SipCall;

TEST_F(SipAttributes, RtcpPortsOfBothFarEndsReachTheMediaServerAndOursAreTold) {
  SipMessage answer =
      ConnectToBob(SipPeer::Sdp("0", "a=rtcp:40009\n"), SipPeer::Sdp("0", "a=rtcp:40021 IN IP4 127.0.0.1\n"));
  EXPECT_EQ(media_->Of("A set_media").address, "127.0.0.1:40000/40009");
  EXPECT_EQ(media_->Of("B set_media").address, "127.0.0.1:40000/40021");
  EXPECT_THAT(bobs_invite_.body, HasSubstr("a=rtcp:20001 IN IP4 127.0.0.1\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=rtcp:20003 IN IP4 127.0.0.1\r\n"));
  EndCall();
}

TEST_F(SipAttributes, ThePacketTimeOfTheCallerReachesTheCalledSideAndComesBack) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0", "a=ptime:30\n"), SipPeer::Sdp("0"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("a=ptime:30\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=ptime:30\r\n"));
  EXPECT_EQ(media_->Of("A set_media").codecs, "PCMU/30");
  EXPECT_EQ(media_->Of("B get_media").codecs, "PCMU/30");
  EXPECT_EQ(media_->Of("B set_media").codecs, "PCMU/30");
  EndCall();
}

TEST_F(SipAttributes, ACallerWithoutAnnexBGetsNone) {
  SipMessage answer =
      ConnectToBob(SipPeer::Sdp("18", "a=fmtp:18 annexb=no\n"), SipPeer::Sdp("18", "a=fmtp:18 annexb=yes\n"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_EQ(media_->Of("A set_media").fmtp, "annexb=no");
  EXPECT_EQ(media_->Of("B set_media").fmtp, "annexb=no") << "his yes comes too late";
  EndCall();
}

TEST_F(SipAttributes, ACalledSideWithoutAnnexBGetsNone) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("18"), SipPeer::Sdp("18", "a=fmtp:18 annexb=no\n"));
  EXPECT_THAT(bobs_invite_.body, Not(HasSubstr("annexb")));
  EXPECT_THAT(answer.body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_EQ(media_->Of("A set_media").fmtp, "annexb=no");
  EXPECT_EQ(media_->Of("B set_media").fmtp, "annexb=no");
  EndCall();
}

TEST_F(SipAttributes, AProfileWithoutAnnexBTellsBothSides) {
  Profile("<param name=\"g729-annexb\" value=\"false\"/>");
  StopSipSide();
  StartSipSide();
  SipMessage answer = ConnectToBob(SipPeer::Sdp("18"), SipPeer::Sdp("18"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_EQ(media_->Of("A set_media").fmtp, "annexb=no");
  EXPECT_EQ(media_->Of("B set_media").fmtp, "annexb=no");
  EndCall();
}

TEST_F(SipAttributes, AnnexBStaysRefusedThroughHolding) {
  ConnectToBob(SipPeer::Sdp("18"), SipPeer::Sdp("18", "a=fmtp:18 annexb=no\n"));
  alice_.SendReinvite(SipPeer::Sdp("18", "a=sendonly\n"));
  std::optional<SipMessage> held = alice_.AwaitResponse();
  ASSERT_TRUE(held);
  alice_.AckReinvite(*held);
  EXPECT_THAT(held->body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_EQ(media_->Of("A set_media").fmtp, "annexb=no");
  EndCall();
}

}  // namespace
}  // namespace kvx_switch
