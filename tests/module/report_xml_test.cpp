// The XML reports, as text and as a parser that shares nothing with their writer reads them.

#include "module/commands_fixture.h"
#include "module/xml_outline.h"

namespace module_test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

}  // namespace

class XmlCommands : public CommandFrame {
 protected:
  void SetUp() override {
    CommandFrame::SetUp();
    for (int call = 0; call < 3; ++call) AddCall({});
    mod_globals->GetMSCtrlFtry()->SetMediaServerStatus("127.0.1.2", false);
  }
  static std::vector<std::string> Read(const std::string& text) {
    EXPECT_THAT(text, StartsWith(kXmlDeclaration));
    EXPECT_THAT(text, Not(HasSubstr("\n")));
    return XmlOutline::Of(text);
  }
};

TEST_F(XmlCommands, AreOneLineWithoutBlanksBetweenElements) {
  EXPECT_EQ(StatsXml("usage"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><usage><summary><active_calls>3</active_calls>"
            "<max_calls>3</max_calls><active_calls_percentage>18</active_calls_percentage><max_calls_percentage>18"
            "</max_calls_percentage></summary></usage></stats>");
  EXPECT_EQ(HardwareXml("all"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><hardware><modules>"
            "<module><IP>127.0.1.1,127.0.2.1</IP><MAC>02:00:00:00:00:01</MAC><Status>IS</Status></module>"
            "<module><IP>127.0.1.2,127.0.2.2</IP><MAC>02:00:00:00:00:02</MAC><Status>OOS</Status></module>"
            "</modules></hardware></stats>");
}

TEST_F(XmlCommands, SummaryOfEveryKind) {
  Filter(
      "<statsconfig>"
      "<active_calls><application>usage</application><xmlviewname>now</xmlviewname></active_calls>"
      "<max_duration><application>duration</application><xmlviewname>longest</xmlviewname></max_duration>"
      "<active_calls_percentage><application>hardware</application><xmlviewname>load</xmlviewname>"
      "</active_calls_percentage></statsconfig>");
  EXPECT_THAT(Read(StatsXml("usage")), ElementsAre("stats/usage/summary/now=3"));
  EXPECT_THAT(Read(StatsXml("duration")), ElementsAre("stats/duration/summary/longest=00:00:00"));
  EXPECT_THAT(Read(StatsXml("hardware")), ElementsAre("stats/hardware/summary/load=18"));
}

TEST_F(XmlCommands, UsageOfAll) {
  EXPECT_THAT(Read(StatsXml("usage all")),
              ElementsAre("stats/usage/modules/module/IP=127.0.1.1,127.0.2.1",
                          "stats/usage/modules/module/MAC=02:00:00:00:00:01", "stats/usage/modules/module/Status=IS",
                          "stats/usage/modules/module/active_calls=2", "stats/usage/modules/module/max_calls=2",
                          "stats/usage/modules/module/active_calls_percentage=25",
                          "stats/usage/modules/module/max_calls_percentage=25",
                          "stats/usage/modules/module/IP=127.0.1.2,127.0.2.2",
                          "stats/usage/modules/module/MAC=02:00:00:00:00:02", "stats/usage/modules/module/Status=OOS",
                          "stats/usage/modules/module/active_calls=1", "stats/usage/modules/module/max_calls=1",
                          "stats/usage/modules/module/active_calls_percentage=12",
                          "stats/usage/modules/module/max_calls_percentage=12"));
}

TEST_F(XmlCommands, UsageOfOne) {
  EXPECT_THAT(
      Read(StatsXml("usage ip 127.0.2.1")),
      ElementsAre("stats/usage/modules/module/IP=127.0.2.1", "stats/usage/modules/module/MAC=02:00:00:00:00:01",
                  "stats/usage/modules/module/Status=IS", "stats/usage/modules/module/active_calls=2",
                  "stats/usage/modules/module/max_calls=2", "stats/usage/modules/module/active_calls_percentage=25",
                  "stats/usage/modules/module/max_calls_percentage=25"));
  EXPECT_THAT(Read(StatsXml("usage mac 02-00-00-00-00-02")),
              ElementsAre("stats/usage/modules/module/IP=127.0.1.2,127.0.2.2",
                          "stats/usage/modules/module/MAC=02-00-00-00-00-02", "stats/usage/modules/module/Status=OOS",
                          "stats/usage/modules/module/active_calls=1", "stats/usage/modules/module/max_calls=1",
                          "stats/usage/modules/module/active_calls_percentage=12",
                          "stats/usage/modules/module/max_calls_percentage=12"));
}

TEST_F(XmlCommands, DurationOfAll) {
  EXPECT_THAT(
      Read(StatsXml("duration all")),
      ElementsAre(
          "stats/duration/modules/module/IP=127.0.1.1,127.0.2.1", "stats/duration/modules/module/MAC=02:00:00:00:00:01",
          "stats/duration/modules/module/Status=IS", "stats/duration/modules/module/min_duration=00:00:00",
          "stats/duration/modules/module/max_duration=00:00:00", "stats/duration/modules/module/avg_duration=00:00:00",
          "stats/duration/modules/module/IP=127.0.1.2,127.0.2.2", "stats/duration/modules/module/MAC=02:00:00:00:00:02",
          "stats/duration/modules/module/Status=OOS", "stats/duration/modules/module/min_duration=00:00:00",
          "stats/duration/modules/module/max_duration=00:00:00",
          "stats/duration/modules/module/avg_duration=00:00:00"));
}

TEST_F(XmlCommands, DurationOfOne) {
  for (const char* words : {"duration ip 127.0.1.2", "duration mac 02:00:00:00:00:02"}) {
    const auto read = Read(StatsXml(words));
    ASSERT_EQ(read.size(), 6u) << words;
    EXPECT_EQ(read[1], "stats/duration/modules/module/MAC=02:00:00:00:00:02") << words;
    EXPECT_EQ(read[3], "stats/duration/modules/module/min_duration=00:00:00") << words;
  }
}

TEST_F(XmlCommands, HardwareOfAllAndOfOne) {
  EXPECT_THAT(
      Read(HardwareXml("all")),
      ElementsAre("stats/hardware/modules/module/IP=127.0.1.1,127.0.2.1",
                  "stats/hardware/modules/module/MAC=02:00:00:00:00:01", "stats/hardware/modules/module/Status=IS",
                  "stats/hardware/modules/module/IP=127.0.1.2,127.0.2.2",
                  "stats/hardware/modules/module/MAC=02:00:00:00:00:02", "stats/hardware/modules/module/Status=OOS"));
  EXPECT_EQ(HardwareXml("all"), StatsXml("hardware all"));
  EXPECT_THAT(Read(HardwareXml("ip 127.0.1.2")), ElementsAre("stats/hardware/modules/module/IP=127.0.1.2",
                                                             "stats/hardware/modules/module/MAC=02:00:00:00:00:02",
                                                             "stats/hardware/modules/module/Status=OOS"));
  EXPECT_THAT(
      Read(HardwareXml("mac 02:00:00:00:00:01")),
      ElementsAre("stats/hardware/modules/module/IP=127.0.1.1,127.0.2.1",
                  "stats/hardware/modules/module/MAC=02:00:00:00:00:01", "stats/hardware/modules/module/Status=IS"));
}

class XmlOfTenServers : public CommandFrame {
 protected:
  XmlOfTenServers() : CommandFrame(Servers(10)) {}
};

TEST_F(XmlOfTenServers, HasTenModulesWithoutNumbers) {
  const auto read = XmlOutline::Of(HardwareXml("all"));
  ASSERT_EQ(read.size(), 30u);
  EXPECT_EQ(read[0], "stats/hardware/modules/module/IP=127.0.1.1,127.0.2.1");
  EXPECT_EQ(read[27], "stats/hardware/modules/module/IP=127.0.1.10,127.0.2.10");
  EXPECT_EQ(read[28], "stats/hardware/modules/module/MAC=02:00:00:00:00:0A");
}

TEST_F(XmlCommands, NumbersAreTakenOffModuleInViewNamesToo) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><xmlviewname>module7_calls</xmlviewname>"
      "</active_calls></statsconfig>");
  EXPECT_EQ(StatsXml("usage"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><usage><summary>"
            "<module_calls>3</module_calls></summary></usage></stats>");
}

TEST_F(XmlCommands, ViewNameWithAPointIsAnElementInAnElement) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><xmlviewname>calls.now</xmlviewname></active_calls>"
      "<max_calls><application>usage</application><xmlviewname>calls.ever</xmlviewname></max_calls></statsconfig>");
  EXPECT_THAT(Read(StatsXml("usage")),
              ElementsAre("stats/usage/summary/calls/now=3", "stats/usage/summary/calls/ever=3"));
}

TEST_F(XmlCommands, ItemWithoutAnXmlViewNameIsLeftOut) {
  Filter(
      "<statsconfig><active_calls><application>usage</application><viewname>Text Alone</viewname></active_calls>"
      "<max_calls><application>usage</application><xmlviewname>ever</xmlviewname></max_calls></statsconfig>");
  EXPECT_THAT(Read(StatsXml("usage")), ElementsAre("stats/usage/summary/ever=3"));
}

}  // namespace module_test
