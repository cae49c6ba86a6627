#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "codecs.h"
#include "module/module_fixture.h"

namespace module_test {

namespace {

using test_support::error_line;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kRate = 8000;

}  // namespace

class CodecCallbacks : public testing::Test {
 protected:
  switch_codec_t& Codec(switch_payload_t iana, const char* name) {
    implementation_.ianacode = iana;
    implementation_.iananame = const_cast<char*>(name);
    implementation_.decoded_bytes_per_packet = 320;
    codec_.implementation = &implementation_;
    codec_.memory_pool = pool_.Get();
    return codec_;
  }
  switch_status_t Encode(const std::vector<int16_t>& samples) {
    encoded_.fill(0xEE);
    return dummy_codec_encode(&codec_, nullptr, const_cast<int16_t*>(samples.data()),
                              static_cast<uint32_t>(samples.size() * 2), kRate, encoded_.data(), &length_, &rate_,
                              &flags_);
  }
  switch_status_t Decode(const std::vector<uint8_t>& bytes) {
    decoded_.fill(0x1234);
    return dummy_codec_decode(&codec_, nullptr, const_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                              kRate, decoded_.data(), &length_, &rate_, &flags_);
  }

  test_support::LogCapture log_;
  Pool pool_;
  switch_codec_implementation_t implementation_ = {};
  switch_codec_t codec_ = {};
  std::array<uint8_t, 400> encoded_;
  std::array<int16_t, 400> decoded_;
  uint32_t length_ = 4000;
  uint32_t rate_ = kRate;
  unsigned int flags_ = 0;
};

TEST_F(CodecCallbacks, G711InitNeedsADirection) {
  for (const switch_payload_t iana : {0, 8}) {
    switch_codec_t& codec = Codec(iana, "G711");
    EXPECT_EQ(dummy_codec_init(&codec, 0, nullptr), SWITCH_STATUS_FALSE);
    EXPECT_EQ(dummy_codec_init(&codec, SWITCH_CODEC_FLAG_SILENCE, nullptr), SWITCH_STATUS_FALSE);
    EXPECT_EQ(dummy_codec_init(&codec, SWITCH_CODEC_FLAG_ENCODE, nullptr), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(dummy_codec_init(&codec, SWITCH_CODEC_FLAG_DECODE, nullptr), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(dummy_codec_init(&codec, SWITCH_CODEC_FLAG_ENCODE | SWITCH_CODEC_FLAG_DECODE, nullptr),
              SWITCH_STATUS_SUCCESS);
    EXPECT_FALSE(switch_test_flag(&codec, SWITCH_CODEC_FLAG_PASSTHROUGH));
    EXPECT_EQ(dummy_codec_destroy(&codec), SWITCH_STATUS_SUCCESS);
  }
}

TEST_F(CodecCallbacks, OtherCodecsAreMarkedPassThroughWhateverIsAskedFor) {
  switch_codec_t& codec = Codec(18, "G729");
  codec.flags = SWITCH_CODEC_FLAG_ENCODE;
  EXPECT_EQ(dummy_codec_init(&codec, 0, nullptr), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(codec.flags, static_cast<uint32_t>(SWITCH_CODEC_FLAG_ENCODE | SWITCH_CODEC_FLAG_PASSTHROUGH));
  EXPECT_EQ(codec.fmtp_out, nullptr);
  EXPECT_EQ(dummy_codec_destroy(&codec), SWITCH_STATUS_SUCCESS);
}

TEST_F(CodecCallbacks, PassThroughCodecAnswersWithTheFmtpItGot) {
  switch_codec_t& codec = Codec(18, "G729");
  char fmtp[] = "annexb=no";
  codec.fmtp_in = fmtp;
  EXPECT_EQ(dummy_codec_init(&codec, SWITCH_CODEC_FLAG_ENCODE, nullptr), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(codec.fmtp_out, "annexb=no");
  EXPECT_NE(codec.fmtp_out, fmtp);
}

TEST_F(CodecCallbacks, OtherCodecsCannotBeConverted) {
  Codec(18, "G729");
  EXPECT_EQ(Encode({1, 2}), SWITCH_STATUS_FALSE);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Codec G729 is only usable in pass through mode!\n")));
  EXPECT_THAT(encoded_, Each(0xEE));
  log_.Clear();
  Codec(100, "AMR-WB");
  EXPECT_EQ(Decode({1, 2}), SWITCH_STATUS_FALSE);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Codec AMR-WB is only usable in pass through mode!\n")));
  EXPECT_THAT(decoded_, Each(0x1234));
}

TEST_F(CodecCallbacks, EncodingWritesOneByteForEachSample) {
  Codec(0, "PCMU");
  EXPECT_EQ(Encode({0, 32767, -32768}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 3u);
  EXPECT_EQ(encoded_[0], 0xFF);
  EXPECT_EQ(encoded_[1], 0x80);
  EXPECT_EQ(encoded_[2], 0x00);
  EXPECT_EQ(encoded_[3], 0xEE);
  Codec(8, "PCMA");
  EXPECT_EQ(Encode({0, 32767, -32768}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 3u);
  EXPECT_EQ(encoded_[0], 0xD5);
  EXPECT_EQ(encoded_[1], 0xAA);
  EXPECT_EQ(encoded_[2], 0x2A);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(CodecCallbacks, DecodingWritesOneSampleForEachByte) {
  Codec(0, "PCMU");
  EXPECT_EQ(Decode({0xFF, 0x80, 0x00}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 6u);
  EXPECT_EQ(decoded_[0], 0);
  EXPECT_EQ(decoded_[1], 32124);
  EXPECT_EQ(decoded_[2], -32124);
  EXPECT_EQ(decoded_[3], 0x1234);
  Codec(8, "PCMA");
  EXPECT_EQ(Decode({0xD5, 0xAA, 0x2A}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 6u);
  EXPECT_EQ(decoded_[0], 8);
  EXPECT_EQ(decoded_[1], 32256);
  EXPECT_EQ(decoded_[2], -32256);
}

TEST_F(CodecCallbacks, SilenceIsAZeroedFrameOfTheDecodedSizeWhateverTheInput) {
  for (const switch_payload_t iana : {0, 8}) {
    Codec(iana, "G711");
    flags_ = SWITCH_CODEC_FLAG_SILENCE;
    EXPECT_EQ(Decode({0x12, 0x34, 0x56}), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(length_, 320u);
    for (size_t i = 0; i < 160; ++i) ASSERT_EQ(decoded_[i], 0);
    EXPECT_EQ(decoded_[160], 0x1234);
  }
}

TEST_F(CodecCallbacks, EmptyInputGivesEmptyOutput) {
  Codec(0, "PCMU");
  EXPECT_EQ(Encode({}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 0u);
  EXPECT_EQ(Decode({}), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length_, 0u);
}

TEST(SwitchFmtpParse, ReadsBitRateAndIlbcMode) {
  switch_codec_fmtp_t fmtp = {};
  EXPECT_EQ(switch_fmtp_parse("bitrate=24000", &fmtp), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(fmtp.bits_per_second, 24000);
  EXPECT_EQ(fmtp.microseconds_per_packet, 0);
  EXPECT_EQ(switch_fmtp_parse("mode=20", &fmtp), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(fmtp.bits_per_second, 0);
  EXPECT_EQ(fmtp.microseconds_per_packet, 20000);
  EXPECT_EQ(switch_fmtp_parse(" Mode = 30 ; BITRATE=32000;;", &fmtp), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(fmtp.bits_per_second, 32000);
  EXPECT_EQ(fmtp.microseconds_per_packet, 30000);
}

TEST(SwitchFmtpParse, PassesOverWhatItDoesNotKnow) {
  for (const char* text : {"", ";", "annexb=no", "mode-set=0,1,2", "mode=25", "mode", "bitrate=", "bitrate=6.3",
                           "bitrate=-1", "bitrate=99999999999", "=20", "octet-align=1; mode-change-period=2"}) {
    switch_codec_fmtp_t fmtp = {};
    EXPECT_EQ(switch_fmtp_parse(text, &fmtp), SWITCH_STATUS_SUCCESS) << text;
    EXPECT_EQ(fmtp.bits_per_second, 0) << text;
    EXPECT_EQ(fmtp.microseconds_per_packet, 0) << text;
  }
}

TEST(SwitchFmtpParse, FillsTheWholeRecord) {
  switch_codec_fmtp_t fmtp;
  std::memset(&fmtp, 0x55, sizeof(fmtp));
  EXPECT_EQ(switch_fmtp_parse("bitrate=1", &fmtp), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(fmtp.actual_samples_per_second, 0u);
  EXPECT_EQ(fmtp.stereo, 0);
  EXPECT_EQ(fmtp.private_info, nullptr);
}

TEST(SwitchFmtpParse, RefusesNull) {
  switch_codec_fmtp_t fmtp = {};
  EXPECT_EQ(switch_fmtp_parse(nullptr, &fmtp), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_fmtp_parse("mode=20", nullptr), SWITCH_STATUS_FALSE);
}

}  // namespace module_test
