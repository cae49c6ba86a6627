#include <switch.h>

#include "core/session.h"
#include "sip/sip_front.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;

class SipRefusal : public SipCall {
 protected:
  /// Whatever came before, the switch still takes calls.
  void ExpectCallsStillWork() {
    EXPECT_TRUE(NoLegsLeft());
    bob_.Reply(CallBob(), 486);
    std::optional<SipMessage> response = alice_.AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), 486);
    alice_.SendAck(*response);
  }
};

TEST_F(SipRefusal, UnknownNumberIsNamedWithItsContext) {
  EXPECT_EQ(CallAndBeRefused("9999", SipPeer::Sdp()).Status(), 404);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "No route: the dialplan has nothing for \"9999\" in context \"default\""));
  EXPECT_TRUE(media_->Calls().empty());
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, MalformedSdpIsQuoted) {
  EXPECT_EQ(CallAndBeRefused("2000", "v=0\no=- 1 1 IN IP4 127.0.0.1\nm=audio nowhere RTP/AVP 0\n").Status(), 400);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR,
                     "INVITE with malformed SDP, line 3 \"m=audio nowhere RTP/AVP 0\": the port is no number"));
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, NoCommonCodecNamesBothSides) {
  SipMessage response = CallAndBeRefused("2000", SipPeer::Sdp("3 96", "a=rtpmap:96 opus/48000/2\n"));
  EXPECT_EQ(response.Status(), 488);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR,
                     "No common codec: offered are GSM/8000, opus/48000; supported are PCMU/8000, PCMA/8000, "
                     "G729/8000, AMR/8000 (call-id call-1-"));
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, EncryptedOrWithdrawnAudioIsNoCommonCodec) {
  std::string savp = SipPeer::Sdp();
  savp.replace(savp.find("RTP/AVP"), 7, "RTP/SAVP");
  EXPECT_EQ(CallAndBeRefused("2000", savp).Status(), 488);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR,
                     "No common codec: offered are audio over RTP/SAVP (SRTP is switched off); supported are"));
  std::string withdrawn = SipPeer::Sdp();
  withdrawn.replace(withdrawn.find("40000"), 5, "0");
  EXPECT_EQ(CallAndBeRefused("2000", withdrawn).Status(), 488);
}

TEST_F(SipRefusal, CodecPreferencesNarrowWhatIsTaken) {
  Profile("<param name=\"codec-prefs\" value=\"PCMA,opus\"/>");
  StopSipSide();
  StartSipSide();
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "\"codec-prefs\" names opus, which no module registered"));
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp("0")).Status(), 488);
  CallBob(SipPeer::Sdp("0 8"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("RTP/AVP 8\r\n"));
}

TEST_F(SipRefusal, OtherBodiesAreUnsupported) {
  EXPECT_EQ(CallAndBeRefused("2000", "", "Content-Type: text/plain\nContent-Length: 5\n\nhello").Status(), 415);
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, FullMediaServerMeans503) {
  media_->SetAvailable(false);
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 503);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "Call refused with 503: no media server is available"));
  EXPECT_TRUE(media_->Calls().empty());
  media_->SetAvailable(true);
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, SecondLegDoesNotNeedRoomOfItsOwn) {
  CallBob();
  media_->SetAvailable(false);
  bob_.Reply(bobs_invite_, 200, "", SipPeer::Sdp("0"));
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 200);
  alice_.SendAck(*response);
}

TEST_F(SipRefusal, WithoutAMediaServerModuleEveryCallGets503) {
  media_.reset();
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 503);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "No codec is registered: no media server module is loaded"));
}

TEST_F(SipRefusal, PausedSwitchAnswers503) {
  int32_t on = 1;
  switch_core_session_ctl(SCSC_PAUSE_ALL, &on);
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 503);
  int32_t off = 0;
  switch_core_session_ctl(SCSC_PAUSE_ALL, &off);
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, RequiredExtensionsAreRefusedByTheirNames) {
  alice_.SendInvite("2000", SipPeer::Sdp(), "Require: 100rel\n");
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 420);
  EXPECT_EQ(response->Header("Unsupported"), "100rel");
  alice_.SendAck(*response);
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, LoopsEndWithMaxForwards) {
  alice_.SendRaw("INVITE sip:2000@" + SipAddress() + " SIP/2.0\nVia: SIP/2.0/UDP " + alice_.Address() +
                 ";branch=z9hG4bK-mf\nMax-Forwards: 0\nFrom: <sip:a@b>;tag=1\nTo: <sip:2000@b>\nCall-ID: mf\n"
                 "CSeq: 1 INVITE\nContact: <sip:a@" +
                 alice_.Address() + ">\nContent-Length: 0\n\n");
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 483);
}

TEST_F(SipRefusal, BadBridgeTargetEndsTheCall) {
  Dialplan(
      "<extension name=\"x\"><condition field=\"destination_number\" expression=\"^2(.*)\">"
      "<action application=\"bridge\" data=\"user/$1\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 484);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "bridge: \"user/000\" is not a SIP URI (sip:user@host:port)"));
}

TEST_F(SipRefusal, UnreachableTargetEndsTheCall) {
  Dialplan(
      "<extension name=\"x\"><condition><action application=\"bridge\" data=\"sip:x@127.0.0.1:9\"/></condition>"
      "</extension>");
  Profile("<param name=\"leg-timeout\" value=\"2\"/>");
  StopSipSide();
  StartSipSide();
  int status = CallAndBeRefused("2000", SipPeer::Sdp()).Status();
  EXPECT_TRUE(status == 502 || status == 503 || status == 480) << status;
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipRefusal, HangupActionAnswersWithItsCause) {
  Dialplan(
      "<extension name=\"x\"><condition><action application=\"log\" data=\"NOTICE from ${caller_id_number}\"/>"
      "<action application=\"hangup\" data=\"USER_BUSY\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  EXPECT_EQ(CallAndBeRefused("1", SipPeer::Sdp()).Status(), 486);
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, "from alice"));
}

TEST_F(SipRefusal, AnswerActionAnswersBeforeTheBridge) {
  Dialplan(
      "<extension name=\"x\"><condition><action application=\"answer\"/><action application=\"bridge\" data=\"sip:b@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  alice_.SendInvite("2000", SipPeer::Sdp("0 8"));
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 200);
  alice_.SendAck(*response);
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->body, HasSubstr("RTP/AVP 0\r\n"));
  bob_.Reply(*invite, 603);
  EXPECT_TRUE(alice_.AwaitRequest("BYE"));
}

TEST_F(SipRefusal, OptionsAre200AndOtherMethods405) {
  auto request = [this](const std::string& method) {
    alice_.SendRaw(method + " sip:" + SipAddress() + " SIP/2.0\nVia: SIP/2.0/UDP " + alice_.Address() +
                   ";branch=z9hG4bK-" + method + "\nMax-Forwards: 70\nFrom: <sip:a@b>;tag=1\nTo: <sip:b@b>\nCall-ID: " +
                   method + "\nCSeq: 1 " + method + "\nContent-Length: 0\n\n");
    std::optional<SipMessage> response = alice_.AwaitResponse(method);
    return response ? response->Status() : 0;
  };
  EXPECT_EQ(request("OPTIONS"), 200);
  for (const char* method : {"REGISTER", "MESSAGE", "SUBSCRIBE", "PUBLISH"}) {
    int status = request(method);
    EXPECT_TRUE(status == 405 || status == 501) << method << " " << status;
  }
}

TEST_F(SipRefusal, MalformedMessagesLeaveNothingBehind) {
  const char* const kMessages[] = {
      "hello",
      "INVITE",
      "INVITE sip:2000 SIP/2.0\n\n",
      "INVITE sip:2000@127.0.0.1 SIP/2.0\nVia: SIP/2.0/UDP 127.0.0.1\n\n",
      "INVITE sip:2000@127.0.0.1 SIP/9.9\nCall-ID: x\nCSeq: 1 INVITE\nFrom: x\nTo: y\nContent-Length: -5\n\n",
      "INVITE sip:2000@127.0.0.1 SIP/2.0\nCall-ID: x\nCSeq: 99999999999 INVITE\nFrom: <<<\nTo: >>>\n"
      "Content-Length: 99999\n\nv=0",
      "SIP/2.0 200 OK\nCSeq: 1 INVITE\nCall-ID: none\n\n",
      "BYE sip:2000@127.0.0.1 SIP/2.0\nVia: SIP/2.0/UDP 127.0.0.1;branch=z9hG4bKb\nFrom: <sip:a@b>;tag=1\n"
      "To: <sip:a@b>;tag=2\nCall-ID: unknown\nCSeq: 1 BYE\n\n",
  };
  for (const char* message : kMessages) alice_.SendRaw(message);
  ExpectCallsStillWork();
}

TEST_F(SipRefusal, ReloadTakesTheNewDialplanOrKeepsTheOld) {
  const char* what = "";
  directory_.Write("dialplan/default.xml", "<context name=\"default\">\n<extension></context>");
  EXPECT_NE(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(what, testing::EndsWith("default.xml:2: mismatched tag"));
  ExpectCallsStillWork();
  directory_.Write("dialplan/default.xml",
                   "<context name=\"default\"><extension name=\"e\"><condition>\n<action application=\"fly\"/>"
                   "</condition></extension></context>");
  EXPECT_NE(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(what, testing::EndsWith("default.xml:2: there is no application \"fly\"; the dialplan stays as it was"));
  ExpectCallsStillWork();
  directory_.Write("dialplan/default.xml", "<context name=\"other\"/>");
  EXPECT_NE(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(what, HasSubstr("internal.xml: context \"default\" is in no file of "));
  ExpectCallsStillWork();
  directory_.Write("dialplan/default.xml", "<context name=\"default\"/>");
  EXPECT_EQ(switch_xml_reload(&what), SWITCH_STATUS_SUCCESS) << what;
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 404);
}

class SipStart : public SipCall {};

TEST_F(SipStart, MistakesInTheConfigurationAreNamed) {
  StopSipSide();
  std::string error;
  directory_.Write("sip_profiles/internal.xml",
                   "<profile name=\"internal\"><settings><param name=\"context\" value=\"no\"/>"
                   "</settings></profile>");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("internal.xml:1: context \"no\" is in no file of"));
  directory_.Write("dialplan/default.xml", "<context>");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("default.xml:1: "));
  EXPECT_EQ(SipAddress(), "");
  std::filesystem::remove_all(directory_.Path() + "/sip_profiles");
  directory_.Write("dialplan/default.xml", "<context name=\"default\"/>");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("sip_profiles: cannot be listed: No such file or directory"));
  std::filesystem::create_directories(directory_.Path() + "/sip_profiles");
  EXPECT_FALSE(StartSip(error));
  EXPECT_THAT(error, HasSubstr("sip_profiles: there is no profile (*.xml)"));
}

TEST_F(SipStart, ManyCallsAtOnceLeaveNothing) {
  std::vector<std::unique_ptr<SipPeer>> phones;
  std::vector<SipMessage> invites;
  for (int i = 0; i < 20; ++i) {
    phones.push_back(std::make_unique<SipPeer>());
    phones.back()->Use(SipAddress());
    phones.back()->SendInvite("2000", SipPeer::Sdp("0"));
    std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
    ASSERT_TRUE(invite);
    invites.push_back(*invite);
  }
  for (const SipMessage& invite : invites) bob_.Reply(invite, 200, "", SipPeer::Sdp("0"));
  for (auto& phone : phones) {
    std::optional<SipMessage> response = phone->AwaitResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->Status(), 200);
    phone->SendAck(*response);
  }
  EXPECT_EQ(switch_core_session_count(), 40u);
  for (auto& phone : phones) phone->SendBye();
  for (auto& phone : phones) EXPECT_EQ(phone->AwaitResponse("BYE")->Status(), 200);
  for (int i = 0; i < 20; ++i) {
    std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
    ASSERT_TRUE(bye);
    bob_.Reply(*bye, 200);
  }
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("A destroy"), 20u);
  EXPECT_EQ(media_->Count("B destroy"), 20u);
}

}  // namespace
}  // namespace kvx_switch
