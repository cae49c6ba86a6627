#include <switch.h>

#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using SipCallOrder = SipCall;

TEST_F(SipCallOrder, MediaServerIsAskedInTheOrderOfACall) {
  ConnectToBob();
  EndCall();
  std::vector<std::string> calls = media_->Calls();
  // The last two come on two threads.
  ASSERT_EQ(calls.size(), 10u);
  EXPECT_THAT(std::vector<std::string>(calls.begin(), calls.begin() + 8),
              ElementsAre("A create", "A set_media", "B create", "B get_media", "B set_media", "A get_media",
                          "A bridge", "A unbridge"));
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 1u);
}

TEST_F(SipCallOrder, TheOrderIsTheSameWhenTheCalledSideHangsUp) {
  ConnectToBob();
  bob_.SendByeAsCalled(bobs_invite_);
  EXPECT_EQ(bob_.AwaitResponse("BYE")->Status(), 200);
  ASSERT_TRUE(alice_.AwaitRequest("BYE"));
  EXPECT_TRUE(NoLegsLeft());
  std::vector<std::string> calls = media_->Calls();
  ASSERT_EQ(calls.size(), 10u);
  EXPECT_EQ(calls[7], "A unbridge");
  EXPECT_EQ(media_->Count("A destroy"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 1u);
}

TEST_F(SipCallOrder, StatesAndArgumentsFollowTheDescriptions) {
  Profile("<param name=\"rtp-hop-limit\" value=\"33\"/><param name=\"rtp-timeout-sec\" value=\"77\"/>");
  StopSipSide();
  StartSipSide();
  ConnectToBob(SipPeer::Sdp("8 0 98", "a=rtpmap:98 telephone-event/8000\na=rtcp:40009\n"),
               SipPeer::Sdp("8 99", "a=rtpmap:99 telephone-event/8000\n"));

  auto offered = media_->Of("A set_media");
  EXPECT_EQ(offered.state, SWITCH_SDP_OFFER_RECEIVED);
  EXPECT_EQ(offered.codecs, "PCMA/20");
  EXPECT_EQ(offered.payload_type, 8);
  EXPECT_EQ(offered.event_type, 98);
  EXPECT_EQ(offered.address, "127.0.0.1:40000/40009");
  EXPECT_EQ(offered.session_name, "test call");

  auto offer = media_->Of("B get_media");
  EXPECT_EQ(offer.state, SWITCH_SDP_STATE_UNKNOWN);
  EXPECT_EQ(offer.codecs, "PCMA/20 PCMU/20");
  EXPECT_EQ(offer.event_type, 101);
  EXPECT_EQ(offer.hop_limit, 33);
  EXPECT_EQ(offer.rtp_timeout, 77u);
  EXPECT_FALSE(offer.has_answer_codec);

  auto answered = media_->Of("B set_media");
  EXPECT_EQ(answered.state, SWITCH_SDP_ANSWER_RECEIVED);
  EXPECT_EQ(answered.codecs, "PCMA/20");
  EXPECT_EQ(answered.event_type, 99);
  EXPECT_EQ(answered.address, "127.0.0.1:40000/0");

  auto answer = media_->Of("A get_media");
  EXPECT_EQ(answer.state, SWITCH_SDP_OFFER_RECEIVED);
  EXPECT_TRUE(answer.has_answer_codec);
  EXPECT_EQ(answer.codecs, "PCMA/20");
  EXPECT_EQ(answer.event_type, 98);
  EXPECT_EQ(media_->Count("A set_media"), 1u);
}

TEST_F(SipCallOrder, CallerIsToldAgainWhenTheCalledSideTakesAnotherCodec) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("8 0"), SipPeer::Sdp("0", "a=ptime:30\n"));
  EXPECT_EQ(media_->Count("A set_media"), 2u);
  EXPECT_EQ(media_->Of("A set_media").codecs, "PCMU/30");
  EXPECT_EQ(media_->Of("A get_media").codecs, "PCMU/30");
  EXPECT_EQ(media_->Of("B set_media").codecs, "PCMU/30");
  EXPECT_THAT(answer.body, HasSubstr("RTP/AVP 0\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=ptime:30\r\n"));
}

TEST_F(SipCallOrder, EachSideSpeaksItsOwnPayloadTypes) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("100", "a=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n"),
                                   SipPeer::Sdp("96", "a=rtpmap:96 AMR/8000\na=fmtp:96 octet-align=1\n"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("a=rtpmap:96 AMR/8000\r\na=fmtp:96 octet-align=1\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=rtpmap:100 AMR/8000\r\na=fmtp:100 octet-align=1\r\n"));
  EXPECT_EQ(media_->Of("A set_media").payload_type, 100);
  EXPECT_EQ(media_->Of("A set_media").fmtp, "octet-align=1");
  EXPECT_EQ(media_->Of("B set_media").payload_type, 96);
}

TEST_F(SipCallOrder, TelephoneEventsAreOfferedOnlyWhenTheCallerHasThem) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0"), SipPeer::Sdp("0"));
  EXPECT_THAT(bobs_invite_.body, Not(HasSubstr("telephone-event")));
  EXPECT_THAT(answer.body, Not(HasSubstr("telephone-event")));
}

TEST_F(SipCallOrder, CallerGetsNoTelephoneEventsThatTheCalledSideLacks) {
  SipMessage answer = ConnectToBob(SipPeer::Sdp("0 101", "a=rtpmap:101 telephone-event/8000\n"), SipPeer::Sdp("0"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("telephone-event/8000"));
  EXPECT_THAT(answer.body, Not(HasSubstr("telephone-event")));
  EXPECT_EQ(media_->Of("A get_media").event_type, 0);
}

TEST_F(SipCallOrder, PublicAddressIsWhatFarEndsAreTold) {
  media_->SetAddress("10.0.0.5,203.0.113.7");
  SipMessage answer = ConnectToBob();
  for (const std::string& body : {bobs_invite_.body, answer.body}) {
    EXPECT_THAT(body, HasSubstr("c=IN IP4 203.0.113.7\r\n"));
    EXPECT_THAT(body, HasSubstr(" IN IP4 203.0.113.7\r\na=sendrecv"));
    EXPECT_THAT(body, Not(HasSubstr("10.0.0.5")));
  }
}

TEST_F(SipCallOrder, LegsCarryWhatIsReadAtTheirEnd) {
  ConnectToBob();
  for (switch_call_direction_t direction : {SWITCH_CALL_DIRECTION_INBOUND, SWITCH_CALL_DIRECTION_OUTBOUND}) {
    switch_core_session_t* session = switch_core_session_locate(LegUuid(direction).c_str());
    ASSERT_TRUE(session);
    switch_channel_t* channel = switch_core_session_get_channel(session);
    EXPECT_STREQ(switch_channel_get_variable(channel, "advertised_media_ip"), "127.0.0.1");
    EXPECT_STREQ(switch_channel_get_variable(channel, "remote_media_ip"), "127.0.0.1");
    EXPECT_STREQ(switch_channel_get_variable(channel, "sip_use_codec_name"), "PCMU");
    EXPECT_STREQ(switch_channel_get_variable(channel, "sip_use_codec_rate"), "8000");
    EXPECT_THAT(switch_channel_get_variable(channel, "rtcpmon_start_time"),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"));
    switch_core_session_rwunlock(session);
  }
}

TEST_F(SipCallOrder, VariablesOfTheBridgeGoToTheCalledLeg) {
  Dialplan(
      "<extension name=\"bob\"><condition><action application=\"set\" data=\"mine=caller ${caller_id_number}\"/>"
      "<action application=\"bridge\" data=\"{jitterbuffer_mode=none,note=for bob}sip:2000@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  ConnectToBob();
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "note"), "for bob");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "jitterbuffer_mode"), "none");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "mine"), "unset");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "mine"), "caller alice");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "note"), "unset");
}

TEST_F(SipCallOrder, ExportedVariablesGoToTheCalledLegToo) {
  Dialplan(
      "<extension name=\"bob\"><condition><action application=\"export\" data=\"generate_rtcp_report=true\"/>"
      "<action application=\"export\" data=\"note=first\"/>"
      "<action application=\"export\" data=\"nolocal:theirs=yes\"/>"
      "<action application=\"export\" data=\"no name${none} and value\"/>"
      "<action application=\"set\" data=\"note=${note} and last\"/>"
      "<action application=\"bridge\" data=\"sip:2000@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  ConnectToBob();
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "generate_rtcp_report"), "true");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "generate_rtcp_report"), "true");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "note"), "first and last") << "as it is when the leg is made";
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "theirs"), "unset");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "theirs"), "yes");
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "export: \"no name and value\" is not name=value"));
}

TEST_F(SipCallOrder, TheBridgesOwnVariablesComeBeforeExportedOnes) {
  Dialplan(
      "<extension name=\"bob\"><condition><action application=\"export\" data=\"note=exported\"/>"
      "<action application=\"bridge\" data=\"{note=of the bridge}sip:2000@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  ConnectToBob();
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "note"), "of the bridge");
}

TEST_F(SipCallOrder, MediaStartsWhenALegIsAnswered) {
  CallBob();
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "rtcpmon_start_time"), "unset");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_INBOUND, "rtcpmon_start_time"), "unset");
}

TEST_F(SipCallOrder, CalledSideSeesTheCallersNameAndNumber) {
  CallBob();
  EXPECT_THAT(bobs_invite_.Header("From"), testing::StartsWith("\"Al \\\"Ice\\\"\" <sip:alice@127.0.0.1:"));
  EXPECT_EQ(bobs_invite_.Header("Max-Forwards"), "69");
}

}  // namespace
}  // namespace kvx_switch
