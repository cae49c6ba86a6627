#include <optional>
#include <tuple>

#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaConfig;
using test_support::debug_line;
using test_support::error_line;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

using Numbers = std::tuple<int32_t, int32_t, int32_t>;

Numbers numbers_of(const char* text) {
  int32_t first = 7, second = 7, third = 7;
  get_jitterbuffer_msec(text, first, second, third);
  return {first, second, third};
}

TEST(JitterBufferMsec, ReadsUpToThreeNumbers) {
  EXPECT_EQ(numbers_of("100:40:20"), Numbers(100, 40, 20));
  EXPECT_EQ(numbers_of("100:40"), Numbers(100, 40, -1));
  EXPECT_EQ(numbers_of("100"), Numbers(100, -1, -1));
  EXPECT_EQ(numbers_of("100:40:20:10"), Numbers(100, 40, 20));
}

TEST(JitterBufferMsec, TakesEmptyZeroNegativeAndWordsForNotGiven) {
  EXPECT_EQ(numbers_of(nullptr), Numbers(-1, -1, -1));
  EXPECT_EQ(numbers_of(""), Numbers(-1, -1, -1));
  EXPECT_EQ(numbers_of("::20"), Numbers(-1, -1, 20));
  EXPECT_EQ(numbers_of("0:0:0"), Numbers(-1, -1, -1));
  EXPECT_EQ(numbers_of("-5:40"), Numbers(-1, 40, -1));
  EXPECT_EQ(numbers_of("abc"), Numbers(-1, -1, -1));
}

TEST(JitterBufferMsec, ReadsWhatANumberStartsWith) {
  EXPECT_EQ(numbers_of("40ms: 30"), Numbers(40, 30, -1));
}

TEST(JitterBufferMsec, TakesOverflowForNotGivenAndCutsToThirtyTwoBits) {
  EXPECT_EQ(numbers_of("9223372036854775807:-9223372036854775808:99999999999999999999"), Numbers(-1, -1, -1));
  EXPECT_EQ(numbers_of("4294967297"), Numbers(1, -1, -1));
}

class JitterBuffer : public testing::Test {
 protected:
  MediaConfig Settings() {
    MediaConfig config;
    log_.Clear();
    get_jitterbuffer_settings(config, leg_.Channel());
    return config;
  }
  std::vector<LogLine> Lines() const { return log_.LinesOf({"jitter_buffer.cpp"}); }

  static void ExpectNoAudio(const MediaConfig& config) {
    EXPECT_FALSE(config.GetJitterMode());
    EXPECT_FALSE(config.GetJitterInitialDelayMs());
    EXPECT_FALSE(config.GetJitterMinDelayMs());
    EXPECT_FALSE(config.GetJitterMaxPdvMs());
  }
  static void ExpectNoVideo(const MediaConfig& config) {
    EXPECT_STREQ(config.GetVideoJitterBufferType(), nullptr);
    EXPECT_FALSE(config.GetVideoJitterBufferInitialDelayMs());
    EXPECT_FALSE(config.GetVideoJitterBufferMinDelayMs());
  }

  Leg leg_;
  test_support::LogCapture log_;
};

TEST_F(JitterBuffer, IsLeftAloneWithoutVariables) {
  const MediaConfig config = Settings();
  ExpectNoAudio(config);
  ExpectNoVideo(config);
  EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(JitterBuffer, IsLeftAloneWhenOnlyMillisecondsAreGiven) {
  leg_.Set("jitterbuffer_msec", "100:40:20");
  const MediaConfig config = Settings();
  ExpectNoAudio(config);
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to default mode (adaptive).\n")));
}

TEST_F(JitterBuffer, TakesMaximumInitialAndMinimumInAdaptiveMode) {
  leg_.Set("jitterbuffer_mode", "adaptive");
  leg_.Set("jitterbuffer_msec", "100:40:20");
  const MediaConfig config = Settings();
  EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_ADAPTIVE);
  EXPECT_EQ(config.GetJitterInitialDelayMs(), 40);
  EXPECT_EQ(config.GetJitterMinDelayMs(), 20);
  EXPECT_EQ(config.GetJitterMaxPdvMs(), 100);
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to adaptive.\n"),
                                   debug_line("Setting audio jitter buffer initial delay to 40 msec\n"),
                                   debug_line("Setting audio jitter buffer min delay to 20 msec\n"),
                                   debug_line("Setting audio jitter buffer Max PDV to 100 msec\n")));
}

TEST_F(JitterBuffer, RefusesAMinimumInStaticMode) {
  leg_.Set("jitterbuffer_mode", "Static");
  leg_.Set("jitterbuffer_msec", "100:40:20");
  const MediaConfig config = Settings();
  EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_STATIC);
  EXPECT_EQ(config.GetJitterInitialDelayMs(), 40);
  EXPECT_FALSE(config.GetJitterMinDelayMs());
  EXPECT_EQ(config.GetJitterMaxPdvMs(), 100);
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to Static.\n"),
                                   debug_line("Setting audio jitter buffer initial delay to 40 msec\n"),
                                   error_line("Jitter Buffer Min Delay is only supported in Adaptive mode!\n"),
                                   debug_line("Setting audio jitter buffer Max PDV to 100 msec\n")));
}

TEST_F(JitterBuffer, RefusesAMinimumInModeNone) {
  leg_.Set("jitterbuffer_mode", "none");
  leg_.Set("jitterbuffer_msec", "::20");
  const MediaConfig config = Settings();
  EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_NONE);
  EXPECT_FALSE(config.GetJitterMinDelayMs());
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to none.\n"),
                                   error_line("Jitter Buffer Min Delay is only supported in Adaptive mode!\n")));
}

TEST_F(JitterBuffer, TakesAMaximumOfTwoHundredAndRefusesMore) {
  leg_.Set("jitterbuffer_mode", "adaptive");
  leg_.Set("jitterbuffer_msec", "200");
  EXPECT_EQ(Settings().GetJitterMaxPdvMs(), 200);

  leg_.Set("jitterbuffer_msec", "201");
  EXPECT_FALSE(Settings().GetJitterMaxPdvMs());

  leg_.Set("jitterbuffer_msec", "250:40");
  const MediaConfig config = Settings();
  EXPECT_FALSE(config.GetJitterMaxPdvMs());
  EXPECT_EQ(config.GetJitterInitialDelayMs(), 40);
  EXPECT_EQ(Lines().back(), error_line("Jitter Buffer Max Pdv out of range! Valid range: 0-200\n"));
}

TEST_F(JitterBuffer, SetsTheModeAloneWhenNoValueIsUsable) {
  for (const char* text : {"0:0:0", "abc"}) {
    leg_.Set("jitterbuffer_mode", "adaptive");
    leg_.Set("jitterbuffer_msec", text);
    const MediaConfig config = Settings();
    EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_ADAPTIVE);
    EXPECT_FALSE(config.GetJitterInitialDelayMs());
    EXPECT_FALSE(config.GetJitterMinDelayMs());
    EXPECT_FALSE(config.GetJitterMaxPdvMs());
    EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to adaptive.\n")));
  }
}

TEST_F(JitterBuffer, TakesAMaximumOfZeroForNotGiven) {
  leg_.Set("jitterbuffer_mode", "static");
  leg_.Set("jitterbuffer_msec", "0:40");
  const MediaConfig config = Settings();
  EXPECT_FALSE(config.GetJitterMaxPdvMs());
  EXPECT_EQ(config.GetJitterInitialDelayMs(), 40);
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to static.\n"),
                                   debug_line("Setting audio jitter buffer initial delay to 40 msec\n")));
}

TEST_F(JitterBuffer, IgnoresEverythingAfterAModeThatIsNone) {
  leg_.Set("jitterbuffer_mode", "elastic");
  leg_.Set("jitterbuffer_msec", "100:40:20");
  ExpectNoAudio(Settings());
  EXPECT_THAT(Lines(), ElementsAre(error_line("Invalid Jitter Buffer mode specified (elastic). Jitter Buffer settings "
                                              "ignored!\n")));
}

TEST_F(JitterBuffer, LeavesVideoAloneWhenOnlyMillisecondsAreGiven) {
  leg_.Set("video_jitterbuffer_msec", "60:20");
  ExpectNoVideo(Settings());
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting video jitter buffer mode to default mode (adaptive).\n")));
}

TEST_F(JitterBuffer, TakesInitialAndMinimumForVideo) {
  leg_.Set("video_jitterbuffer_mode", "ADAPTIVE");
  leg_.Set("video_jitterbuffer_msec", "60:20:300");
  const MediaConfig config = Settings();
  EXPECT_STREQ(config.GetVideoJitterBufferType(), "adaptive");
  EXPECT_EQ(config.GetVideoJitterBufferInitialDelayMs(), 60u);
  EXPECT_EQ(config.GetVideoJitterBufferMinDelayMs(), 20u);
  ExpectNoAudio(config);
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting video jitter buffer mode to ADAPTIVE.\n"),
                                   debug_line("Setting video jitter buffer initial delay to 60 msec\n"),
                                   debug_line("Setting video jitter buffer min delay to 20 msec\n")));
}

TEST_F(JitterBuffer, RefusesAVideoMinimumInStaticMode) {
  leg_.Set("video_jitterbuffer_mode", "static");
  leg_.Set("video_jitterbuffer_msec", "60:20");
  const MediaConfig config = Settings();
  EXPECT_STREQ(config.GetVideoJitterBufferType(), "static");
  EXPECT_EQ(config.GetVideoJitterBufferInitialDelayMs(), 60u);
  EXPECT_FALSE(config.GetVideoJitterBufferMinDelayMs());
  EXPECT_EQ(Lines().back(), error_line("Video Jitter Buffer Min Delay is only supported in Adaptive mode!\n"));
}

TEST_F(JitterBuffer, IgnoresVideoAfterAModeThatIsNone) {
  leg_.Set("video_jitterbuffer_mode", "elastic");
  leg_.Set("video_jitterbuffer_msec", "60:20");
  ExpectNoVideo(Settings());
  EXPECT_THAT(Lines(), ElementsAre(error_line("Invalid Video Jitter Buffer mode specified (elastic). Video Jitter "
                                              "Buffer settings ignored!\n")));
}

TEST_F(JitterBuffer, SetsAudioBeforeVideo) {
  leg_.Set("jitterbuffer_mode", "none");
  leg_.Set("video_jitterbuffer_mode", "none");
  const MediaConfig config = Settings();
  EXPECT_EQ(config.GetJitterMode(), MediaConfig::JITTER_MODE_NONE);
  EXPECT_STREQ(config.GetVideoJitterBufferType(), "none");
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Setting audio jitter buffer mode to none.\n"),
                                   debug_line("Setting video jitter buffer mode to none.\n")));
}

}  // namespace
}  // namespace module_test
