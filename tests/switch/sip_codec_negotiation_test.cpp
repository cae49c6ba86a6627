#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "sip/codec_negotiation.h"

namespace kvx_switch {
namespace {

/// Implementations as a module would register them.
class CodecNegotiation : public testing::Test {
 protected:
  void Add(const char* name, uint8_t type, uint32_t rate, int bits, int packet_time, const char* fmtp = nullptr) {
    switch_codec_implementation_t codec{};
    codec.codec_type = SWITCH_CODEC_TYPE_AUDIO;
    codec.ianacode = type;
    codec.iananame = const_cast<char*>(name);
    codec.fmtp = const_cast<char*>(fmtp);
    codec.samples_per_second = rate;
    codec.bits_per_second = bits;
    codec.microseconds_per_packet = packet_time * 1000;
    codec.number_of_channels = 1;
    codec.modname = const_cast<char*>("mod_test");
    store_.push_back(codec);
    codecs_.push_back(&store_.back());
  }

  void SetUp() override {
    for (int packet_time : {30, 20, 10}) Add("PCMU", 0, 8000, 64000, packet_time);
    for (int packet_time : {20, 10}) Add("PCMA", 8, 8000, 64000, packet_time);
    for (int packet_time : {90, 60, 30}) Add("G723", 4, 8000, 6300, packet_time);
    Add("AMR", 96, 8000, 4750, 20, "mode-set=0,1,2,3,4,5,6,7");
    Add("AMR", 96, 8000, 12200, 20, "mode-set=0,1,2,3,4,5,6,7");
    Add("G7221", 107, 16000, 24000, 20, "bitrate=24000");
    Add("G7221", 108, 16000, 32000, 20, "bitrate=32000");
    Add("iLBC", 98, 8000, 15200, 20, "mode=20");
    Add("iLBC", 97, 8000, 13330, 30, "mode=30");
  }

  SdpMedia Stream(const std::string& formats, const std::string& lines = "") {
    std::string error;
    auto parsed = ParseSdp(
        "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 4000 RTP/AVP " + formats + "\n" + lines,
        error);
    EXPECT_TRUE(parsed) << error;
    return parsed->media.front();
  }

  std::vector<CodecMatch> Common(const std::string& formats, const std::string& lines = "") {
    return CommonCodecs(Stream(formats, lines), codecs_);
  }

  std::deque<switch_codec_implementation_t> store_;
  CodecImplementations codecs_;
};

TEST_F(CodecNegotiation, KeepsTheOffersOrderAndLeavesOutWhatWeLack) {
  auto common = Common("8 18 0 4");
  ASSERT_EQ(common.size(), 3u);
  EXPECT_STREQ(common[0].implementation->iananame, "PCMA");
  EXPECT_STREQ(common[1].implementation->iananame, "PCMU");
  EXPECT_STREQ(common[2].implementation->iananame, "G723");
}

TEST_F(CodecNegotiation, NothingInCommonIsEmpty) {
  EXPECT_TRUE(Common("18 3").empty());
}

TEST_F(CodecNegotiation, TakesTheOfferedPacketTimeElseTheNearest) {
  EXPECT_EQ(Common("0")[0].PacketTime(), 20u);
  EXPECT_EQ(Common("0", "a=ptime:30\n")[0].PacketTime(), 30u);
  EXPECT_EQ(Common("0", "a=ptime:100\n")[0].PacketTime(), 30u);
  EXPECT_EQ(Common("0", "a=ptime:15\n")[0].PacketTime(), 10u);
  EXPECT_EQ(Common("4")[0].PacketTime(), 30u);
}

TEST_F(CodecNegotiation, NamesAreComparedWithoutCaseRatesExactly) {
  EXPECT_EQ(Common("99", "a=rtpmap:99 pcmu/8000\n").size(), 1u);
  EXPECT_TRUE(Common("99", "a=rtpmap:99 PCMU/16000\n").empty());
  EXPECT_TRUE(Common("99", "a=rtpmap:99 PCMU/8000/2\n").empty());
}

TEST_F(CodecNegotiation, BitRateParameterChoosesTheImplementation) {
  auto common = Common("110 111 112",
                       "a=rtpmap:110 G7221/16000\na=fmtp:110 bitrate=32000\n"
                       "a=rtpmap:111 G7221/16000\na=fmtp:111 bitrate=24000\n"
                       "a=rtpmap:112 G7221/16000\na=fmtp:112 bitrate=48000\n");
  ASSERT_EQ(common.size(), 2u);
  EXPECT_EQ(common[0].implementation->bits_per_second, 32000);
  EXPECT_EQ(common[1].implementation->bits_per_second, 24000);
}

TEST_F(CodecNegotiation, IlbcModeIsThirtyUnlessSaidOtherwise) {
  EXPECT_EQ(Common("100", "a=rtpmap:100 iLBC/8000\n")[0].PacketTime(), 30u);
  EXPECT_EQ(Common("100", "a=rtpmap:100 iLBC/8000\na=fmtp:100 mode=20\na=ptime:30\n")[0].PacketTime(), 20u);
}

TEST_F(CodecNegotiation, OfTwoBitRatesTheHigherIsTaken) {
  EXPECT_EQ(Common("100", "a=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n")[0].implementation->bits_per_second,
            12200);
}

TEST_F(CodecNegotiation, OffersWithOwnPayloadTypeAndAnswersWithTheOfferers) {
  CodecMatch amr = Common("100", "a=rtpmap:100 AMR/8000\na=fmtp:100 octet-align=1\n")[0];
  EXPECT_EQ(OfferedPayload(amr).type, 96);
  EXPECT_EQ(OfferedPayload(amr).fmtp, "octet-align=1");
  EXPECT_EQ(AnsweredPayload(amr).type, 100);
  EXPECT_EQ(AnsweredPayload(amr).fmtp, "octet-align=1");
  CodecMatch bare = Common("100", "a=rtpmap:100 AMR/8000\n")[0];
  EXPECT_EQ(OfferedPayload(bare).fmtp, "mode-set=0,1,2,3,4,5,6,7");
}

TEST_F(CodecNegotiation, AnswersIlbcWithTheModeThatRuns) {
  CodecMatch match = Common("100", "a=rtpmap:100 iLBC/8000\na=fmtp:100 mode=20\n")[0];
  match.implementation = Common("100", "a=rtpmap:100 iLBC/8000\n")[0].implementation;
  EXPECT_EQ(AnsweredPayload(match).fmtp, "mode=30");
}

TEST_F(CodecNegotiation, PreferencesNarrowByNameRateAndPacketTime) {
  EXPECT_EQ(PreferredCodecs(codecs_, {}).size(), codecs_.size());
  EXPECT_EQ(PreferredCodecs(codecs_, {"pcmu"}).size(), 3u);
  EXPECT_EQ(PreferredCodecs(codecs_, {"PCMU@30i"}).size(), 1u);
  EXPECT_EQ(PreferredCodecs(codecs_, {"PCMA", "G7221@16000h"}).size(), 4u);
  EXPECT_TRUE(PreferredCodecs(codecs_, {"PCMU@16000h", "opus"}).empty());
}

TEST_F(CodecNegotiation, TelephoneEventOfTheCodecsRateComesFirst) {
  SdpMedia stream = Stream("0 101 102", "a=rtpmap:101 telephone-event/8000\na=rtpmap:102 telephone-event/16000\n");
  EXPECT_EQ(FindTelephoneEvent(stream, 16000)->type, 102);
  EXPECT_EQ(FindTelephoneEvent(stream, 48000)->type, 101);
  EXPECT_EQ(FindTelephoneEvent(Stream("0"), 8000), nullptr);
}

TEST_F(CodecNegotiation, FmtpParametersAreFoundByTheirWholeName) {
  EXPECT_EQ(FmtpParameter("mode-set=7; octet-align=1 ;mode=20", "mode"), "20");
  EXPECT_EQ(FmtpParameter("mode-set=7; octet-align=1 ;mode=20", "octet-align"), "1");
  EXPECT_EQ(FmtpParameter("annexb=no", "annex"), "");
  EXPECT_EQ(FmtpParameter("", "mode"), "");
  EXPECT_EQ(FmtpParameter("0-15", "mode"), "");
}

TEST_F(CodecNegotiation, NamesForTheLogComeOnceEach) {
  EXPECT_EQ(CodecNames(codecs_), "PCMU/8000, PCMA/8000, G723/8000, AMR/8000, G7221/16000, iLBC/8000");
  EXPECT_EQ(CodecNames(Stream("0 96 18")), "PCMU/8000, payload type 96/0, G729/8000");
}

TEST(SipSilenceFrames, ARefusalIsReadAndWrittenForTheTwoCodecsThatHaveThem) {
  const struct {
    const char* name;
    const char* fmtp;
    bool refused;
    const char* refusing;
  } kPayloads[] = {{"G729", "", false, "annexb=no"},
                   {"g729", "annexb=no", true, "annexb=no"},
                   {"G729", "annexb=NO", true, "annexb=NO"},
                   {"G729", "annexb=yes", false, "annexb=no"},
                   {"G729", "annexb=yes;x=1", false, ";x=1;annexb=no"},
                   {"G729", "annexa=no", false, "annexa=no;annexb=no"},
                   {"G723", "annexa=no", true, "annexa=no"},
                   {"G723", "bitrate=6.3", false, "bitrate=6.3;annexa=no"},
                   {"PCMU", "annexb=no", false, "annexb=no"}};
  for (const auto& row : kPayloads) {
    SdpPayload payload;
    payload.name = row.name;
    payload.fmtp = row.fmtp;
    EXPECT_EQ(RefusesSilenceFrames(payload), row.refused) << row.name << " " << row.fmtp;
    RefuseSilenceFrames(payload);
    EXPECT_EQ(payload.fmtp, row.refusing) << row.name << " " << row.fmtp;
  }
}

}  // namespace
}  // namespace kvx_switch
