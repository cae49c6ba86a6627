#include <netinet/in.h>

#include <boost/uuid/string_generator.hpp>

#include "module/channel_set_media_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaConfig;
using kvx_media_server::uuid_to_text;
using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const char kUnusedUuid[] = "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30";

/// Too long a label for any resolver, so that no query leaves the machine.
const std::string kUnresolvable = std::string(70, 'x') + ".example.org";

using ChannelSetMediaDeathTest = ChannelSetMedia;

TEST_F(ChannelSetMediaDeathTest, TakesNoNullConnection) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      channel_set_media(nullptr, "192.0.2.7", 4000, 0, "call", nullptr, 0, 0, 0, nullptr, SWITCH_FALSE,
                        SWITCH_SDP_OFFER_RECEIVED, SWITCH_FALSE, SWITCH_FALSE, SWITCH_FALSE),
      "switch_status_t channel_set_media\\(switch_media_connection_t ?\\*, const char ?\\*, switch_port_t, "
      "switch_port_t, const char ?\\*, switch_codec_t ?\\*, int, switch_payload_t, int, switch_core_crypto_setting "
      "?\\*, switch_bool_t, switch_sdp_negotiation_state_t, switch_bool_t, switch_bool_t, switch_bool_t\\).*mc != "
      "__null");
}

TEST_F(ChannelSetMedia, FailsAndCleansUpForAnUnknownLeg) {
  Forget(leg_);
  EXPECT_EQ(leg_.SetMedia({}), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find FS UUID in FS UUID table!\n")));
  EXPECT_TRUE(log_.Has(nothing_to_clean_up(leg_.Uuid())));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
}

TEST_F(ChannelSetMedia, FailsWithoutCleaningUpWhenTheMediaSessionIsGone) {
  Forget(leg_);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(leg_.Uuid(), boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(leg_.SetMedia({}), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find Media Session in (fsuuid=" + leg_.Uuid() +
                                                    "; msuuid=" + kUnusedUuid + ") in media sessions Table\n")));
  EXPECT_TRUE(leg_.Known());
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
}

TEST_F(ChannelSetMedia, FailsAndCleansUpWithoutAConnection) {
  MediaLeg other;
  other.Connection()->private_info = other.Session();
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(other.Uuid(), leg_.MediaSession());
  EXPECT_EQ(other.SetMedia({}), SWITCH_STATUS_FALSE);
  EXPECT_THAT(LookupLines(), ElementsAre(error_line("Cannot find Network Connection (fsuuid=" + other.Uuid() +
                                                    "; msuuid=" + uuid_to_text(leg_.MediaSession()) +
                                                    ") within media sessions objects\n")));
  EXPECT_FALSE(other.Known());
  EXPECT_TRUE(leg_.Known());
}

TEST_F(ChannelSetMedia, RefusesOtherStatesWithoutCleaningUpYetDetectsTheRemoteAddress) {
  for (const auto state : {SWITCH_SDP_STATE_UNKNOWN, SWITCH_SDP_OFFER_SENT, SWITCH_SDP_COMPLETED}) {
    log_.Clear();
    servers_.ForgetCalls();
    RemoteMedia media;
    media.state = state;
    media.enable_remote_address_detect = SWITCH_TRUE;
    EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_FALSE);
    EXPECT_THAT(SetMediaLines(), ElementsAre(error_line("Attempt to set remote SDP in an invalid SDP state " +
                                                        std::to_string(state) + ". \n")));
    EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kSetRemoteAddressDetection));
    ExpectInPlace();
  }
}

TEST_F(ChannelSetMedia, DetectsTheRemoteAddressBeforeTheDescriptionAndOnlyOnRequest) {
  RemoteMedia media;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kSetRemoteOffer));

  servers_.ForgetCalls();
  media.enable_remote_address_detect = SWITCH_TRUE;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(servers_.Operations(),
              ElementsAre(ScriptedOperation::kSetRemoteAddressDetection, ScriptedOperation::kSetRemoteOffer));
}

TEST_F(ChannelSetMedia, GoesOnWhenTheRemoteAddressCannotBeDetected) {
  servers_.Fail(ScriptedOperation::kSetRemoteAddressDetection);
  RemoteMedia media;
  media.enable_remote_address_detect = SWITCH_TRUE;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelSetMedia, OffersInTheTwoStatesOfARemoteOffer) {
  for (const auto state : {SWITCH_SDP_OFFER_RECEIVED, SWITCH_SDP_ANSWER_SENT}) {
    servers_.ForgetCalls();
    RemoteMedia media;
    media.state = state;
    EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
    EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kSetRemoteOffer));
  }
}

TEST_F(ChannelSetMedia, PassesAddressPortsAndName) {
  RemoteMedia media;
  media.rtcp_port = 4711;
  media.session_name = "fax call";
  for (const MediaConfig& config : {Offer(media), Answer(media)}) {
    EXPECT_STREQ(config.GetIPAddress(), "192.0.2.7");
    EXPECT_EQ(config.GetRtpPort(), 4000);
    EXPECT_EQ(config.GetRtcpFlag(), true);
    EXPECT_EQ(config.GetRtcpPort(), 4711);
    EXPECT_EQ(std::string(config.GetCname()), "fax call@" + leg_.Uuid());
    EXPECT_FALSE(config.GetUdpPassThru());
    EXPECT_THAT(config.GetCodecs(), IsEmpty());
  }
}

TEST_F(ChannelSetMedia, TakesThePortAboveForRtcpWhenNoneIsGiven) {
  EXPECT_EQ(Offer().GetRtcpPort(), 4001);
  EXPECT_EQ(Answer().GetRtcpPort(), 4001);
}

TEST_F(ChannelSetMedia, CutsANameThatIsTooLong) {
  const std::string long_name(400, 'n');
  RemoteMedia media;
  media.session_name = long_name.c_str();
  EXPECT_EQ(std::string(Offer(media).GetCname()), std::string(299, 'n'));
}

TEST_F(ChannelSetMedia, PassesAnOfferThroughOnRequest) {
  RemoteMedia media;
  media.enable_udp_passthru = SWITCH_TRUE;
  EXPECT_TRUE(Offer(media).GetUdpPassThru());
}

TEST_F(ChannelSetMedia, PassesFlagsOnBothWays) {
  RemoteMedia media;
  for (const MediaConfig& config : {Offer(media), Answer(media)}) {
    EXPECT_EQ(config.GetRfc2833Flag(), false);
    EXPECT_EQ(config.GetRfc2833Payload(), 101);
    EXPECT_EQ(config.GetSilenceSuppressionFlag(), false);
    EXPECT_EQ(config.GetCngSuppressionFlag(), false);
    EXPECT_EQ(config.GetSidFlag(), false);
  }
  media.rfc2833flag = 2;
  media.rfc2833payload = 96;
  media.enable_silence_supp = 2;
  media.enable_cng_supp = SWITCH_TRUE;
  media.enable_sid = SWITCH_TRUE;
  for (const MediaConfig& config : {Offer(media), Answer(media)}) {
    EXPECT_EQ(config.GetRfc2833Flag(), true);
    EXPECT_EQ(config.GetRfc2833Payload(), 96);
    EXPECT_EQ(config.GetSilenceSuppressionFlag(), true);
    EXPECT_EQ(config.GetCngSuppressionFlag(), true);
    EXPECT_EQ(config.GetSidFlag(), true);
  }
}

TEST_F(ChannelSetMedia, OffersTheAgreedPayloadTypeAndAnswersTheImplementations) {
  const auto amr = implementation("AMR", 98, 20, 8000, 12200);
  switch_codec_t codec = negotiated(amr, 112);
  RemoteMedia media;
  media.codec = &codec;
  const MediaConfig offer = Offer(media), answer = Answer(media);
  ASSERT_THAT(offer.GetCodecs(), SizeIs(1));
  ASSERT_THAT(answer.GetCodecs(), SizeIs(1));
  EXPECT_EQ(offer.GetCodecs()[0].payload_type, 112);
  EXPECT_EQ(answer.GetCodecs()[0].payload_type, 98);
  for (const MediaConfig& config : {offer, answer}) {
    EXPECT_EQ(config.GetCodecs()[0].name, "AMR");
    EXPECT_EQ(config.GetCodecs()[0].packet_time_ms, 20);
    EXPECT_EQ(config.GetCodecs()[0].sample_rate, 8000);
    EXPECT_EQ(config.GetCodecs()[0].bit_rate, 12200);
  }
}

TEST_F(ChannelSetMedia, DescribesNoCodecWithoutImplementation) {
  switch_codec_t bare = {};
  const MediaConfig config = OfferWith(bare);
  EXPECT_THAT(config.GetCodecs(), IsEmpty());
  EXPECT_FALSE(config.GetAMROctetAlign());
  EXPECT_FALSE(config.GetG729AnnexBFlag());
  EXPECT_THAT(SetMediaLines(),
              ElementsAre(debug_line("Incoming leg RFC2833 set to false, and payload type is 101.\n")));
}

TEST_F(ChannelSetMedia, ReadsOctetAlignFromTheOutgoingFmtp) {
  const auto amr = implementation("AMR-WB", 99, 20, 16000, 23850);
  EXPECT_EQ(OfferWith(negotiated(amr, 99, "octet-align=0", "octet-align=1")).GetAMROctetAlign(), true);
  EXPECT_EQ(OfferWith(negotiated(amr, 99, "octet-align=1", "octet-align=0")).GetAMROctetAlign(), false);
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  EXPECT_FALSE(OfferWith(negotiated(pcmu, 0, nullptr, "octet-align=1")).GetAMROctetAlign());
}

TEST_F(ChannelSetMedia, SetsTheAnnexesOfTheFarEndBothWays) {
  const auto g729 = implementation("G729", 18, 20, 8000, 8000);
  EXPECT_EQ(OfferWith(negotiated(g729, 18)).GetG729AnnexBFlag(), true);
  EXPECT_EQ(OfferWith(negotiated(g729, 18, "AnnexB=No")).GetG729AnnexBFlag(), false);
  EXPECT_EQ(OfferWith(negotiated(g729, 18, "annexb=yes", "annexb=no")).GetG729AnnexBFlag(), true);
  EXPECT_FALSE(OfferWith(negotiated(g729, 18)).GetG723AnnexAFlag());
  const auto g723 = implementation("g723", 4, 30, 8000, 6300);
  EXPECT_EQ(OfferWith(negotiated(g723, 4)).GetG723AnnexAFlag(), true);
  EXPECT_EQ(OfferWith(negotiated(g723, 4, "annexa=no")).GetG723AnnexAFlag(), false);
  EXPECT_FALSE(OfferWith(negotiated(g723, 4)).GetG729AnnexBFlag());
}

TEST_F(ChannelSetMedia, SetsTheAnnexesOfAnAnswerToo) {
  const auto g729 = implementation("G729", 18, 20, 8000, 8000);
  switch_codec_t codec = negotiated(g729, 18, "annexb=no");
  RemoteMedia media;
  media.codec = &codec;
  EXPECT_EQ(Answer(media).GetG729AnnexBFlag(), false);
}

TEST_F(ChannelSetMedia, SetsNoCryptoAtAllWithoutASetting) {
  for (const MediaConfig& config : {Offer(), Answer()}) {
    EXPECT_FALSE(config.GetCrypto());
    EXPECT_FALSE(config.GetCryptoMandFlag());
  }
}

TEST_F(ChannelSetMedia, MapsCryptoTypesToSuites) {
  const std::pair<int, const char*> suites[] = {
      {0, "NO_CRYPTO"}, {1, "AES_CM_128_HMAC_SHA1_80"}, {2, "AES_CM_128_HMAC_SHA1_32"}};
  for (const auto& suite : suites) {
    switch_core_crypto_setting crypto = {};
    crypto.crypto_type = suite.first;
    crypto.crypto_raw_key[0] = 1;
    crypto.crypto_mandatory = suite.first;
    crypto.crypto_lifetime_exponent = 31;
    RemoteMedia media;
    media.crypto = &crypto;
    for (const MediaConfig& config : {Offer(media), Answer(media)}) {
      ASSERT_TRUE(config.GetCrypto());
      EXPECT_EQ(config.GetCrypto()->suite, suite.second);
      EXPECT_THAT(config.GetCrypto()->key, SizeIs(suite.first == 0 ? 0 : 30));
      EXPECT_EQ(config.GetCrypto()->lifetime_exponent, suite.first == 0 ? 0 : 31);
      EXPECT_EQ(config.GetCryptoMandFlag().has_value(), suite.first != 0);
    }
  }
}

TEST_F(ChannelSetMedia, LogsAnOfferWithTheResolvedAddressAndTheAgreedPayloadType) {
  const auto amr = implementation("AMR", 98, 20, 8000, 12200);
  switch_codec_t codec = negotiated(amr, 112);
  RemoteMedia media;
  media.ip = "[2001:db8::7]";
  media.codec = &codec;
  media.rfc2833flag = 1;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(SetMediaLines(), ElementsAre(debug_line("\nSet Remote Offer for uuid(" + leg_.Uuid() +
                                                      "):\n"
                                                      "Remote IP Address is:    [2001:db8::7] ([2001:db8::7])\n"
                                                      "Remote Port is:          4000\n"
                                                      "Codec name is:           AMR\n"
                                                      "Codec IANA code is:      112\n"
                                                      "Codec ptime is:          20ms\n"
                                                      "Codec sample rate is:    8000 samples per second\n"
                                                      "Codec bit rate is:       12200 bps\n"),
                                           debug_line("Incoming leg RFC2833 set to true, and payload type is 101.\n")));
}

TEST_F(ChannelSetMedia, LogsAnAnswerWithTheGivenAddressAloneAndTheIanaCode) {
  const auto amr = implementation("AMR", 98, 20, 8000, 12200);
  switch_codec_t codec = negotiated(amr, 112);
  RemoteMedia media;
  media.codec = &codec;
  media.state = SWITCH_SDP_ANSWER_RECEIVED;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(SetMediaLines(),
              ElementsAre(debug_line("\nSet Remote Answer for uuid(" + leg_.Uuid() +
                                     "):\n"
                                     "Remote IP Address is:    192.0.2.7\n"
                                     "Remote Port is:          4000\n"
                                     "Codec name is:           AMR\n"
                                     "Codec IANA code is:      98\n"
                                     "Codec ptime is:          20ms\n"
                                     "Codec sample rate is:    8000 samples per second\n"
                                     "Codec bit rate is:       12200 bps\n"),
                          debug_line("Outgoing leg RFC2833 set to false, and payload type is 101.\n")));
}

TEST_F(ChannelSetMedia, FailsAndCleansUpWhenTheOfferIsRefused) {
  servers_.Fail(ScriptedOperation::kSetRemoteOffer);
  EXPECT_EQ(leg_.SetMedia({}), SWITCH_STATUS_FALSE);
  EXPECT_EQ(SetMediaLines().back(), error_line("Failed to set remote offer!\n"));
  ExpectReleased();
}

TEST_F(ChannelSetMedia, FailsAndCleansUpWhenTheAnswerIsRefused) {
  servers_.Fail(ScriptedOperation::kSetRemoteAnswer);
  RemoteMedia media;
  media.state = SWITCH_SDP_ANSWER_RECEIVED;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_EQ(SetMediaLines().back(), error_line("Failed to set remote answer!\n"));
  ExpectReleased();
}

TEST_F(ChannelSetMedia, FailsAndCleansUpForAnAddressThatDoesNotResolve) {
  for (const auto state : {SWITCH_SDP_OFFER_RECEIVED, SWITCH_SDP_ANSWER_RECEIVED}) {
    for (const switch_bool_t passthru : {SWITCH_FALSE, SWITCH_TRUE}) {
      MediaLeg leg;
      ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
      log_.Clear();
      servers_.ForgetCalls();
      RemoteMedia media;
      media.ip = kUnresolvable.c_str();
      media.state = state;
      media.enable_udp_passthru = passthru;
      EXPECT_EQ(leg.SetMedia(media), SWITCH_STATUS_FALSE);
      EXPECT_THAT(SetMediaLines(),
                  ElementsAre(error_line("Could not resolve IP address for '" + kUnresolvable + "' in SDP!\n")));
      EXPECT_FALSE(leg.Known());
      EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kClose, ScriptedOperation::kReleaseSession));
    }
  }
}

TEST_F(ChannelSetMedia, ResolvesAHostNameAndLogsWhatItResolvedToOfAnOfferOnly) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  switch_codec_t codec = negotiated(pcmu, 0);
  RemoteMedia media;
  media.ip = "localhost";
  media.codec = &codec;
  const std::string address = Offer(media).GetIPAddress();
  EXPECT_THAT(address, testing::AnyOf("127.0.0.1", "::1"));
  EXPECT_THAT(SetMediaLines().front().text, testing::HasSubstr("Address is:    localhost (" + address + ")\n"));

  log_.Clear();
  EXPECT_EQ(std::string(Answer(media).GetIPAddress()), address);
  EXPECT_THAT(SetMediaLines().front().text, testing::HasSubstr("Address is:    localhost\n"));
}

TEST_F(ChannelSetMedia, TakesMissingTextsForEmptyOnes) {
  const auto nameless = implementation(nullptr, 0, 20, 8000, 64000);
  switch_codec_t codec = negotiated(nameless, 0, "annexa=no;annexb=no");
  RemoteMedia media;
  media.codec = &codec;
  media.session_name = nullptr;
  for (const MediaConfig& config : {Offer(media), Answer(media)}) {
    EXPECT_EQ(std::string(config.GetCname()), "@" + leg_.Uuid());
    EXPECT_FALSE(config.GetG729AnnexBFlag());
    EXPECT_FALSE(config.GetG723AnnexAFlag());
  }
  media.ip = nullptr;
  EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_FALSE);
  EXPECT_EQ(SetMediaLines().back(), error_line("Could not resolve IP address for '' in SDP!\n"));
  ExpectReleased();
}

TEST(ResolveInetAddress, CopiesALiteralAsItStands) {
  for (const char* literal : {"192.0.2.7", "2001:db8::7", "[::1]"}) {
    char buffer[INET6_ADDRSTRLEN];
    EXPECT_EQ(resolve_inet_address(literal, buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
    EXPECT_STREQ(buffer, literal);
  }
}

TEST(ResolveInetAddress, ReturnsWhatTheResolverSaysOfAnythingElse) {
  char buffer[INET6_ADDRSTRLEN] = "";
  EXPECT_EQ(resolve_inet_address("localhost", buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(buffer, testing::AnyOf(testing::StrEq("127.0.0.1"), testing::StrEq("::1")));
  EXPECT_NE(resolve_inet_address(kUnresolvable.c_str(), buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
  EXPECT_NE(resolve_inet_address("", buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
  EXPECT_NE(resolve_inet_address(nullptr, buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
}

}  // namespace
}  // namespace module_test
