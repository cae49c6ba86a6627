#include <expat.h>

#include <fstream>

#include "commands.h"
#include "module/frame_fixture.h"

namespace module_test {

namespace {

using test_support::error_line;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Typed as an operator reads them; nothing here is put together from parts.
constexpr char kStatsHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_stats usage\n"
    "            usage    <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_stats duration\n"
    "            duration <all|<ip <address>>|<mac <address>>>\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kStatsXmlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_stats_xml usage\n"
    "                usage    <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_stats_xml duration\n"
    "                duration <all|<ip <address>>|<mac <address>>>\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kHardwareHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_list_hardware <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kHardwareXmlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_list_hardware_xml <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";

/// Whether an XML parser that shares nothing with what wrote the text takes it.
bool well_formed(const std::string& text) {
  XML_Parser parser = XML_ParserCreate(nullptr);
  const bool taken = XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return taken;
}

}  // namespace

class Commands : public ModuleFrame {
 protected:
  Commands() : ModuleFrame(Options()) {}
  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.servers = 2;
    options.capacity = 8;
    return options;
  }
  void SetUp() override {
    ConfigureAndLoad();
    log_.Clear();
  }
  /// Writes another statistics filter in place of the usual one.
  void Filter(const std::string& text) { std::ofstream(STATSFILTER, std::ios::binary) << text; }
  static std::string Run(switch_api_function_t function, const char* words) {
    CommandOutput output;
    EXPECT_EQ(function(words, nullptr, output.Stream()), SWITCH_STATUS_SUCCESS);
    return output.Text();
  }
  static std::string Stats(const char* words) { return Run(kvrms_stats_function, words); }
  static std::string StatsXml(const char* words) { return Run(kvrms_stats_xml_function, words); }
  static std::string Hardware(const char* words) { return Run(kvrms_listhw_function, words); }
  static std::string HardwareXml(const char* words) { return Run(kvrms_listhw_xml_function, words); }
};

TEST_F(Commands, ReportsWithoutWordsShowTheirSyntax) {
  for (const char* words : {static_cast<const char*>(nullptr), "", " ", "     "}) {
    EXPECT_EQ(Stats(words), kStatsHelp);
    EXPECT_EQ(StatsXml(words), kStatsXmlHelp);
    EXPECT_EQ(Hardware(words), kHardwareHelp);
    EXPECT_EQ(HardwareXml(words), kHardwareXmlHelp);
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, UsageIsHeaderRuleAndOneRow) {
  AddCall({});
  EXPECT_EQ(Stats("usage"),
            "Active Calls     Max Calls     Active %     Max %     \n"
            "===================================================\n"
            "      1              1            6%          6%      \n");
}

TEST_F(Commands, UsageOfAllHasARowForEachServer) {
  AddCall({});
  EXPECT_EQ(
      Stats("usage all"),
      "        IP                     MAC            Status     Active Calls     Max Calls     Active %     Max %     "
      "\n"
      "============================================================================================================\n"
      "127.0.1.1,127.0.2.1     02:00:00:00:00:01       IS             1              1            12%        12%      "
      "\n"
      "127.0.1.2,127.0.2.2     02:00:00:00:00:02       IS             0              0            0%          0%      "
      "\n");
}

TEST_F(Commands, UsageOfOneServerIsOneRow) {
  const char kSecond[] =
      "   IP                MAC            Status     Active Calls     Max Calls     Active %     Max %     \n"
      "==================================================================================================\n"
      "127.0.1.2     02:00:00:00:00:02       IS             0              0            0%          0%      \n";
  EXPECT_EQ(Stats("usage ip 127.0.1.2"), kSecond);
  EXPECT_EQ(Stats("USAGE   IP 127.0.1.2 "), kSecond);
}

TEST_F(Commands, DurationIsReported) {
  EXPECT_EQ(Stats("duration"),
            "  Min          Max        Average      \n"
            "====================================\n"
            "00:00:00     00:00:00     00:00:00     \n");
}

TEST_F(Commands, SurplusWordsAreNotedAheadOfTheReport) {
  EXPECT_EQ(Stats("usage ip 127.0.1.2 extra words"), "Too Many parameters!\n" + Stats("usage ip 127.0.1.2"));
  EXPECT_EQ(StatsXml("usage ip 127.0.1.2 extra"), "Too Many parameters!\n" + StatsXml("usage ip 127.0.1.2"));
}

TEST_F(Commands, WordsAfterAllAreNoAddress) {
  EXPECT_EQ(Stats("usage all whatever"), Stats("usage all"));
}

TEST_F(Commands, MalformedReportsShowTheSyntaxAlone) {
  for (const char* words : {"calls", "usage bogus", "usage ip", "usage mac", "usage some 127.0.1.1", "usage\tall",
                            "bogus all", "usage ip 10.99.99.99", "usage mac 02:00:00:00:00:99"}) {
    EXPECT_EQ(Stats(words), kStatsHelp) << words;
    EXPECT_EQ(StatsXml(words), kStatsXmlHelp) << words;
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, HardwareWordsAreTheSelector) {
  EXPECT_EQ(Hardware("all"),
            "        IP                     MAC            Status     \n"
            "======================================================\n"
            "127.0.1.1,127.0.2.1     02:00:00:00:00:01       IS       \n"
            "127.0.1.2,127.0.2.2     02:00:00:00:00:02       IS       \n");
  EXPECT_EQ(Hardware("MAC 02:00:00:00:00:02"),
            "        IP                     MAC            Status     \n"
            "======================================================\n"
            "127.0.1.2,127.0.2.2     02:00:00:00:00:02       IS       \n");
}

TEST_F(Commands, MacWithHyphensIsShownAsItWasGivenInUpperCase) {
  EXPECT_THAT(Hardware("mac 02-00-00-00-00-02"), HasSubstr("127.0.1.2,127.0.2.2     02-00-00-00-00-02       IS"));
}

TEST_F(Commands, ServerOutOfServiceIsShownAsSuch) {
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus("127.0.1.2", false);
  EXPECT_THAT(Hardware("ip 127.0.1.2"), HasSubstr("127.0.1.2     02:00:00:00:00:02       OOS      \n"));
}

TEST_F(Commands, HardwareKindIsAlsoAStatsKind) {
  EXPECT_EQ(Stats("hardware all"), Hardware("all"));
}

TEST_F(Commands, XmlIsOneLine) {
  EXPECT_EQ(StatsXml("usage"),
            std::string(kXmlDeclaration) +
                "<stats><usage><summary><active_calls>0</active_calls><max_calls>0</max_calls>"
                "<active_calls_percentage>0</active_calls_percentage><max_calls_percentage>0</max_calls_percentage>"
                "</summary></usage></stats>");
  EXPECT_EQ(HardwareXml("all"),
            std::string(kXmlDeclaration) +
                "<stats><hardware><modules>"
                "<module><IP>127.0.1.1,127.0.2.1</IP><MAC>02:00:00:00:00:01</MAC><Status>IS</Status></module>"
                "<module><IP>127.0.1.2,127.0.2.2</IP><MAC>02:00:00:00:00:02</MAC><Status>IS</Status></module>"
                "</modules></hardware></stats>");
}

TEST_F(Commands, XmlOfEveryKindAndSelectorIsWellFormed) {
  for (const std::string kind : {"usage", "duration", "hardware"}) {
    for (const std::string selector : {" all", " ip 127.0.2.1", " mac 02:00:00:00:00:02"}) {
      const std::string text = StatsXml((kind + selector).c_str());
      EXPECT_THAT(text, StartsWith(kXmlDeclaration));
      EXPECT_TRUE(well_formed(text)) << text;
    }
  }
  EXPECT_TRUE(well_formed(StatsXml("duration")));
}

TEST_F(Commands, BrokenFiltersGiveTheSyntaxAndALogLineThatNamesThem) {
  for (const char* text : {"", "no XML", "<statsconfig>", "<other/>"}) {
    Filter(text);
    log_.Clear();
    EXPECT_EQ(Stats("usage all"), kStatsHelp) << text;
    const auto lines = log_.ModuleLines();
    ASSERT_EQ(lines.size(), 1u) << text;
    EXPECT_EQ(lines[0].level, SWITCH_LOG_ERROR);
    EXPECT_THAT(lines[0].text, StartsWith("kvrms_stats failed: ")) << text;
    EXPECT_THAT(lines[0].text, HasSubstr(STATSFILTER)) << text;
  }
}

TEST_F(Commands, MissingFilterGivesTheSyntaxAndALogLine) {
  std::filesystem::remove(STATSFILTER);
  EXPECT_EQ(HardwareXml("all"), kHardwareXmlHelp);
  const auto lines = log_.ModuleLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0].text, StartsWith("kvrms_list_hardware_xml failed: "));
  EXPECT_THAT(lines[0].text, HasSubstr(STATSFILTER));
}

TEST_F(Commands, WithoutAFilterPathShowTheSyntax) {
  STATSFILTER = nullptr;
  EXPECT_EQ(Stats("usage"), kStatsHelp);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(Commands, KindWithoutItemsGivesTheSyntaxAndNamesTheTreePath) {
  Filter("<statsconfig/>");
  EXPECT_EQ(Stats("usage"), kStatsHelp);
  const auto lines = log_.ModuleLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0].text, HasSubstr("stats.usage"));
}

TEST_F(Commands, OddFiltersShowWhatTheyHold) {
  Filter(
      "<!DOCTYPE statsconfig [<!ENTITY a \"b\">]>\n<statsconfig><active_calls><application>usage</application>"
      "<viewname>A.B</viewname></active_calls><max_calls/><x><application>usage</application>"
      "<viewname>X</viewname></x></statsconfig>");
  EXPECT_EQ(Stats("usage"), "A     X     \n=========\n            \n");
}

TEST_F(Commands, FilterOfAMegabyteIsShown) {
  std::string text = "<statsconfig>";
  for (int i = 0; text.size() < 1000000; ++i)
    text += "<item" + std::to_string(i) + "><other/></item" + std::to_string(i) + ">";
  Filter(text + "<max_calls><application>usage</application><viewname>M</viewname></max_calls></statsconfig>");
  EXPECT_EQ(Stats("usage"), "M     \n===\n0     \n");
}

TEST_F(Commands, LibraryWithoutStatisticsShowsTheSyntax) {
  mod_globals->GetMSCtrlFtry()->Stop();
  EXPECT_EQ(Stats("usage"), kStatsHelp);
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
