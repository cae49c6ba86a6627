#include "module/commands_fixture.h"

#include <sstream>
#include <stdexcept>

namespace module_test {

namespace {

using test_support::error_line;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Writes of a stream that come to grief once, and then go on.
int writes = 0;

switch_status_t throw_error_once(switch_stream_handle_t* stream, const char*, ...) {
  if (writes++ == 0) throw std::runtime_error("no paper");
  return switch_console_stream_write(stream, "%s", "syntax");
}

switch_status_t throw_number_once(switch_stream_handle_t* stream, const char*, ...) {
  if (writes++ == 0) throw 42;
  return switch_console_stream_write(stream, "%s", "syntax");
}

}  // namespace

class Commands : public CommandFrame {};

TEST_F(Commands, ReportsWithoutWordsShowTheirSyntax) {
  for (const char* words : {static_cast<const char*>(nullptr), "", " ", "     "}) {
    EXPECT_EQ(Stats(words), kStatsHelp);
    EXPECT_EQ(StatsXml(words), kStatsXmlHelp);
    EXPECT_EQ(Hardware(words), kHardwareHelp);
    EXPECT_EQ(HardwareXml(words), kHardwareXmlHelp);
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, WordsInUpperCaseAndRunsOfBlanksAreTheSame) {
  EXPECT_EQ(Stats("USAGE   IP 127.0.1.2 "),
            "   IP                MAC            Status     Active Calls     Max Calls     Active %     Max %     \n"
            "==================================================================================================\n"
            "127.0.1.2     02:00:00:00:00:02       IS             0              0            0%          0%      \n");
  EXPECT_EQ(Stats("   usage      all"), Stats("usage all"));
  EXPECT_EQ(StatsXml("Usage ALL"), StatsXml("usage all"));
  EXPECT_EQ(Hardware("ALL  "), Hardware("all"));
}

TEST_F(Commands, SurplusWordsAreNotedAheadOfTheReport) {
  EXPECT_EQ(Stats("usage ip 127.0.1.2 extra"),
            "Too Many parameters!\n"
            "   IP                MAC            Status     Active Calls     Max Calls     Active %     Max %     \n"
            "==================================================================================================\n"
            "127.0.1.2     02:00:00:00:00:02       IS             0              0            0%          0%      \n");
  EXPECT_EQ(StatsXml("usage ip 127.0.1.2 extra"), "Too Many parameters!\n" + StatsXml("usage ip 127.0.1.2"));
  EXPECT_EQ(Hardware("ip 127.0.1.2 extra words"), "Too Many parameters!\n" + Hardware("ip 127.0.1.2"));
}

TEST_F(Commands, FiveHundredWordsAreSurplusWords) {
  std::string words = "usage all";
  for (int i = 2; i < 500; ++i) words += " word" + std::to_string(i);
  EXPECT_EQ(Stats(words.c_str()), "Too Many parameters!\n" + Stats("usage all"));
  EXPECT_EQ(Stats(("bogus " + words).c_str()), kStatsHelp);
}

TEST_F(Commands, WordsLongerThanAnyBufferAndForeignOnesShowTheSyntax) {
  const std::string longest(100000, 'X');
  for (const std::string& word :
       {longest, std::string("\xC3\x84\xFF\x80"), std::string("127.0.1.1\xA0"), std::string("%s%n")}) {
    EXPECT_EQ(Stats(word.c_str()), kStatsHelp);
    EXPECT_EQ(StatsXml(("usage " + word).c_str()), kStatsXmlHelp);
    EXPECT_EQ(Stats(("usage ip " + word).c_str()), kStatsHelp);
    EXPECT_EQ(StatsXml(("duration mac " + word).c_str()), kStatsXmlHelp);
    EXPECT_EQ(Hardware(word.c_str()), kHardwareHelp);
    EXPECT_EQ(HardwareXml(("ip " + word).c_str()), kHardwareXmlHelp);
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, WordsAfterAllAreNoAddress) {
  EXPECT_EQ(Stats("usage all whatever"), Stats("usage all"));
}

TEST_F(Commands, MalformedReportsShowTheSyntaxAlone) {
  for (const char* words :
       {"calls", "usage bogus", "usage ip", "usage mac", "usage some 127.0.1.1", "usage\tall", "\tusage", "usage all\t",
        "bogus all", "usage ip 10.99.99.99", "usage mac 02:00:00:00:00:99"}) {
    EXPECT_EQ(Stats(words), kStatsHelp) << words;
    EXPECT_EQ(StatsXml(words), kStatsXmlHelp) << words;
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, ServerOutOfServiceIsShownAsSuch) {
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus("127.0.1.2", false);
  EXPECT_THAT(Hardware("ip 127.0.1.2"), HasSubstr("127.0.1.2     02:00:00:00:00:02       OOS      \n"));
}

TEST_F(Commands, HardwareKindIsAlsoAStatsKind) {
  EXPECT_EQ(Stats("hardware all"), Hardware("all"));
}

TEST_F(Commands, LibraryWithoutStatisticsShowsTheSyntax) {
  mod_globals->GetMSCtrlFtry()->Stop();
  EXPECT_EQ(Stats("usage"), kStatsHelp);
  EXPECT_EQ(Control("service up all"), std::string(kReportError) + kControlHelp);
  EXPECT_EQ(ControlXml("session term ip 127.0.1.1"), std::string(kReportError) + kControlXmlHelp);
}

TEST_F(Commands, WhateverIsThrownBecomesALogLineAndTheSyntax) {
  CommandOutput output;
  writes = 0;
  output.Stream()->write_function = throw_error_once;
  EXPECT_EQ(kvrms_stats_function("usage", nullptr, output.Stream()), SWITCH_STATUS_SUCCESS);
  writes = 0;
  output.Stream()->write_function = throw_number_once;
  EXPECT_EQ(kvrms_control_function("service down all", nullptr, output.Stream()), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(output.Text(), "syntaxsyntax");
  EXPECT_THAT(
      log_.LinesOf({"commands.cpp"}),
      ElementsAre(error_line("kvrms_stats failed: no paper (statistics filter: " + std::string(STATSFILTER) + ")\n"),
                  error_line("kvrms_control failed: unknown exception\n")));
}

TEST_F(Commands, CountIsOfMediaSessionsAndTakesNoWords) {
  EXPECT_EQ(Run(ms_count_show_function, nullptr), "Totally 0 MSs now!\n");
  Leg a, b;
  AddCall({&a, &b});
  EXPECT_EQ(Run(ms_count_show_function, "all"), "Totally 1 MSs now!\n");
}

TEST_F(Commands, RtcpStatsWritesNothing) {
  Leg leg;
  AddCall({&leg});
  for (const char* words : {static_cast<const char*>(nullptr), "", "all", "no-such-uuid"}) {
    EXPECT_EQ(Run(kvrms_rtcp_stats_function, words), "");
  }
}

TEST(GetReport, SaysWhatIsWrongWithTheWords) {
  const auto text = [](const std::vector<std::string>& words) {
    std::ostringstream out;
    EXPECT_FALSE(mod_media_server_get_report(words, out, false));
    return out.str();
  };
  EXPECT_EQ(text({"calls"}), "application \"calls\" not supported!");
  EXPECT_EQ(text({"USAGE"}), "application \"USAGE\" not supported!");
}

TEST_F(Commands, GetReportSaysWhatIsWrongWithTheRequest) {
  const auto text = [](const std::vector<std::string>& words) {
    std::ostringstream out;
    EXPECT_FALSE(mod_media_server_get_report(words, out, false));
    return out.str();
  };
  EXPECT_EQ(text({"usage", "bogus"}), "unexpected command scope \"bogus\"\n");
  EXPECT_EQ(text({"usage", "some", "x"}), "");
  EXPECT_EQ(text({"usage", "ip", ""}), "");
  EXPECT_EQ(text({"usage", "some", "x", "y"}), "Too Many parameters!\n");
  EXPECT_EQ(text({"usage", "ip", "10.99.99.99"}), "Report Error! Check your system!\n");
}

TEST(GetReportDeathTest, NeedsAWord) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  std::ostringstream out;
  EXPECT_DEATH(mod_media_server_get_report({}, out, false), "!argv.empty\\(\\)");
}

TEST(TokenizeArguments, SplitsAtBlanksAloneAndLowersCase) {
  std::vector<std::string> words;
  EXPECT_TRUE(tokenize_arguments("  USAGE   All\tX ", words));
  EXPECT_THAT(words, ElementsAre("usage", "all\tx"));
  EXPECT_TRUE(tokenize_arguments("more", words));
  EXPECT_THAT(words, ElementsAre("usage", "all\tx", "more"));
}

TEST(TokenizeArguments, WithoutWordsFails) {
  std::vector<std::string> words;
  EXPECT_FALSE(tokenize_arguments("", words));
  EXPECT_FALSE(tokenize_arguments("    ", words));
  EXPECT_FALSE(tokenize_arguments(nullptr, words));
  EXPECT_THAT(words, IsEmpty());
}

TEST(TokenizeArguments, TakesLongAndForeignWords) {
  std::vector<std::string> words;
  EXPECT_TRUE(tokenize_arguments((std::string(100000, 'A') + " \xC3\x84\xFF").c_str(), words));
  EXPECT_THAT(words, ElementsAre(std::string(100000, 'a'), "\xC3\x84\xFF"));
}

}  // namespace module_test
