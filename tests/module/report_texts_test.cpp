// What operators see, whole: every text is typed from the rules of the table, for one, two and ten media servers.

#include <boost/make_shared.hpp>
#include <boost/property_tree/ptree.hpp>
#include <sstream>

#include "module/commands_fixture.h"
#include "msstatsreportagent.h"

namespace module_test {

class OneServer : public CommandFrame {
 protected:
  OneServer() : CommandFrame(Servers(1)) {}
  void SetUp() override {
    CommandFrame::SetUp();
    for (int call = 0; call < 3; ++call) AddCall({});
  }
};

class TwoServers : public CommandFrame {
 protected:
  void SetUp() override {
    CommandFrame::SetUp();
    for (int call = 0; call < 3; ++call) AddCall({});
  }
};

class TenServers : public CommandFrame {
 protected:
  TenServers() : CommandFrame(Servers(10)) {}
  void SetUp() override {
    CommandFrame::SetUp();
    for (int call = 0; call < 11; ++call) AddCall({});
  }
};

// Typed cell by cell: a column is as wide as the wider of its name and its value in the first row; what is left over
// goes around the name with the smaller half first and around a value with the larger half first; five blanks end each
// cell; the rule is three shorter than the header's line. A literal is one cell with its five blanks.
// clang-format off

namespace {

// Widths 12, 9, 8, 5 and four times 5 blanks: 54, the rule has 51.
const std::string kUsageNames =
    "Active Calls     " "Max Calls     " "Active %     " "Max %     " "\n"
    "===================================================\n";

// Widths 19, 17, 6, 12, 9, 8, 5 and seven times 5 blanks: 111, the rule has 108.
const std::string kUsageNamesOfServers =
    "        IP              " "       MAC            " "Status     "
    "Active Calls     " "Max Calls     " "Active %     " "Max %     " "\n"
    "======================================================"
    "======================================================\n";

// Widths 19, 17, 6, 8, 8, 8 and six times 5 blanks: 96, the rule has 93.
const std::string kDurationNamesOfServers =
    "        IP              " "       MAC            " "Status     "
    "  Min        " "  Max        " "Average      " "\n"
    "==============================="
    "==============================="
    "===============================\n";

// Widths 19, 17, 6 and three times 5 blanks: 57, the rule has 54.
const std::string kHardwareNames =
    "        IP              " "       MAC            " "Status     " "\n"
    "======================================================\n";

}  // namespace

TEST_F(OneServer, Usage) {
  EXPECT_EQ(Stats("usage"),
            kUsageNames +
            "      3          " "    3         " "   37%       " " 37%      " "\n");
  EXPECT_EQ(Stats("usage all"),
            kUsageNamesOfServers +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "      3          " "    3         " "   37%       " " 37%      " "\n");
  EXPECT_EQ(Stats("usage mac 02:00:00:00:00:01"), Stats("usage all"));
}

// Widths 9, 17, 6, 12, 9, 8, 5 and seven times 5 blanks: 101, the rule has 98.
TEST_F(OneServer, UsageByAnAddressShowsThatAddressAlone) {
  EXPECT_EQ(Stats("usage ip 127.0.2.1"),
            "   IP         " "       MAC            " "Status     "
            "Active Calls     " "Max Calls     " "Active %     " "Max %     " "\n"
            "================================================="
            "=================================================\n"
            "127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "      3          " "    3         " "   37%       " " 37%      " "\n");
}

// Widths 8, 8, 8 and three times 5 blanks: 39, the rule has 36.
TEST_F(OneServer, Duration) {
  EXPECT_EQ(Stats("duration"),
            "  Min        " "  Max        " "Average      " "\n"
            "====================================\n"
            "00:00:00     " "00:00:00     " "00:00:00     " "\n");
  EXPECT_EQ(Stats("duration all"),
            kDurationNamesOfServers +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "00:00:00     " "00:00:00     " "00:00:00     " "\n");
}

TEST_F(OneServer, Hardware) {
  EXPECT_EQ(Hardware("all"),
            kHardwareNames +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       " "\n");
}

// Three calls of sixteen, and of eight each.
TEST_F(TwoServers, UsageIsSummedOrInARowForEach) {
  EXPECT_EQ(Stats("usage"),
            kUsageNames +
            "      3          " "    3         " "   18%       " " 18%      " "\n");
  EXPECT_EQ(Stats("usage all"),
            kUsageNamesOfServers +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "      2          " "    2         " "   25%       " " 25%      " "\n"
            "127.0.1.2,127.0.2.2     " "02:00:00:00:00:02     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n");
}

TEST_F(TwoServers, Duration) {
  EXPECT_EQ(Stats("duration all"),
            kDurationNamesOfServers +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "00:00:00     " "00:00:00     " "00:00:00     " "\n"
            "127.0.1.2,127.0.2.2     " "02:00:00:00:00:02     " "  IS       "
            "00:00:00     " "00:00:00     " "00:00:00     " "\n");
}

TEST_F(TwoServers, HardwareTellsTheOneOutOfService) {
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus("127.0.1.2", false);
  EXPECT_EQ(Hardware("all"),
            kHardwareNames +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       " "\n"
            "127.0.1.2,127.0.2.2     " "02:00:00:00:00:02     " "  OOS      " "\n");
}

// Eleven calls of eighty; the tenth server's addresses are two characters wider than the column.
TEST_F(TenServers, UsageIsSummedOrInARowForEach) {
  EXPECT_EQ(Stats("usage"),
            kUsageNames +
            "     11          " "    11        " "   13%       " " 13%      " "\n");
  EXPECT_EQ(Stats("usage all"),
            kUsageNamesOfServers +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       "
            "      2          " "    2         " "   25%       " " 25%      " "\n"
            "127.0.1.2,127.0.2.2     " "02:00:00:00:00:02     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.3,127.0.2.3     " "02:00:00:00:00:03     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.4,127.0.2.4     " "02:00:00:00:00:04     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.5,127.0.2.5     " "02:00:00:00:00:05     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.6,127.0.2.6     " "02:00:00:00:00:06     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.7,127.0.2.7     " "02:00:00:00:00:07     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.8,127.0.2.8     " "02:00:00:00:00:08     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.9,127.0.2.9     " "02:00:00:00:00:09     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n"
            "127.0.1.10,127.0.2.10     " "02:00:00:00:00:0A     " "  IS       "
            "      1          " "    1         " "   12%       " " 12%      " "\n");
}

TEST_F(TenServers, Hardware) {
  EXPECT_EQ(Hardware("all"),
            kHardwareNames +
            "127.0.1.1,127.0.2.1     " "02:00:00:00:00:01     " "  IS       " "\n"
            "127.0.1.2,127.0.2.2     " "02:00:00:00:00:02     " "  IS       " "\n"
            "127.0.1.3,127.0.2.3     " "02:00:00:00:00:03     " "  IS       " "\n"
            "127.0.1.4,127.0.2.4     " "02:00:00:00:00:04     " "  IS       " "\n"
            "127.0.1.5,127.0.2.5     " "02:00:00:00:00:05     " "  IS       " "\n"
            "127.0.1.6,127.0.2.6     " "02:00:00:00:00:06     " "  IS       " "\n"
            "127.0.1.7,127.0.2.7     " "02:00:00:00:00:07     " "  IS       " "\n"
            "127.0.1.8,127.0.2.8     " "02:00:00:00:00:08     " "  IS       " "\n"
            "127.0.1.9,127.0.2.9     " "02:00:00:00:00:09     " "  IS       " "\n"
            "127.0.1.10,127.0.2.10     " "02:00:00:00:00:0A     " "  IS       " "\n");
}

// Widths 21, 17, 6 and three times 5 blanks: 59, the rule has 56.
TEST_F(TenServers, MacInLowerCaseWithHyphensIsFoundAndShownInUpperCase) {
  EXPECT_EQ(Hardware("mac 02-00-00-00-00-0a"),
            "         IP               " "       MAC            " "Status     " "\n"
            "========================================================\n"
            "127.0.1.10,127.0.2.10     " "02-00-00-00-00-0A     " "  IS       " "\n");
}

// clang-format on

namespace {

using boost::posix_time::hours;
using boost::posix_time::minutes;
using boost::posix_time::seconds;
using kelvaro::jsr309::MediaSessionStats;

MediaSessionStats used(std::size_t capacity, int maximum, int current) {
  MediaSessionStats stats(capacity);
  for (int i = 0; i < maximum; ++i) stats.IncreaseMediaSessionCount();
  for (int i = maximum; i > current; --i) stats.DecreaseMediaSessionCount();
  return stats;
}

constexpr char kEveryItemInOneReport[] =
    "<statsconfig>"
    "<active_calls><application>usage</application><viewname>Now</viewname></active_calls>"
    "<max_calls><application>usage</application><viewname>Ever</viewname></max_calls>"
    "<active_calls_percentage><application>usage</application><viewname>Of all</viewname></active_calls_percentage>"
    "<max_calls_percentage><application>usage</application><viewname>Most of all</viewname></max_calls_percentage>"
    "<min_duration><application>usage</application><viewname>Shortest</viewname></min_duration>"
    "<max_duration><application>usage</application><viewname>Longest call</viewname></max_duration>"
    "<avg_duration><application>usage</application><viewname>Mean</viewname></avg_duration>"
    "</statsconfig>";

}  // namespace

// Ten columns: names and values wider and narrower than each other, with odd and even differences, in all rows.
TEST(ReportTexts, WidthsComeFromTheFirstRowOfTenColumns) {
  MediaSessionStats first = used(125000, 123456, 123456);
  first.AddNewMediaSessionDuration(seconds(59));
  first.AddNewMediaSessionDuration(hours(25) + minutes(1) + seconds(1));
  MediaSessionStats second = used(1000, 1234567, 7);
  second.PutOutOfService();
  second.AddNewMediaSessionDuration(hours(12345) + minutes(6) + seconds(7));
  kelvaro::jsr309::MediaSessionStatsMap servers;
  servers.SetOneStatsItem("00:1A:2B:3C:4D:5E", first);
  servers.AddMacIPPair("00:1A:2B:3C:4D:5E", "10.0.0.5");
  servers.SetOneStatsItem("00:1A:2B:3C:4D:5F", second);
  servers.AddMacIPPair("00:1A:2B:3C:4D:5F", "10.0.0.6");
  servers.AddMacIPPair("00:1A:2B:3C:4D:5F", "10.0.1.6");
  servers.SetOneStatsItem("00:1A:2B:3C:4D:60", MediaSessionStats(0));
  servers.AddMacIPPair("00:1A:2B:3C:4D:60", "::1");
  kelvaro::jsr309::JSR309Stats stats;
  stats.SetMediaSessionStatsPerMediaServer(servers);

  auto factory = boost::make_shared<kelvaro::jsr309::MSControlFactory>();
  kvx_media_server::MSStatsReportAgent agent(factory);
  const ConfigurationFile filter("statsconfig.xml", kEveryItemInOneReport);
  ASSERT_TRUE(agent.Init("usage", "all", nullptr, filter.Path().c_str()));
  boost::property_tree::ptree tree;
  ASSERT_TRUE(agent.MakeReport(tree, stats, false));
  std::ostringstream out;
  ASSERT_TRUE(generate_plain_text_report(out, tree, "stats.usage.modules"));
  // Widths 8, 17, 6, 6, 6, 6, 11, 8, 12, 8 and ten times 5 blanks: 138, the rule has 135. The mean of the first server
  // is half of 90,120 seconds; 123,456 of 125,000 are 98 percent; a server without capacity is 0 percent in use.
  // clang-format off
  EXPECT_EQ(out.str(),
            "   IP        " "       MAC            " "Status     " " Now       " " Ever      " "Of all     "
            "Most of all     " "Shortest     " "Longest call     " "  Mean       " "\n"
            "============================================="
            "============================================="
            "=============================================\n"
            "10.0.0.5     " "00:1A:2B:3C:4D:5E     " "  IS       " "123456     " "123456     " "  98%      "
            "    98%         " "00:00:59     " "  25:01:01       " "12:31:00     " "\n"
            "10.0.0.6,10.0.1.6     " "00:1A:2B:3C:4D:5F     " "  OOS      " "   7       " "1234567     " "  0%       "
            "  123456%       " "12345:06:07     " " 12345:06:07     " "12345:06:07     " "\n"
            "   ::1       " "00:1A:2B:3C:4D:60     " "  IS       " "   0       " "   0       " "  0%       "
            "     0%         " "00:00:00     " "  00:00:00       " "00:00:00     " "\n");
  // clang-format on
}

}  // namespace module_test
