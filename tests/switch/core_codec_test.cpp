#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include <switch.h>

#include "core_fixture.h"

namespace {

using core_test::RunningCore;
using test_support::error_line;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

/// A codec interface of the test's own to list implementations under.
class Implementations : public RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    switch_core_new_memory_pool(&pool_);
    auto* module = switch_loadable_module_create_module_interface(pool_, "test_module");
    auto** module_interface = &module;
    auto* pool = pool_;
    SWITCH_ADD_CODEC(codec_, "test codec");
  }
  void TearDown() override {
    switch_core_destroy_memory_pool(&pool_);
    RunningCore::TearDown();
  }

  void Add(uint32_t rate, int microseconds, switch_codec_type_t type = SWITCH_CODEC_TYPE_AUDIO,
           uint32_t decoded_bytes = 320, char* fmtp = nullptr) {
    switch_core_codec_add_implementation(pool_, codec_, type, 96, "TEST", fmtp, rate * 2, rate, 64000, microseconds,
                                         160, decoded_bytes, 80, 1, 2, nullptr, nullptr, nullptr, nullptr);
  }
  bool Accepts(uint32_t rate, int milliseconds) {
    codec_->implementations = nullptr;
    Add(rate, milliseconds * 1000);
    return codec_->implementations != nullptr;
  }
  std::vector<int> AcceptedPacketTimes(uint32_t rate) {
    std::vector<int> accepted;
    for (int ms = 1; ms <= 200; ++ms) {
      if (Accepts(rate, ms)) accepted.push_back(ms);
    }
    return accepted;
  }

  switch_memory_pool_t* pool_ = nullptr;
  switch_codec_interface_t* codec_ = nullptr;
};

std::vector<int> numbers(int from, int to, int step) {
  std::vector<int> all;
  for (int number = from; number <= to; number += step) all.push_back(number);
  return all;
}

TEST_F(Implementations, EachRateHasItsPacketTimes) {
  EXPECT_EQ(AcceptedPacketTimes(8000), numbers(2, 120, 2));
  EXPECT_EQ(AcceptedPacketTimes(12000), numbers(2, 100, 2));
  EXPECT_EQ(AcceptedPacketTimes(16000), numbers(2, 120, 2));
  EXPECT_EQ(AcceptedPacketTimes(24000), numbers(2, 60, 2));
  EXPECT_EQ(AcceptedPacketTimes(32000), numbers(2, 60, 2));
  EXPECT_EQ(AcceptedPacketTimes(44100), numbers(2, 40, 2));
  EXPECT_EQ(AcceptedPacketTimes(48000), numbers(2, 40, 2));
  EXPECT_EQ(AcceptedPacketTimes(11025), numbers(1, 119, 1));
  EXPECT_EQ(AcceptedPacketTimes(22050), numbers(1, 119, 1));
  EXPECT_THAT(AcceptedPacketTimes(8001), IsEmpty());
  EXPECT_THAT(AcceptedPacketTimes(96000), IsEmpty());
}

TEST_F(Implementations, NoTimeAtAllCountsAsEven) {
  EXPECT_TRUE(Accepts(8000, 0));
}

TEST_F(Implementations, ARefusedPacketTimeIsOneCriticalLine) {
  Add(16000, 130000);
  EXPECT_EQ(codec_->implementations, nullptr);
  EXPECT_THAT(log().LinesOf({"switch_core_codec.h"}),
              ElementsAre(LogLine{
                  SWITCH_LOG_CRIT, "Rejected codec name: TEST rate: 16000 ptime: 130 channels: 1\n", "", "", 0, {}}));
}

TEST_F(Implementations, APacketThatFitsNoBufferIsRefused) {
  Add(8000, 20000, SWITCH_CODEC_TYPE_AUDIO, 8192);
  EXPECT_NE(codec_->implementations, nullptr);
  codec_->implementations = nullptr;
  Add(8000, 20000, SWITCH_CODEC_TYPE_VIDEO, 8193);
  EXPECT_EQ(codec_->implementations, nullptr);
  const auto lines = log().LinesOf({"switch_core_codec.h"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, SWITCH_LOG_CRIT);
  EXPECT_THAT(lines[0].text, testing::EndsWith("not enough buffer space 8193 > 8192\n"));
}

TEST_F(Implementations, VideoMayHaveAnyPacketTime) {
  Add(90000, 0, SWITCH_CODEC_TYPE_VIDEO);
  EXPECT_NE(codec_->implementations, nullptr);
}

TEST_F(Implementations, KeepsWhatItWasGiven) {
  char fmtp[] = "mode=30";
  Add(8000, 30000, SWITCH_CODEC_TYPE_AUDIO, 480, fmtp);
  const switch_codec_implementation_t* made = codec_->implementations;
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->codec_type, SWITCH_CODEC_TYPE_AUDIO);
  EXPECT_EQ(made->ianacode, 96);
  EXPECT_STREQ(made->iananame, "TEST");
  EXPECT_STREQ(made->fmtp, "mode=30");
  EXPECT_NE(made->fmtp, fmtp) << "texts are copied";
  EXPECT_EQ(made->samples_per_second, 16000u);
  EXPECT_EQ(made->actual_samples_per_second, 8000u);
  EXPECT_EQ(made->bits_per_second, 64000);
  EXPECT_EQ(made->microseconds_per_packet, 30000);
  EXPECT_EQ(made->samples_per_packet, 160u);
  EXPECT_EQ(made->decoded_bytes_per_packet, 480u);
  EXPECT_EQ(made->encoded_bytes_per_packet, 80u);
  EXPECT_EQ(made->number_of_channels, 1);
  EXPECT_EQ(made->codec_frames_per_packet, 2);
  EXPECT_EQ(made->codec_id, codec_->codec_id);
  EXPECT_STREQ(made->modname, "test_module");
}

TEST_F(Implementations, TheLastAddedComesFirst) {
  Add(8000, 10000);
  Add(8000, 20000);
  Add(8000, 30000);
  std::vector<int> times;
  std::set<uint32_t> ids;
  for (const auto* at = codec_->implementations; at; at = at->next) {
    times.push_back(at->microseconds_per_packet);
    ids.insert(at->impl_id);
  }
  EXPECT_THAT(times, ElementsAre(30000, 20000, 10000));
  EXPECT_EQ(ids.size(), 3u);
}

/// Codecs of the loaded test module: ONE (10 to 40 ms, 64 kbit/s) and TWO (30 to 60 ms, 8 kbit/s).
class Codecs : public RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    const char* error = nullptr;
    ASSERT_EQ(switch_loadable_module_load_module(nullptr, "mod_core_good", SWITCH_TRUE, &error), SWITCH_STATUS_SUCCESS)
        << error;
  }

  /// "NAME@ms~fmtp" of what the preferences choose.
  static std::vector<std::string> Sorted(std::vector<std::string> preferences) {
    std::vector<char*> texts;
    for (std::string& preference : preferences) texts.push_back(preference.data());
    const switch_codec_implementation_t* found[SWITCH_MAX_CODECS];
    char fmtp[SWITCH_MAX_CODECS][MAX_FMTP_LEN];
    const int count = switch_loadable_module_get_codecs_sorted(found, fmtp, SWITCH_MAX_CODECS, texts.data(),
                                                               static_cast<int>(texts.size()));
    std::vector<std::string> all;
    for (int i = 0; i < count; ++i) {
      all.push_back(std::string(found[i]->iananame) + "@" + std::to_string(found[i]->microseconds_per_packet / 1000) +
                    "~" + fmtp[i]);
    }
    return all;
  }
};

TEST_F(Codecs, AllImplementationsAreListed) {
  const switch_codec_implementation_t* found[20];
  EXPECT_EQ(switch_loadable_module_get_codecs(found, 20), 8);
  EXPECT_STREQ(found[0]->iananame, "ONE");
  EXPECT_EQ(found[0]->microseconds_per_packet, 40000);
  EXPECT_STREQ(found[7]->iananame, "TWO");
  EXPECT_EQ(found[7]->microseconds_per_packet, 30000);
  EXPECT_EQ(switch_loadable_module_get_codecs(found, 3), 3);
}

TEST_F(Codecs, PreferencesChooseAndOrder) {
  EXPECT_THAT(Sorted({"TWO", "ONE"}), ElementsAre("TWO@30~", "ONE@20~"));
  EXPECT_THAT(Sorted({"one@40i", "NONE", "TWO@8000h@60i"}), ElementsAre("ONE@40~", "TWO@60~"));
  EXPECT_THAT(Sorted({"ONE@50i", "ONE@16000h", "TWO@64000b", "ONE@2c"}), IsEmpty());
  EXPECT_THAT(Sorted({"TWO@8000b@1c~mode=30"}), ElementsAre("TWO@30~mode=30"));
  EXPECT_THAT(Sorted({"mod_core_good.ONE", "other.ONE"}), ElementsAre("ONE@20~"));
}

TEST(CodecPreference, IsTakenApart) {
  char text[] = "mod.NAME@20i@8000h@64000b@2c~a=b;c=d";
  uint32_t interval, rate, bits, channels;
  char *modname, *fmtp;
  EXPECT_STREQ(switch_parse_codec_buf(text, &interval, &rate, &bits, &channels, &modname, &fmtp), "NAME");
  EXPECT_EQ(interval, 20u);
  EXPECT_EQ(rate, 8000u);
  EXPECT_EQ(bits, 64000u);
  EXPECT_EQ(channels, 2u);
  EXPECT_STREQ(modname, "mod");
  EXPECT_STREQ(fmtp, "a=b;c=d");
  char plain[] = "AMR-WB";
  EXPECT_STREQ(switch_parse_codec_buf(plain, &interval, &rate, &bits, &channels, &modname, &fmtp), "AMR-WB");
  EXPECT_EQ(interval + rate + bits + channels, 0u);
  EXPECT_EQ(modname, nullptr);
  EXPECT_EQ(fmtp, nullptr);
}

switch_status_t init(switch_codec_t* codec, const char* name, int ms = 0, uint32_t flags = 0,
                     const char* fmtp = nullptr, uint32_t bitrate = 0) {
  return switch_core_codec_init_with_bitrate(codec, name, nullptr, fmtp, 0, ms, 0, bitrate, flags, nullptr, nullptr);
}

TEST_F(Codecs, InitFindsTheImplementationAndCallsIt) {
  switch_codec_t codec;
  ASSERT_EQ(init(&codec, "one", 30, SWITCH_CODEC_FLAG_ENCODE, "a=b", 64000), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(switch_core_codec_ready(&codec));
  EXPECT_EQ(codec.implementation->microseconds_per_packet, 30000);
  EXPECT_STREQ(codec.fmtp_in, "a=b");
  EXPECT_STREQ(codec.fmtp_out, "a=b") << "the test codec's init copies it";
  EXPECT_EQ(switch_core_codec_destroy(&codec), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(switch_core_codec_ready(&codec));
  EXPECT_EQ(switch_core_codec_destroy(&codec), SWITCH_STATUS_NOT_INITALIZED);
}

TEST_F(Codecs, InitFailsWithoutALeftover) {
  switch_codec_t codec;
  EXPECT_EQ(init(&codec, "NONE"), SWITCH_STATUS_GENERR);
  EXPECT_TRUE(log().Has(error_line("There is no codec NONE\n")));
  EXPECT_EQ(init(&codec, "ONE", 50), SWITCH_STATUS_NOTIMPL);
  EXPECT_TRUE(log().Has(error_line("Codec ONE has no implementation at 0 Hz, 50 ms, 0 bit/s\n")));
  EXPECT_EQ(init(&codec, "ONE", 20, SWITCH_CODEC_FLAG_AAL2), SWITCH_STATUS_FALSE) << "init of the module refuses";
  EXPECT_EQ(init(&codec, "ONE", 20, SWITCH_CODEC_FLAG_PASSTHROUGH), SWITCH_STATUS_GENERR) << "init of it throws";
  EXPECT_TRUE(log().Has(error_line("An exception left the codec ONE: a codec's mistake\n")));
  EXPECT_FALSE(switch_core_codec_ready(&codec));
  const char* error = nullptr;
  EXPECT_EQ(switch_loadable_module_unload_module(nullptr, "mod_core_good", SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS)
      << error;
}

TEST_F(Codecs, EncodeAndDecodeCallTheImplementation) {
  switch_codec_t codec;
  ASSERT_EQ(init(&codec, "ONE"), SWITCH_STATUS_SUCCESS);
  char in[] = "abc";
  char out[10] = "";
  uint32_t length = sizeof(out);
  uint32_t rate = 0;
  unsigned int flag = 0;
  EXPECT_EQ(switch_core_codec_encode(&codec, nullptr, in, 4, 8000, out, &length, &rate, &flag), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(length, 4u);
  EXPECT_STREQ(out, "abc");
  length = 2;
  EXPECT_EQ(switch_core_codec_decode(&codec, nullptr, in, 4, 8000, out, &length, &rate, &flag), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_codec_reset(&codec), SWITCH_STATUS_SUCCESS);
  switch_core_codec_destroy(&codec);
  EXPECT_EQ(switch_core_codec_encode(&codec, nullptr, in, 4, 8000, out, &length, &rate, &flag),
            SWITCH_STATUS_NOT_INITALIZED);
}

TEST_F(Codecs, ACopyIsACodecOfItsOwn) {
  switch_codec_t codec;
  switch_codec_t copy;
  ASSERT_EQ(init(&codec, "ONE", 10, SWITCH_CODEC_FLAG_ENCODE, "a=b"), SWITCH_STATUS_SUCCESS);
  codec.agreed_pt = 97;
  ASSERT_EQ(switch_core_codec_copy(&codec, &copy, nullptr, nullptr), SWITCH_STATUS_SUCCESS);
  switch_core_codec_destroy(&codec);
  EXPECT_TRUE(switch_core_codec_ready(&copy));
  EXPECT_EQ(copy.implementation->microseconds_per_packet, 10000);
  EXPECT_EQ(copy.agreed_pt, 97);
  EXPECT_STREQ(copy.fmtp_in, "a=b");
  switch_core_codec_destroy(&copy);
}

TEST_F(Codecs, FormatsAreParsedByTheInterface) {
  switch_codec_fmtp_t parsed;
  EXPECT_EQ(switch_core_codec_parse_fmtp("ONE", "4750", 8000, &parsed), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(parsed.bits_per_second, 4750);
  EXPECT_EQ(switch_core_codec_parse_fmtp("ONE", "", 8000, &parsed), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_codec_parse_fmtp("NONE", "4750", 8000, &parsed), SWITCH_STATUS_FALSE);
}

TEST(CodecIds, AreNeverGivenTwice) {
  const uint32_t first = switch_core_codec_next_id();
  EXPECT_EQ(switch_core_codec_next_id(), first + 1);
}

}  // namespace
