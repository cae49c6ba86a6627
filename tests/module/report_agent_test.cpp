#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <memory>

#include "module/frame_fixture.h"
#include "msstatsreportagent.h"

namespace module_test {

namespace {

using boost::posix_time::hours;
using boost::posix_time::microseconds;
using boost::posix_time::minutes;
using boost::posix_time::seconds;
using boost::property_tree::ptree;
using kelvaro::jsr309::JSR309Stats;
using kelvaro::jsr309::MediaSessionStats;
using kelvaro::jsr309::MediaSessionStatsMap;
using kelvaro::jsr309::MSControlFactory;
using kvx_media_server::MSStatsReportAgent;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Columns = std::vector<std::pair<std::string, std::string>>;

Columns columns(const ptree& node) {
  Columns found;
  for (const ptree::value_type& child : node) found.emplace_back(child.first, child.second.data());
  return found;
}

std::vector<std::string> names(const ptree& node) {
  std::vector<std::string> found;
  for (const ptree::value_type& child : node) found.push_back(child.first);
  return found;
}

MediaSessionStats used(size_t capacity, int maximum, int current) {
  MediaSessionStats stats(capacity);
  for (int i = 0; i < maximum; ++i) stats.IncreaseMediaSessionCount();
  for (int i = maximum; i > current; --i) stats.DecreaseMediaSessionCount();
  return stats;
}

}  // namespace

class ReportAgent : public testing::Test {
 protected:
  /// An agent on a statistics filter of this text.
  bool Init(const char* application, const char* scope, const char* value, const std::string& filter) {
    filter_.reset();
    filter_ = std::make_unique<ConfigurationFile>("statsconfig.xml", filter);
    return agent_.Init(application, scope, value, filter_->Path().c_str());
  }
  bool Init(const char* application, const char* scope, const char* value) {
    return Init(application, scope, value, usual_statsconfig());
  }
  void AddServer(const char* mac, const MediaSessionStats& stats, const std::vector<const char*>& addresses) {
    servers_.SetOneStatsItem(mac, stats);
    for (const char* address : addresses) servers_.AddMacIPPair(mac, address);
  }
  bool Make(bool xml = false) {
    stats_.SetMediaSessionStatsPerMediaServer(servers_);
    report_.clear();
    return agent_.MakeReport(report_, stats_, xml);
  }

  boost::shared_ptr<MSControlFactory> factory_ = boost::make_shared<MSControlFactory>();
  MSStatsReportAgent agent_{factory_};
  std::unique_ptr<ConfigurationFile> filter_;
  MediaSessionStatsMap servers_;
  JSR309Stats stats_;
  ptree report_;
};

TEST_F(ReportAgent, InitKnowsThreeKindsInAnyCase) {
  for (const char* kind : {"usage", "USAGE", "Duration", "hardware"}) {
    EXPECT_TRUE(Init(kind, nullptr, nullptr)) << kind;
  }
  for (const char* kind : {"calls", "", "usages"}) EXPECT_FALSE(Init(kind, nullptr, nullptr)) << kind;
  EXPECT_FALSE(Init(nullptr, nullptr, nullptr));
}

TEST_F(ReportAgent, InitNeedsAFilterPath) {
  EXPECT_FALSE(agent_.Init("usage", nullptr, nullptr, nullptr));
  EXPECT_FALSE(agent_.Init("usage", nullptr, nullptr, ""));
}

TEST_F(ReportAgent, InitKnowsFourScopesInAnyCase) {
  EXPECT_TRUE(Init("usage", "", nullptr));
  EXPECT_TRUE(Init("usage", "ALL", nullptr));
  EXPECT_TRUE(Init("usage", "IP", "10.0.0.1"));
  EXPECT_TRUE(Init("usage", "Mac", "00:1a"));
  EXPECT_FALSE(Init("usage", "some", "10.0.0.1"));
}

TEST_F(ReportAgent, SelectorsInUpperCaseSelectTheSame) {
  AddServer("00:1A:2B:3C:4D:5E", used(10, 0, 0), {"10.0.0.1"});
  for (const auto& [scope, value] :
       {std::pair<const char*, const char*>{"IP", "10.0.0.1"}, {"Mac", "00:1a:2b:3c:4d:5e"}}) {
    ASSERT_TRUE(Init("HARDWARE", scope, value)) << scope;
    ASSERT_TRUE(Make()) << scope;
    EXPECT_THAT(columns(report_.get_child("stats.hardware.modules.module")),
                ElementsAre(Pair("IP", "10.0.0.1"), Pair("MAC", "00:1A:2B:3C:4D:5E"), Pair("Status", "IS")))
        << scope;
  }
  ASSERT_TRUE(Init("hardware", "ALL", "10.0.0.1"));
  ASSERT_TRUE(Make());
  EXPECT_THAT(names(report_.get_child("stats.hardware.modules")), ElementsAre("module1"));
}

TEST_F(ReportAgent, InitNeedsAnAddressForOneServer) {
  for (const char* scope : {"ip", "mac"}) {
    EXPECT_FALSE(Init("usage", scope, nullptr));
    EXPECT_FALSE(Init("usage", scope, ""));
  }
}

TEST_F(ReportAgent, FilterThatIsMissingOrMalformedThrowsWithItsPath) {
  EXPECT_THROW(agent_.Init("usage", nullptr, nullptr, "/no/such/file.xml"), boost::property_tree::xml_parser_error);
  EXPECT_THROW(Init("usage", nullptr, nullptr, "not XML <"), boost::property_tree::xml_parser_error);
}

TEST_F(ReportAgent, FilterWithoutItsRootThrows) {
  EXPECT_TRUE(Init("usage", nullptr, nullptr, "<other/>"));
  EXPECT_THROW(Make(), boost::property_tree::ptree_bad_path);
}

TEST_F(ReportAgent, SummaryHoldsTheItemsOfItsKindInTheFilesOrder) {
  stats_.SetMediaSessionStats(used(8, 12, 3));
  ASSERT_TRUE(Init("USAGE", nullptr, nullptr));
  ASSERT_TRUE(Make());
  EXPECT_THAT(names(report_), ElementsAre("stats"));
  EXPECT_THAT(names(report_.get_child("stats")), ElementsAre("usage"));
  EXPECT_THAT(
      columns(report_.get_child("stats.usage.summary")),
      ElementsAre(Pair("Active Calls", "3"), Pair("Max Calls", "12"), Pair("Active %", "37%"), Pair("Max %", "150%")));
}

TEST_F(ReportAgent, XmlHasNamesOfItsOwn) {
  stats_.SetMediaSessionStats(used(8, 4, 3));
  ASSERT_TRUE(Init("usage", "", nullptr));
  ASSERT_TRUE(Make(true));
  EXPECT_THAT(columns(report_.get_child("stats.usage.summary")),
              ElementsAre(Pair("active_calls", "3"), Pair("max_calls", "4"), Pair("active_calls_percentage", "37%"),
                          Pair("max_calls_percentage", "50%")));
}

TEST_F(ReportAgent, DurationsCountHoursBeyondADayAndDropFractions) {
  MediaSessionStats stats(8);
  stats.AddNewMediaSessionDuration(hours(25) + minutes(1) + seconds(1) + microseconds(999999));
  stats.AddNewMediaSessionDuration(seconds(59));
  stats.AddNewMediaSessionDuration(hours(150));
  stats_.SetMediaSessionStats(stats);
  ASSERT_TRUE(Init("duration", nullptr, nullptr));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.duration.summary")),
              ElementsAre(Pair("Min", "00:00:59"), Pair("Max", "150:00:00"), Pair("Average", "58:20:40")));
}

TEST_F(ReportAgent, OneDurationIsShortestLongestAndMean) {
  MediaSessionStats stats(8);
  stats.AddNewMediaSessionDuration(hours(25) + minutes(1) + seconds(1));
  stats_.SetMediaSessionStats(stats);
  ASSERT_TRUE(Init("duration", nullptr, nullptr));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.duration.summary")),
              ElementsAre(Pair("Min", "25:01:01"), Pair("Max", "25:01:01"), Pair("Average", "25:01:01")));
}

TEST_F(ReportAgent, WithoutFinishedSessionsDurationsAreZero) {
  ASSERT_TRUE(Init("duration", nullptr, nullptr));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.duration.summary")),
              ElementsAre(Pair("Min", "00:00:00"), Pair("Max", "00:00:00"), Pair("Average", "00:00:00")));
}

TEST_F(ReportAgent, PercentageOfNoCapacityIsZero) {
  stats_.SetMediaSessionStats(used(0, 5, 5));
  ASSERT_TRUE(Init("usage", nullptr, nullptr));
  ASSERT_TRUE(Make());
  EXPECT_EQ(report_.get<std::string>("stats.usage.summary.Active %"), "0%");
  EXPECT_EQ(report_.get<std::string>("stats.usage.summary.Max %"), "0%");
}

TEST_F(ReportAgent, OneServerByAddress) {
  MediaSessionStats stats = used(10, 2, 1);
  stats.PutOutOfService();
  AddServer("00:1A:2B:3C:4D:5E", stats, {"10.0.0.5", "10.0.1.5"});
  ASSERT_TRUE(Init("usage", "ip", "10.0.0.5"));
  ASSERT_TRUE(Make());
  EXPECT_THAT(
      columns(report_.get_child("stats.usage.modules.module")),
      ElementsAre(Pair("IP", "10.0.0.5"), Pair("MAC", "00:1A:2B:3C:4D:5E"), Pair("Status", "OOS"),
                  Pair("Active Calls", "1"), Pair("Max Calls", "2"), Pair("Active %", "10%"), Pair("Max %", "20%")));
}

TEST_F(ReportAgent, OneServerByMacInAnyCaseWithAllItsAddresses) {
  AddServer("00:1A:2B:3C:4D:5E", used(10, 0, 0), {"10.0.0.5", "10.0.1.5"});
  ASSERT_TRUE(Init("hardware", "mac", "00:1a:2b:3c:4d:5e"));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.hardware.modules.module")),
              ElementsAre(Pair("IP", "10.0.0.5,10.0.1.5"), Pair("MAC", "00:1A:2B:3C:4D:5E"), Pair("Status", "IS")));
}

TEST_F(ReportAgent, UnknownServerIsNotReported) {
  AddServer("00:1A:2B:3C:4D:5E", used(10, 0, 0), {"10.0.0.5"});
  ASSERT_TRUE(Init("usage", "ip", "10.0.0.6"));
  EXPECT_FALSE(Make());
  ASSERT_TRUE(Init("usage", "mac", "00:1A:2B:3C:4D:5F"));
  EXPECT_FALSE(Make());
}

TEST_F(ReportAgent, ServerWithoutAnAddressIsNotReportedByMac) {
  AddServer("00:1A:2B:3C:4D:5E", used(10, 0, 0), {});
  ASSERT_TRUE(Init("usage", "mac", "00:1A:2B:3C:4D:5E"));
  EXPECT_FALSE(Make());
}

TEST_F(ReportAgent, AddressIsLookedUpAsOneAndShownAsItWasGivenInUpperCase) {
  AddServer("00:1A:2B:3C:4D:5E", used(10, 0, 0), {"2001:db8::5"});
  ASSERT_TRUE(Init("hardware", "ip", "2001:db8:0::5"));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.hardware.modules.module")),
              ElementsAre(Pair("IP", "2001:DB8:0::5"), Pair("MAC", "00:1A:2B:3C:4D:5E"), Pair("Status", "IS")));
}

TEST_F(ReportAgent, AllNumbersTheServersThatHaveAnAddressInTheOrderOfTheirMacs) {
  AddServer("0C:00:00:00:00:03", used(10, 0, 0), {"10.0.0.3"});
  AddServer("0B:00:00:00:00:02", used(10, 0, 0), {});
  AddServer("0A:00:00:00:00:01", used(10, 0, 0), {"10.0.0.1"});
  ASSERT_TRUE(Init("hardware", "all", nullptr));
  ASSERT_TRUE(Make());
  EXPECT_THAT(names(report_.get_child("stats.hardware.modules")), ElementsAre("module1", "module2"));
  EXPECT_EQ(report_.get<std::string>("stats.hardware.modules.module1.IP"), "10.0.0.1");
  EXPECT_EQ(report_.get<std::string>("stats.hardware.modules.module2.IP"), "10.0.0.3");
}

TEST_F(ReportAgent, AllOfNoServersIsAnEmptyReport) {
  ASSERT_TRUE(Init("usage", "all", nullptr));
  EXPECT_TRUE(Make());
  EXPECT_TRUE(report_.empty());
}

TEST_F(ReportAgent, ItemsWithoutAViewNameOfTheFormOrOfAnotherKindAreLeftOut) {
  const std::string filter =
      "<statsconfig>"
      "<active_calls><application>usage</application><xmlviewname>x</xmlviewname></active_calls>"
      "<max_calls><application>duration</application><viewname>d</viewname></max_calls>"
      "<min_duration><viewname>no application</viewname></min_duration>"
      "<max_duration><application>Usage</application><viewname>case</viewname></max_duration>"
      "<avg_duration><application>usage</application><viewname></viewname></avg_duration>"
      "<max_calls_percentage><application>usage</application><viewname>shown</viewname><colour>red</colour>"
      "</max_calls_percentage>"
      "<!-- a comment --></statsconfig>";
  stats_.SetMediaSessionStats(used(10, 1, 1));
  ASSERT_TRUE(Init("usage", nullptr, nullptr, filter));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.usage.summary")), ElementsAre(Pair("shown", "10%")));
}

TEST_F(ReportAgent, ItemNamesAreComparedWithoutCaseAndUnknownOnesAreEmpty) {
  const std::string filter =
      "<statsconfig><ACTIVE_Calls><application>usage</application><viewname>a</viewname></ACTIVE_Calls>"
      "<phase_of_the_moon><application>usage</application><viewname>b</viewname></phase_of_the_moon></statsconfig>";
  stats_.SetMediaSessionStats(used(10, 7, 7));
  ASSERT_TRUE(Init("usage", nullptr, nullptr, filter));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.usage.summary")), ElementsAre(Pair("a", "7"), Pair("b", "")));
}

TEST_F(ReportAgent, OfTwoItemsOfOneNameTheFirstSpeaksForBoth) {
  const std::string filter =
      "<statsconfig><active_calls><application>usage</application><viewname>first</viewname></active_calls>"
      "<active_calls><application>usage</application><viewname>second</viewname></active_calls></statsconfig>";
  ASSERT_TRUE(Init("usage", nullptr, nullptr, filter));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.usage.summary")), ElementsAre(Pair("first", "0")));
}

TEST_F(ReportAgent, ViewNameWithAPointIsAPath) {
  const std::string filter =
      "<statsconfig><active_calls><application>usage</application><viewname>calls.now</viewname></active_calls>"
      "<max_calls><application>usage</application><viewname>calls.ever</viewname></max_calls></statsconfig>";
  stats_.SetMediaSessionStats(used(10, 4, 2));
  ASSERT_TRUE(Init("usage", nullptr, nullptr, filter));
  ASSERT_TRUE(Make());
  EXPECT_THAT(columns(report_.get_child("stats.usage.summary.calls")),
              ElementsAre(Pair("now", "2"), Pair("ever", "4")));
}

TEST_F(ReportAgent, FetchesNothingFromALibraryThatIsNotUp) {
  ASSERT_TRUE(Init("usage", nullptr, nullptr));
  EXPECT_FALSE(agent_.FetchReport(report_, false));
  EXPECT_TRUE(report_.empty());
}

}  // namespace module_test
