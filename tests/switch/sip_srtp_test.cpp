// SRTP as two phones and the media server see it: who gets which key, and which calls do not come up.

#include <switch.h>

#include "sip/srtp_keys.h"
#include "sip_call_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::Not;

// Base64 of 30 octets each; what they are does not matter.
constexpr const char* kAlicesKey = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwd";
constexpr const char* kBobsKey = "HRwbGhkYFxYVFBMSERAPDg0MCwoJCAcGBQQDAgEA";

class SipSrtp : public SipCall {
 protected:
  void StartWith(const std::string& secure_media) {
    Profile("<param name=\"rtp-secure-media\" value=\"" + secure_media + "\"/>");
    StopSipSide();
    StartSipSide();
  }

  static std::string Crypto(const char* key, const std::string& suite = "AES_CM_128_HMAC_SHA1_80") {
    return "a=crypto:1 " + suite + " inline:" + key + "\n";
  }

  static std::string Secure(std::string sdp) { return sdp.replace(sdp.find("RTP/AVP"), 7, "RTP/SAVP"); }

  /// The key of a description, "" when it has none.
  static std::string KeyIn(const std::string& sdp) {
    const size_t start = sdp.find("inline:");
    return start == std::string::npos ? "" : sdp.substr(start + 7, sdp.find_first_of("|\r\n", start) - start - 7);
  }
};

TEST_F(SipSrtp, EachSideIsEncryptedWithKeysOfItsOwn) {
  StartWith("mandatory");
  SipMessage answer =
      ConnectToBob(Secure(SipPeer::Sdp("0", Crypto(kAlicesKey))), Secure(SipPeer::Sdp("0", Crypto(kBobsKey))));
  const std::string to_alice = KeyIn(answer.body);
  const std::string to_bob = KeyIn(bobs_invite_.body);
  EXPECT_THAT(answer.body, HasSubstr("RTP/SAVP 0\r\n"));
  EXPECT_THAT(answer.body, HasSubstr("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:"));
  EXPECT_THAT(bobs_invite_.body, HasSubstr("RTP/SAVP 0\r\n"));
  EXPECT_EQ(to_alice.size(), 40u);
  EXPECT_NE(to_alice, to_bob);
  EXPECT_NE(to_alice, kAlicesKey);
  EXPECT_EQ(media_->Of("A set_media").crypto, "80 " + std::string(kAlicesKey) + " mandatory");
  EXPECT_EQ(media_->Of("A get_media").crypto, "80 " + to_alice + " mandatory");
  EXPECT_EQ(media_->Of("B get_media").crypto, "80 " + to_bob + " mandatory");
  EXPECT_EQ(media_->Of("B set_media").crypto, "80 " + std::string(kBobsKey) + " mandatory");
  EXPECT_TRUE(Logged(SWITCH_LOG_NOTICE, ", SRTP AES_CM_128_HMAC_SHA1_80"));
  EndCall();
}

TEST_F(SipSrtp, OptionalKeysAreOfferedAndMayBeDeclined) {
  StartWith("optional");
  SipMessage answer = ConnectToBob();
  EXPECT_THAT(answer.body, Not(HasSubstr("a=crypto")));
  EXPECT_EQ(media_->Of("A set_media").crypto, "-");
  EXPECT_THAT(bobs_invite_.body, HasSubstr("RTP/AVP 0 8\r\n"));
  EXPECT_EQ(media_->Of("B get_media").crypto, "80 " + KeyIn(bobs_invite_.body));
  EXPECT_EQ(media_->Of("B set_media").crypto, "clear");
  EndCall();
}

TEST_F(SipSrtp, OneLegMayBeEncryptedAndTheOtherNot) {
  StartWith("optional");
  SipMessage answer = ConnectToBob(Secure(SipPeer::Sdp("0", Crypto(kAlicesKey, "AES_CM_128_HMAC_SHA1_32"))));
  EXPECT_THAT(answer.body, HasSubstr("a=crypto:1 AES_CM_128_HMAC_SHA1_32 inline:"));
  EXPECT_EQ(media_->Of("A set_media").crypto, "32 " + std::string(kAlicesKey) + " mandatory");
  EXPECT_EQ(media_->Of("B set_media").crypto, "clear");
  EndCall();
}

TEST_F(SipSrtp, ClearCallsAreRefusedWhereItIsMandatory) {
  StartWith("mandatory");
  EXPECT_EQ(CallAndBeRefused("2000", SipPeer::Sdp()).Status(), 488);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "(SRTP is mandatory: no key is offered)"));
  EXPECT_TRUE(media_->Calls().empty());
}

TEST_F(SipSrtp, AnAnswerWithoutTheKeyEndsTheCall) {
  StartWith("mandatory");
  CallBob(Secure(SipPeer::Sdp("0", Crypto(kAlicesKey))));
  bob_.Reply(bobs_invite_, 200, "", Secure(SipPeer::Sdp("0")));
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->Status(), 488);
  alice_.SendAck(*response);
  EXPECT_TRUE(Logged(SWITCH_LOG_ERROR, "cannot be taken: no usable SRTP key: no key is given"));
  EXPECT_EQ(media_->Count("B set_media"), 0u) << "nothing of it reaches the media server";
}

TEST_F(SipSrtp, AVariableOfTheCalledLegDecidesForOneCall) {
  Dialplan(
      "<extension name=\"secure\"><condition field=\"destination_number\" expression=\"^3000$\">"
      "<action application=\"bridge\" data=\"{rtp_secure_media=mandatory}sip:bob@" +
      bob_.Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  alice_.SendInvite("3000", SipPeer::Sdp("0"));
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  EXPECT_THAT(invite->body, HasSubstr("RTP/SAVP 0\r\n"));
  bob_.Reply(*invite, 486);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.SendAck(*response);
}

TEST_F(SipSrtp, NoKeyIsEverLogged) {
  StartWith("mandatory");
  log_->Clear();
  SipMessage answer =
      ConnectToBob(Secure(SipPeer::Sdp("0", Crypto(kAlicesKey))), Secure(SipPeer::Sdp("0", Crypto(kBobsKey))));
  EndCall();
  for (const std::string& key : {std::string(kAlicesKey), std::string(kBobsKey), KeyIn(answer.body)}) {
    for (switch_log_level_t level :
         {SWITCH_LOG_DEBUG, SWITCH_LOG_INFO, SWITCH_LOG_NOTICE, SWITCH_LOG_WARNING, SWITCH_LOG_ERROR}) {
      EXPECT_FALSE(Logged(level, key));
    }
  }
}

}  // namespace
}  // namespace kvx_switch
