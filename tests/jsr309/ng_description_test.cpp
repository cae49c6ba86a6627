#include "rtpengine/ng_description.h"

#include "rtpengine/base64_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace kelvaro::jsr309::rtpengine {
namespace {

using testing::HasSubstr;
using testing::Not;

SecretBytes Key(const std::string& text) {
  return SecretBytes(text.begin(), text.end());
}

NgDescription Audio() {
  NgDescription audio;
  audio.address = "192.0.2.7";
  audio.rtp_port = 30000;
  audio.codecs = {{8, "PCMA", 8000, 0, ""}, {101, "telephone-event", 8000, 0, "0-15"}};
  audio.packet_time_ms = 20;
  return audio;
}

NgDescription Read(const std::string& sdp) {
  NgDescription description;
  std::string error;
  EXPECT_TRUE(ReadSdp(sdp, description, error)) << error;
  return description;
}

std::string ErrorOf(const std::string& sdp) {
  NgDescription description;
  std::string error;
  EXPECT_FALSE(ReadSdp(sdp, description, error));
  return error;
}

TEST(NgDescription, IsWrittenWithWhatTheDaemonNeeds) {
  EXPECT_EQ(WriteSdp(Audio()),
            "v=0\r\no=- 1 1 IN IP4 192.0.2.7\r\ns=-\r\nc=IN IP4 192.0.2.7\r\nt=0 0\r\n"
            "m=audio 30000 RTP/AVP 8 101\r\na=rtpmap:8 PCMA/8000\r\n"
            "a=rtpmap:101 telephone-event/8000\r\na=fmtp:101 0-15\r\na=ptime:20\r\na=sendrecv\r\n");
}

TEST(NgDescription, IsWrittenWithKeysPortsAndDirection) {
  NgDescription audio = Audio();
  audio.address = "2001:db8::7";
  audio.rtcp_port = 30005;
  audio.direction = NgDirection::kSendOnly;
  audio.codecs = {{96, "opus", 48000, 2, ""}};
  audio.packet_time_ms = 0;
  audio.cryptos = {{1, "AES_CM_128_HMAC_SHA1_80", Key("0123456789"), "2^20", "1:4"},
                   {2, "AES_CM_128_HMAC_SHA1_32", Key("01234567890"), "", ""}};
  EXPECT_EQ(WriteSdp(audio),
            "v=0\r\no=- 1 1 IN IP6 2001:db8::7\r\ns=-\r\nc=IN IP6 2001:db8::7\r\nt=0 0\r\n"
            "m=audio 30000 RTP/SAVP 96\r\na=rtpmap:96 opus/48000/2\r\na=rtcp:30005\r\n"
            "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:MDEyMzQ1Njc4OQ==|2^20|1:4\r\n"
            "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:MDEyMzQ1Njc4OTA=\r\na=sendonly\r\n");
}

TEST(NgDescription, OfAnImageIsT38) {
  NgDescription image;
  image.address = "192.0.2.7";
  image.rtp_port = 4000;
  image.image = true;
  EXPECT_THAT(WriteSdp(image), HasSubstr("\r\nm=image 4000 udptl t38\r\n"));
  const NgDescription read = Read(WriteSdp(image));
  EXPECT_TRUE(read.image);
  EXPECT_EQ(read.rtp_port, 4000);
  EXPECT_TRUE(read.codecs.empty());
}

TEST(NgDescription, LetsNoTextAddALine) {
  NgDescription audio = Audio();
  audio.codecs[0].name = "PCMA\r\na=inactive";
  audio.codecs[1].format_parameters = "0-15\nc=IN IP4 203.0.113.1";
  const NgDescription read = Read(WriteSdp(audio));
  EXPECT_EQ(read.address, "192.0.2.7");
  EXPECT_EQ(read.direction, NgDirection::kSendRecv);
  EXPECT_EQ(read.codecs[1].format_parameters, "0-15c=IN IP4 203.0.113.1");
}

TEST(NgDescription, IsReadAsARealDaemonWritesIt) {
  const NgDescription read = Read(
      "v=0\r\no=- 1 1 IN IP4 127.0.0.31\r\ns=-\r\nc=IN IP4 127.0.0.31\r\nt=0 0\r\n"
      "m=audio 20000 RTP/SAVP 0 101\r\na=rtpmap:0 PCMU/8000\r\na=rtpmap:101 telephone-event/8000\r\n"
      "a=fmtp:101 0-15\r\na=recvonly\r\na=rtcp:20001\r\n"
      "a=crypto:1 AEAD_AES_256_GCM inline:tPGnnuKhyIPZOUjgaEMVARFlhMO0p3XBg9kZSiEM6+H0UrIe6pmggEXbLtM\r\n"
      "a=crypto:7 AES_CM_128_HMAC_SHA1_80 inline:W0UZSGpkblr8trg/Y4gU/f/bb8J0ahYGUYdA5R1G|2^31|7:2\r\n"
      "a=setup:actpass\r\na=fingerprint:sha-256 56:18:02\r\na=ptime:20\r\n");
  EXPECT_EQ(read.address, "127.0.0.31");
  EXPECT_EQ(read.rtp_port, 20000);
  EXPECT_EQ(read.rtcp_port, 20001);
  EXPECT_EQ(read.direction, NgDirection::kRecvOnly);
  EXPECT_EQ(read.packet_time_ms, 20);
  ASSERT_EQ(read.codecs.size(), 2u);
  EXPECT_EQ(read.codecs[0].name, "PCMU");
  EXPECT_EQ(read.codecs[1].payload_type, 101);
  EXPECT_EQ(read.codecs[1].clock_rate, 8000);
  EXPECT_EQ(read.codecs[1].format_parameters, "0-15");
  ASSERT_EQ(read.cryptos.size(), 2u);
  EXPECT_EQ(read.cryptos[0].key.size(), 44u);
  EXPECT_EQ(read.cryptos[1].tag, 7);
  EXPECT_EQ(read.cryptos[1].suite, "AES_CM_128_HMAC_SHA1_80");
  EXPECT_EQ(read.cryptos[1].key.size(), 30u);
  EXPECT_EQ(read.cryptos[1].lifetime, "2^31");
  EXPECT_EQ(read.cryptos[1].mki, "7:2");
}

TEST(NgDescription, TakesTheStreamsAddressBeforeTheSessions) {
  const NgDescription read =
      Read("v=0\nc=IN IP4 192.0.2.1\nm=audio 4000 RTP/AVP 0\nc=IN IP6 2001:db8::1\na=inactive\n");
  EXPECT_EQ(read.address, "2001:db8::1");
  EXPECT_EQ(read.direction, NgDirection::kInactive);
}

TEST(NgDescription, OfARefusedStreamNeedsNoAddress) {
  EXPECT_EQ(Read("v=0\r\nm=audio 0 RTP/AVP 0\r\n").rtp_port, 0);
}

TEST(NgDescription, HasRtcpWhereTheAddressIs) {
  const std::string sdp = "v=0\r\nc=IN IP4 192.0.2.1\r\nm=audio 4000 RTP/AVP 0\r\na=rtcp:4007 IN IP4 ";
  EXPECT_EQ(Read(sdp + "192.0.2.1\r\n").rtcp_port, 4007);
  EXPECT_EQ(ErrorOf(sdp + "192.0.2.2\r\n"), "the SDP has RTCP at 192.0.2.2, and RTP at 192.0.2.1");
}

struct Unclear {
  const char* line;  ///< behind "v=0", an address and an audio stream
  const char* error;
};

class NgDescriptionRefuses : public testing::TestWithParam<Unclear> {};

TEST_P(NgDescriptionRefuses, AnUnclearLine) {
  const std::string line = GetParam().line;
  EXPECT_EQ(ErrorOf("v=0\r\nc=IN IP4 192.0.2.1\r\nm=audio 4000 RTP/AVP 0 96\r\n" + line + "\r\n"),
            "line 4 of the SDP, \"" + line + "\": " + GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, NgDescriptionRefuses,
    testing::Values(
        Unclear{"c=IN IP4 here", "no numeric address"}, Unclear{"c=IN IP4 192.0.2.1/127", "no numeric address"},
        Unclear{"c=IN IP4 ::1", "no numeric address"}, Unclear{"c=IN IP6 192.0.2.1", "no numeric address"},
        Unclear{"c=", "no numeric address"}, Unclear{"m=audio 4002 RTP/AVP 0", "a second stream"},
        Unclear{"hello", "no line of SDP"}, Unclear{"", "no line of SDP"}, Unclear{"a=rtcp:0", "no port"},
        Unclear{"a=rtcp:65536", "no port"}, Unclear{"a=rtcp:40 IN IP4 x", "no numeric address"},
        Unclear{"a=rtpmap:128 x/8000", "no payload type"}, Unclear{"a=rtpmap:96 x", "no codec and clock rate"},
        Unclear{"a=rtpmap:96 /8000", "no codec and clock rate"},
        Unclear{"a=rtpmap:96 x/8000/two", "no number of channels"}, Unclear{"a=fmtp:x 0-15", "no payload type"},
        Unclear{"a=ptime:soon", "no packet time in milliseconds"},
        Unclear{"a=ptime:0", "no packet time in milliseconds"}));

TEST(NgDescription, RefusesStreamsThatAreNone) {
  const auto error = [](const std::string& stream) {
    return ErrorOf("v=0\r\nc=IN IP4 192.0.2.1\r\n" + stream + "\r\n");
  };
  EXPECT_THAT(error("m=audio 65536 RTP/AVP 0"), HasSubstr(": \"65536\" is no port"));
  EXPECT_THAT(error("m=audio 4000/2 RTP/AVP 0"), HasSubstr(": \"4000/2\" is no port"));
  EXPECT_THAT(error("m=audio 4000 UDP/TLS/RTP/SAVP 0"), HasSubstr(": \"UDP/TLS/RTP/SAVP\" is not RTP"));
  EXPECT_THAT(error("m=audio 4000 RTP/AVP"), HasSubstr(": no payload type"));
  EXPECT_THAT(error("m=audio 4000 RTP/AVP 0 x"), HasSubstr(": \"x\" is no payload type"));
  EXPECT_THAT(error("m=audio 4000 RTP/AVP 0 0"), HasSubstr(": payload type 0 twice"));
  EXPECT_THAT(error("m=video 4000 RTP/AVP 0"), HasSubstr(": neither audio nor image"));
  EXPECT_THAT(error("m=image 4000 tcp t38"), HasSubstr(": not T.38 over UDPTL"));
  EXPECT_EQ(error("s=-"), "the SDP has no stream");
  EXPECT_EQ(ErrorOf("v=0\r\nm=audio 4000 RTP/AVP 0\r\n"), "the SDP has no address");
  EXPECT_EQ(ErrorOf(""), "the SDP has no stream");
  EXPECT_EQ(ErrorOf("v=1\r\n"), "line 1 of the SDP, \"v=1\": not v=0");
  EXPECT_EQ(ErrorOf(std::string("v=0\0", 4)), "control character in the SDP at octet 3");
  EXPECT_EQ(ErrorOf("v=0\r\ns=\rc"), "control character in the SDP at octet 7");
}

TEST(NgDescription, RefusesKeysThatAreNoneWithoutShowingThem) {
  for (const char* line : {"1 S inline:QUJ", "x S inline:QUJD", "0 S inline:QUJD", "1  inline:QUJD", "1 S QUJD",
                           "1 S inline:", "1 S inline:QUJDR", "1 S inline:QU=D", "1 S inline:QUJD;inline:QUJD"}) {
    const std::string error =
        ErrorOf("v=0\r\nc=IN IP4 192.0.2.1\r\nm=audio 4000 RTP/SAVP 0\r\na=crypto:" + std::string(line) + "\r\n");
    EXPECT_THAT(error, HasSubstr("line 4 of the SDP, \"a=crypto:...\": ")) << line;
    EXPECT_THAT(error, Not(HasSubstr("QU"))) << line;
  }
}

TEST(NgDescription, RefusesEveryBeginningThatEndsBeforeItsStream) {
  const std::string sdp = WriteSdp(Audio());
  const std::size_t stream = sdp.find("RTP/AVP 8") + 9;
  for (std::size_t length = 0; length < stream; ++length) EXPECT_NE(ErrorOf(sdp.substr(0, length)), "") << length;
  Read(sdp.substr(0, stream));
}

TEST(Base64Text, IsReadWithAndWithoutPadding) {
  EXPECT_EQ(ToBase64(Key("")), "");
  EXPECT_EQ(ToBase64(Key("f")), "Zg==");
  EXPECT_EQ(ToBase64(Key("foobar")), "Zm9vYmFy");
  for (const char* text : {"Zm8=", "Zm8"}) EXPECT_EQ(FromBase64(text), Key("fo")) << text;
  for (const char* text : {"Zg==", "Zg"}) EXPECT_EQ(FromBase64(text), Key("f")) << text;
  EXPECT_EQ(FromBase64(""), Key(""));
}

TEST(Base64Text, IsRefusedWhenItIsNone) {
  for (const char* text : {"Z", "Zm9vY", "Zm9=", "Zg=", "Z===", "Zm 9", "Zm-_", "====", "Zh=="}) {
    EXPECT_FALSE(FromBase64(text)) << text;
  }
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
