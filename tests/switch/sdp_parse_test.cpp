#include <gtest/gtest.h>

#include <string>

#include "sip/sdp.h"

namespace kvx_switch {
namespace {

const char kPhoneOffer[] =
    "v=0\r\n"
    "o=alice 2890844526 2890844527 IN IP4 192.0.2.10\r\n"
    "s=a call\r\n"
    "c=IN IP4 192.0.2.20\r\n"
    "t=0 0\r\n"
    "m=audio 49170 RTP/AVP 0 8 97 101\r\n"
    "a=rtpmap:97 iLBC/8000\r\n"
    "a=fmtp:97 mode=20\r\n"
    "a=rtpmap:101 telephone-event/8000\r\n"
    "a=fmtp:101 0-15\r\n"
    "a=ptime:30\r\n"
    "a=rtcp:49999 IN IP4 192.0.2.20\r\n"
    "a=sendonly\r\n"
    "m=video 0 RTP/AVP 34\r\n";

std::string WithAudioLines(const std::string& lines) {
  return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 4000 RTP/AVP 0 96\r\n" +
         lines;
}

std::string ErrorOf(const std::string& text) {
  std::string error;
  EXPECT_FALSE(ParseSdp(text, error)) << text;
  return error;
}

SdpMedia AudioOf(const std::string& text) {
  std::string error;
  std::optional<SessionDescription> parsed = ParseSdp(text, error);
  EXPECT_TRUE(parsed) << error;
  return parsed ? parsed->media.front() : SdpMedia{};
}

TEST(SdpParse, TakesAPhonesOfferApart) {
  std::string error;
  std::optional<SessionDescription> parsed = ParseSdp(kPhoneOffer, error);
  ASSERT_TRUE(parsed) << error;
  EXPECT_EQ(parsed->origin, "alice 2890844526 2890844527 IN IP4 192.0.2.10");
  EXPECT_EQ(parsed->session_name, "a call");
  ASSERT_EQ(parsed->media.size(), 2u);

  const SdpMedia& audio = parsed->media[0];
  EXPECT_TRUE(audio.IsRtpAudio());
  EXPECT_EQ(audio.port, 49170);
  EXPECT_EQ(audio.address, "192.0.2.20");
  EXPECT_EQ(audio.rtcp_port, 49999);
  EXPECT_EQ(audio.packet_time, 30u);
  EXPECT_EQ(audio.direction, MediaDirection::kSendOnly);
  ASSERT_EQ(audio.payloads.size(), 4u);
  EXPECT_EQ(audio.payloads[0].name, "PCMU");
  EXPECT_EQ(audio.payloads[1].name, "PCMA");
  EXPECT_EQ(audio.payloads[2].type, 97);
  EXPECT_EQ(audio.payloads[2].name, "iLBC");
  EXPECT_EQ(audio.payloads[2].rate, 8000u);
  EXPECT_EQ(audio.payloads[2].fmtp, "mode=20");
  EXPECT_EQ(audio.payloads[3].name, "telephone-event");
  EXPECT_EQ(parsed->media[1].port, 0);
  EXPECT_EQ(parsed->media[1].formats, "34");
}

TEST(SdpParse, StreamsAddressComesBeforeTheSessions) {
  EXPECT_EQ(AudioOf(WithAudioLines("c=IN IP6 2001:db8::7\r\n")).address, "2001:db8::7");
  EXPECT_EQ(AudioOf(WithAudioLines("")).address, "127.0.0.1");
  EXPECT_EQ(AudioOf(WithAudioLines("c=IN IP4 phone.example.org\r\n")).address, "phone.example.org");
}

TEST(SdpParse, TimeToLiveIsNoPartOfTheAddress) {
  EXPECT_EQ(AudioOf(WithAudioLines("c=IN IP4 224.2.1.1/127\r\n")).address, "224.2.1.1");
}

TEST(SdpParse, DirectionOfTheSessionHoldsForStreamsWithoutOne) {
  std::string text =
      "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\na=inactive\nm=audio 4000 RTP/AVP 0\n";
  EXPECT_EQ(AudioOf(text).direction, MediaDirection::kInactive);
  EXPECT_EQ(AudioOf(text + "a=recvonly\n").direction, MediaDirection::kReceiveOnly);
}

TEST(SdpParse, RtpmapOverridesTheStaticEncoding) {
  SdpMedia audio = AudioOf(WithAudioLines("a=rtpmap:0 G729/8000\r\na=rtpmap:96 L16/44100/2\r\n"));
  EXPECT_EQ(audio.payloads[0].name, "G729");
  EXPECT_EQ(audio.payloads[1].rate, 44100u);
  EXPECT_EQ(audio.payloads[1].channels, 2);
}

TEST(SdpParse, DynamicTypeWithoutRtpmapHasNoName) {
  EXPECT_EQ(AudioOf(WithAudioLines("")).payloads[1].name, "");
}

TEST(SdpParse, AttributesOfTypesThatAreNotListedAreIgnored) {
  SdpMedia audio = AudioOf(WithAudioLines("a=rtpmap:99 nonsense\r\na=fmtp:98 x=1\r\na=unknown:thing\r\n"));
  EXPECT_EQ(audio.payloads.size(), 2u);
}

TEST(SdpParse, FractionalPacketTimeCountsAsWholeMilliseconds) {
  EXPECT_EQ(AudioOf(WithAudioLines("a=ptime:20.0\r\n")).packet_time, 20u);
}

TEST(SdpParse, MissingSessionNameReadsAsADash) {
  std::string error;
  auto parsed = ParseSdp("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\nc=IN IP4 127.0.0.1\r\nm=audio 4000 RTP/AVP 0\r\n", error);
  ASSERT_TRUE(parsed) << error;
  EXPECT_EQ(parsed->session_name, "-");
}

TEST(SdpParse, ErrorsNameTheLineAndItsText) {
  EXPECT_EQ(ErrorOf(WithAudioLines("m=audio x RTP/AVP 0\r\n")),
            "line 7 \"m=audio x RTP/AVP 0\": the port is no number from 0 to 65535");
  EXPECT_EQ(ErrorOf("hello"), "line 1 \"hello\": not of the form <letter>=<value>");
  EXPECT_EQ(ErrorOf("o=- 1 1 IN IP4 127.0.0.1\r\n"), "line 1 \"o=- 1 1 IN IP4 127.0.0.1\": \"v=0\" must come first");
  EXPECT_EQ(ErrorOf("v=1\r\n"), "line 1 \"v=1\": the only version is 0");
  EXPECT_EQ(ErrorOf(WithAudioLines("c=IN IP9 1.2.3.4\r\n")),
            "line 7 \"c=IN IP9 1.2.3.4\": neither \"IN IP4\" nor \"IN IP6\"");
  EXPECT_EQ(ErrorOf(WithAudioLines("c=IN IP4 127.0.0.1;\r\n")),
            "line 7 \"c=IN IP4 127.0.0.1;\": no address or host name");
  EXPECT_EQ(ErrorOf(WithAudioLines("a=rtpmap:96 noslash\r\n")),
            "line 7 \"a=rtpmap:96 noslash\": not of the form <name>/<rate>");
  EXPECT_EQ(ErrorOf(WithAudioLines("a=ptime:soon\r\n")),
            "line 7 \"a=ptime:soon\": the packet time is no number of milliseconds");
}

TEST(SdpParse, IncompleteDescriptionsAreRefused) {
  EXPECT_EQ(ErrorOf(""), "it is empty");
  EXPECT_EQ(ErrorOf("v=0\r\ns=-\r\n"), "there is no \"o=\" line");
  EXPECT_EQ(ErrorOf("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\n"), "there is no \"m=\" line");
  EXPECT_EQ(ErrorOf("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\nm=audio 4000 RTP/AVP 0\r\n"),
            "no \"c=\" line holds for \"m=audio 4000\"");
}

TEST(SdpParse, NumbersOutOfRangeAreRefused) {
  for (const char* line :
       {"m=audio 65536 RTP/AVP 0", "m=audio -1 RTP/AVP 0", "m=audio 4000 RTP/AVP 128", "m=audio 4000 RTP/AVP 0 zero",
        "m=audio 4000 RTP/AVP", "m=audio", "a=rtcp:70000", "a=rtpmap:96 X/0", "a=rtpmap:96 X/99999999999"}) {
    EXPECT_NE(ErrorOf(WithAudioLines(std::string(line) + "\r\n")), "") << line;
  }
}

TEST(SdpParse, ControlCharactersNeverComeThrough) {
  std::string error = ErrorOf(WithAudioLines(std::string("m=audio 0 RTP/AVP 0\rv=0\r\n")));
  EXPECT_EQ(error, "line 7 \"m=audio 0 RTP/AVP 0?v=0\": a control character");
  ErrorOf(WithAudioLines(std::string("a=x\0y\r\n", 7)));
}

TEST(SdpParse, HostileSizesAreBounded) {
  std::string many = WithAudioLines("");
  for (int i = 0; i < 100; ++i) many += "m=audio 0 RTP/AVP 0\r\n";
  EXPECT_NE(ErrorOf(many).find("too many streams"), std::string::npos);

  std::string types = "m=audio 4000 RTP/AVP";
  for (int i = 0; i < 5000; ++i) types += " 0";
  std::string error;
  auto parsed = ParseSdp("v=0\no=- 1 1 IN IP4 127.0.0.1\nc=IN IP4 127.0.0.1\n" + types, error);
  ASSERT_TRUE(parsed) << error;
  EXPECT_EQ(parsed->media[0].payloads.size(), 64u);
}

TEST(SdpParse, EveryPrefixOfAnOfferIsTakenOrRefused) {
  const std::string whole = kPhoneOffer;
  for (size_t length = 0; length < whole.size(); ++length) {
    std::string error;
    bool parsed = ParseSdp(whole.substr(0, length), error).has_value();
    EXPECT_EQ(parsed, error.empty()) << length;
  }
}

}  // namespace
}  // namespace kvx_switch
