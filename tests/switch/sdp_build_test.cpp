#include <gtest/gtest.h>

#include <string>

#include "sip/sdp.h"

namespace kvx_switch {
namespace {

SdpPayload Payload(uint8_t type, const std::string& name, const std::string& fmtp = "") {
  SdpPayload payload;
  payload.type = type;
  payload.name = name;
  payload.rate = 8000;
  payload.fmtp = fmtp;
  return payload;
}

LocalDescription Local() {
  LocalDescription local;
  local.session_id = 7;
  local.version = 8;
  local.address = "192.0.2.1";
  local.port = 16384;
  local.rtcp_port = 16385;
  local.packet_time = 20;
  local.payloads = {Payload(0, "PCMU"), Payload(101, "telephone-event", "0-15")};
  return local;
}

TEST(SdpBuild, OfferSaysAllThatACallNeeds) {
  EXPECT_EQ(BuildOffer(Local()),
            "v=0\r\n"
            "o=- 7 8 IN IP4 192.0.2.1\r\n"
            "s=kvx-switch\r\n"
            "c=IN IP4 192.0.2.1\r\n"
            "t=0 0\r\n"
            "m=audio 16384 RTP/AVP 0 101\r\n"
            "a=rtpmap:0 PCMU/8000\r\n"
            "a=rtpmap:101 telephone-event/8000\r\n"
            "a=fmtp:101 0-15\r\n"
            "a=ptime:20\r\n"
            "a=rtcp:16385 IN IP4 192.0.2.1\r\n"
            "a=sendrecv\r\n");
}

TEST(SdpBuild, NamesIpv6AsSuchAndLeavesOutWhatIsNotKnown) {
  LocalDescription local = Local();
  local.address = "2001:db8::1";
  local.rtcp_port = 0;
  local.packet_time = 0;
  std::string text = BuildOffer(local);
  EXPECT_NE(text.find("c=IN IP6 2001:db8::1\r\n"), std::string::npos);
  EXPECT_EQ(text.find("a=rtcp"), std::string::npos);
  EXPECT_EQ(text.find("a=ptime"), std::string::npos);
}

TEST(SdpBuild, AnswerRefusesTheOtherStreamsInTheirPlaces) {
  std::string error;
  auto offer = ParseSdp(
      "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
      "m=video 5000 RTP/AVP 34 99\r\nm=audio 4000 RTP/AVP 0\r\nm=image 6000 udptl t38\r\n",
      error);
  ASSERT_TRUE(offer) << error;
  LocalDescription local = Local();
  local.direction = Reversed(MediaDirection::kSendOnly);
  std::string answer = BuildAnswer(local, *offer, 1);

  auto parsed = ParseSdp(answer, error);
  ASSERT_TRUE(parsed) << error;
  ASSERT_EQ(parsed->media.size(), 3u);
  EXPECT_EQ(parsed->media[0].port, 0);
  EXPECT_EQ(parsed->media[0].formats, "34 99");
  EXPECT_EQ(parsed->media[1].port, 16384);
  EXPECT_EQ(parsed->media[1].direction, MediaDirection::kReceiveOnly);
  EXPECT_EQ(parsed->media[2].port, 0);
  EXPECT_EQ(parsed->media[2].protocol, "udptl");
}

TEST(SdpBuild, OneSideReceivesWhatTheOtherSends) {
  EXPECT_EQ(Reversed(MediaDirection::kSendReceive), MediaDirection::kSendReceive);
  EXPECT_EQ(Reversed(MediaDirection::kReceiveOnly), MediaDirection::kSendOnly);
  EXPECT_EQ(Reversed(MediaDirection::kInactive), MediaDirection::kInactive);
}

}  // namespace
}  // namespace kvx_switch
