// Statistics filters that are damaged, and such as hold other things than expected: nothing reaches the switch but a
// text for the operator and a line in the log.

#include "module/commands_fixture.h"
#include "module/xml_outline.h"

namespace module_test {

namespace {

using test_support::LogLine;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

struct ReportCommand {
  const char* name;
  switch_api_function_t function;
  const char* words;
  const char* help;
};

/// Every command that reads the filter.
const ReportCommand kReaders[] = {
    {"kvrms_stats", kvrms_stats_function, "usage", kStatsHelp},
    {"kvrms_stats", kvrms_stats_function, "duration all", kStatsHelp},
    {"kvrms_stats_xml", kvrms_stats_xml_function, "usage ip 127.0.1.1", kStatsXmlHelp},
    {"kvrms_list_hardware", kvrms_listhw_function, "all", kHardwareHelp},
    {"kvrms_list_hardware_xml", kvrms_listhw_xml_function, "mac 02:00:00:00:00:01", kHardwareXmlHelp},
    {"kvrms_control", kvrms_control_function, "service down all", kControlHelp},
    {"kvrms_control_xml", kvrms_control_xml_function, "session term ip 127.0.1.1", kControlXmlHelp},
};

}  // namespace

class StatisticsFilter : public CommandFrame {
 protected:
  /// Every command shows its syntax alone, and says in the log, once, which file is at fault.
  void ExpectEveryCommandToFail(const std::string& why) {
    for (const ReportCommand& reader : kReaders) {
      log_.Clear();
      EXPECT_EQ(Run(reader.function, reader.words), reader.help) << why << ": " << reader.name << " " << reader.words;
      EXPECT_THAT(log_.ModuleLines(),
                  ElementsAre(AllOf(Field(&LogLine::level, SWITCH_LOG_ERROR),
                                    Field(&LogLine::text, StartsWith(std::string(reader.name) + " failed: ")),
                                    Field(&LogLine::text, HasSubstr(STATSFILTER)))))
          << why << ": " << reader.name << " " << reader.words;
    }
    EXPECT_EQ(media_server_is_available(), SWITCH_TRUE) << why << ": \"service down\" did what it could not know";
  }
};

TEST_F(StatisticsFilter, DamagedOnesFailEveryCommandWithALogLineThatNamesTheFile) {
  for (const std::string text : {"", " \n", "no XML", "<statsconfig>", "<<>>", "\x7f\x45\x4c\x46",
                                 "<?xml version=\"1.0\"", "<!-- unfinished", "<other/>", "<STATSCONFIG/>"}) {
    Filter(text);
    ExpectEveryCommandToFail("\"" + text + "\"");
  }
}

TEST_F(StatisticsFilter, MissingOneFailsEveryCommandWithALogLineThatNamesTheFile) {
  std::filesystem::remove(STATSFILTER);
  ExpectEveryCommandToFail("no file");
}

TEST_F(StatisticsFilter, DirectoryInItsPlaceFailsEveryCommandWithALogLineThatNamesIt) {
  std::filesystem::remove(STATSFILTER);
  std::filesystem::create_directory(STATSFILTER);
  ExpectEveryCommandToFail("a directory");
}

TEST_F(StatisticsFilter, WithoutAPathCommandsShowTheirSyntax) {
  STATSFILTER = nullptr;
  for (const ReportCommand& reader : kReaders) {
    EXPECT_EQ(Run(reader.function, reader.words), reader.help) << reader.name << " " << reader.words;
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(StatisticsFilter, IsReadAnewByEveryCommand) {
  Filter("damaged");
  EXPECT_EQ(Stats("usage"), kStatsHelp);
  Filter(usual_statsconfig());
  EXPECT_THAT(Stats("usage"), StartsWith("Active Calls"));
}

TEST_F(StatisticsFilter, KindWithoutItemsHasNoSumAndTheLogNamesFileAndPath) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><viewname>A</viewname></active_calls></statsconfig>");
  EXPECT_EQ(Stats("duration"), kStatsHelp);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(AllOf(Field(&LogLine::level, SWITCH_LOG_ERROR),
                                                    Field(&LogLine::text, HasSubstr("stats.duration")),
                                                    Field(&LogLine::text, HasSubstr(STATSFILTER)))));
  log_.Clear();
  EXPECT_EQ(StatsXml("usage"), kStatsXmlHelp) << "the item has no name for XML";
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(Field(&LogLine::text, HasSubstr(STATSFILTER))));
}

TEST_F(StatisticsFilter, KindWithoutItemsStillListsTheServers) {
  Filter("<statsconfig/>");
  EXPECT_EQ(Stats("usage all"), Hardware("all"));
  EXPECT_THAT(Stats("duration ip 127.0.1.2"), HasSubstr("127.0.1.2     02:00:00:00:00:02       IS       \n"));
  EXPECT_EQ(Control("service down ip 127.0.1.2"), "Media Server 127.0.1.2 is put out of service!");
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(StatisticsFilter, ItemsWithoutNamesAndUnknownOnesShowWhatTheyHold) {
  Filter(
      "<statsconfig>text<active_calls/><max_calls><viewname>No Application</viewname></max_calls>"
      "<min_duration><application>usage</application></min_duration>"
      "<phase_of_the_moon><application>usage</application><viewname>Moon</viewname></phase_of_the_moon>"
      "<item.with.points><application>usage</application><viewname>Points</viewname></item.with.points>"
      "<max_calls_percentage><application>usage</application><viewname>Max</viewname></max_calls_percentage>"
      "<!-- a comment --><?a instruction?><![CDATA[more text]]></statsconfig>");
  EXPECT_EQ(Stats("usage"),
            "Moon     Points     Max     \n"
            "=========================\n"
            "                     0%     \n");
}

TEST_F(StatisticsFilter, ViewNameWithAPointIsAColumnWithoutAValue) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><viewname>A.B</viewname></active_calls>"
      "<max_calls><application>usage</application><viewname>C</viewname></max_calls></statsconfig>");
  EXPECT_EQ(Stats("usage"),
            "A     C     \n"
            "=========\n"
            "      0     \n");
}

TEST_F(StatisticsFilter, PointsThatEndAViewNameAreNoPartOfIt) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><viewname>Act.</viewname>"
      "<xmlviewname>act..</xmlviewname></active_calls>"
      "<max_calls><application>usage</application><viewname>...</viewname><xmlviewname>.</xmlviewname></max_calls>"
      "</statsconfig>");
  EXPECT_EQ(Stats("usage"),
            "Act     \n"
            "=====\n"
            " 0      \n");
  EXPECT_THAT(XmlOutline::Of(StatsXml("usage")), ElementsAre("stats/usage/summary/act=0"));
}

// A table has room for a column without a name; in XML an element must have one.
TEST_F(StatisticsFilter, ViewNamesWithNothingBeforeAPointDoNotReachTheSwitch) {
  for (const std::string name : {".A", "..A", "A..B"}) {
    Filter("<statsconfig><active_calls><application>usage</application><viewname>" + name + "</viewname><xmlviewname>" +
           name + "</xmlviewname></active_calls></statsconfig>");
    EXPECT_THAT(Stats("usage"), Not(StartsWith("SYNTAX"))) << name;
    EXPECT_EQ(StatsXml("usage"), kStatsXmlHelp) << name;
  }
}

TEST_F(StatisticsFilter, EntitiesOfADoctypeStayAsTheyAreWritten) {
  Filter(
      "<?xml version=\"1.0\"?>\n<!DOCTYPE statsconfig [<!ENTITY who \"root\"><!ENTITY file SYSTEM \"/etc/passwd\">]>\n"
      "<statsconfig><active_calls><application>usage</application><viewname>A&who;&file;&lt;B&#33;</viewname>"
      "</active_calls></statsconfig>");
  EXPECT_EQ(Stats("usage"),
            "A&who;&file;<B!     \n"
            "=================\n"
            "       0            \n");
}

// What comes is a report or the syntax; what does not come is an exception, or the end of the switch.
TEST_F(StatisticsFilter, DamageAtManyPlacesEndsInAReportOrTheSyntax) {
  const std::string whole = usual_statsconfig();
  for (std::size_t at = 0; at < whole.size(); at += 3) {
    const char replacements[] = {'.', '<', '>', '&', '/', '\0', '\xFF'};
    std::string damaged = whole;
    damaged[at] = replacements[at % sizeof(replacements)];
    for (const std::string& text : {whole.substr(0, at), damaged}) {
      Filter(text);
      EXPECT_THAT(Stats("usage"), AnyOf(kStatsHelp, HasSubstr("="))) << text;
      EXPECT_THAT(StatsXml("duration all"), AnyOf(kStatsXmlHelp, StartsWith(kXmlDeclaration))) << text;
    }
  }
}

// Each of a hundred names refers to the one before it ten times: read by its letters it would be larger than any
// memory.
TEST_F(StatisticsFilter, EntitiesThatMultiplyDoNot) {
  std::string entities = "<!ENTITY e0 \"boom\">";
  for (int i = 1; i < 100; ++i) {
    entities += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) entities += "&e" + std::to_string(i - 1) + ";";
    entities += "\">";
  }
  Filter("<!DOCTYPE statsconfig [" + entities +
         "]><statsconfig><active_calls><application>usage</application><viewname>&e99;</viewname></active_calls>"
         "</statsconfig>");
  EXPECT_EQ(Stats("usage"),
            "&e99;     \n"
            "=======\n"
            "  0       \n");
}

TEST_F(StatisticsFilter, AMegabyteOfItemsIsShownWhole) {
  std::string items;
  int count = 0;
  for (; items.size() < 1000000; ++count) {
    const std::string number = std::to_string(100000 + count);
    items += "<item" + number + "><application>usage</application><viewname>v" + number + "</viewname><xmlviewname>x" +
             number + "</xmlviewname></item" + number + ">";
  }
  Filter(
      "<statsconfig>" + items +
      "<max_calls><application>usage</application><viewname>last</viewname><xmlviewname>last</xmlviewname></max_calls>"
      "</statsconfig>");
  const std::string text = Stats("usage");
  EXPECT_THAT(text, StartsWith("v100000     v100001     "));
  EXPECT_EQ(text.find('\n'), static_cast<std::size_t>(count) * 12 + 9);  // two line ends further on, the row
  EXPECT_THAT(text, EndsWith("              0      \n"));
  const auto read = XmlOutline::Of(StatsXml("usage"));
  ASSERT_EQ(read.size(), static_cast<std::size_t>(count) + 1);
  EXPECT_EQ(read.front(), "stats/usage/summary/x100000=");
  EXPECT_EQ(read.back(), "stats/usage/summary/last=0");
}

}  // namespace module_test
