// The running statistics, and what the factory makes of them.
#include "library_fixture.h"

using namespace kelvaro::jsr309;
using namespace test_support;
using boost::posix_time::microseconds;
using boost::posix_time::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

TEST(StatisticComputers, YieldNothingBeforeTheFirstValue) {
  EXPECT_FALSE(kelvaro::MinComputer<unsigned long>().GetMin());
  EXPECT_FALSE(kelvaro::MaxComputer<unsigned long>().GetMax());
  EXPECT_FALSE(kelvaro::AvgComputer<unsigned long>().GetAvg());
  const kelvaro::MinMaxAvgComputer<boost::posix_time::time_duration> all;
  EXPECT_FALSE(all.GetMin());
  EXPECT_FALSE(all.GetMax());
  EXPECT_FALSE(all.GetAvg());
}

TEST(StatisticComputers, FoldValues) {
  kelvaro::MinMaxAvgComputer<unsigned long> all;
  for (const unsigned long value : {7ul, 2ul, 8ul}) all.AddData(value);
  EXPECT_EQ(*all.GetMin(), 2u);
  EXPECT_EQ(*all.GetMax(), 8u);
  EXPECT_EQ(*all.GetAvg(), 5u);  // 17 / 3
}

TEST(StatisticComputers, StartOver) {
  kelvaro::MaxComputer<unsigned long> highest;
  highest.AddData(9);
  highest.Reset();
  EXPECT_FALSE(highest.GetMax());
  highest.Reset(4);
  EXPECT_EQ(*highest.GetMax(), 4u);
  kelvaro::AvgComputer<unsigned long> mean;
  mean.Reset(4);
  mean.AddData(6);
  EXPECT_EQ(*mean.GetAvg(), 5u);
  kelvaro::MinMaxAvgComputer<unsigned long> all;
  all.AddData(1);
  all.Reset();
  EXPECT_FALSE(all.GetAvg());
}

TEST(StatisticComputers, DivideDurationsToTheMicrosecond) {
  kelvaro::AvgComputer<boost::posix_time::time_duration> mean;
  mean.AddData(microseconds(1));
  mean.AddData(microseconds(2));
  EXPECT_EQ(*mean.GetAvg(), microseconds(1));
}

TEST(StatisticComputers, DivideByAnIntHoweverManyValuesThereWere) {
  using Mean = kelvaro::AvgComputer<unsigned long>;
  EXPECT_EQ(Mean::Divisor(1), 1);
  EXPECT_EQ(Mean::Divisor(2147483647), 2147483647);
  EXPECT_EQ(Mean::Divisor(2147483648), 2147483647);
  EXPECT_EQ(Mean::Divisor(4294967296), 2147483647);  // 0 in 32 bits
}

TEST(MediaSessionStats, BeginsWithZeros) {
  const MediaSessionStats stats(8);
  EXPECT_EQ(stats.GetMediaSessionCapacity(), 8u);
  EXPECT_EQ(stats.GetCurrentMediaSessionCount(), 0u);
  EXPECT_EQ(stats.GetMaxMediaSessionCount(), 0u);
  EXPECT_EQ(stats.GetMinMediaSessionDuration(), seconds(0));
  EXPECT_EQ(stats.GetMaxMediaSessionDuration(), seconds(0));
  EXPECT_EQ(stats.GetAvgMediaSessionDuration(), seconds(0));
}

TEST(MediaSessionStats, RemembersTheHighestCount) {
  MediaSessionStats stats;
  stats.IncreaseMediaSessionCount();
  stats.IncreaseMediaSessionCount();
  stats.DecreaseMediaSessionCount();
  EXPECT_EQ(stats.GetCurrentMediaSessionCount(), 1u);
  EXPECT_EQ(stats.GetMaxMediaSessionCount(), 2u);
}

TEST(MediaSessionStats, DoesNotCountBelowZero) {
  MediaSessionStats stats;
  stats.DecreaseMediaSessionCount();
  EXPECT_EQ(stats.GetCurrentMediaSessionCount(), 0u);
}

class StatsMap : public ::testing::Test {
 protected:
  void SetUp() override {
    map_.AddOneStatsItem("02-00-00-00-00-0a", 5);
    map_.AddMacIPPair("02:00:00:00:00:0A", "2001:db8::5");
    map_.AddMacIPPair("02:00:00:00:00:0A", "10.0.0.5");
  }

  MediaSessionStatsMap map_;
};

TEST_F(StatsMap, HasMacAddressesInUpperCaseWithColonsForKeys) {
  ASSERT_EQ(map_.GetAllStatsMap().size(), 1u);
  EXPECT_EQ(map_.GetAllStatsMap().begin()->first, "02:00:00:00:00:0A");
}

TEST_F(StatsMap, FindsAServerByMacHoweverItIsWritten) {
  for (const char* mac : {"02:00:00:00:00:0A", "02-00-00-00-00-0a"}) {
    ASSERT_NE(map_.GetOneStatsByMAC(mac), nullptr);
    EXPECT_EQ(map_.GetOneStatsByMAC(mac)->GetMediaSessionCapacity(), 5u);
  }
}

TEST_F(StatsMap, FindsAServerByAnyOfItsAddressesHoweverItIsWritten) {
  for (const char* ip : {"10.0.0.5", "2001:db8::5", "2001:DB8:0:0::5", "[2001:db8::5]"}) {
    EXPECT_NE(map_.GetOneStatsByIP(ip), nullptr) << ip;
    EXPECT_STREQ(map_.GetMacByIP(ip), "02:00:00:00:00:0A") << ip;
  }
}

TEST_F(StatsMap, ListsAddressesInUpperCaseInTheirOrder) {
  std::list<std::string> addresses;
  map_.GetIPByMac(&addresses, "02-00-00-00-00-0a");
  EXPECT_THAT(addresses, ElementsAre("2001:DB8::5", "10.0.0.5"));
}

TEST_F(StatsMap, FindsNothingForWhatItDoesNotKnow) {
  std::list<std::string> addresses;
  EXPECT_EQ(map_.GetOneStatsByIP("10.0.0.6"), nullptr);
  EXPECT_EQ(map_.GetOneStatsByIP(nullptr), nullptr);
  EXPECT_EQ(map_.GetOneStatsByMAC("02:00:00:00:00:0B"), nullptr);
  EXPECT_EQ(map_.GetOneStatsByMAC(nullptr), nullptr);
  EXPECT_EQ(map_.GetMacByIP("nonsense"), nullptr);
  map_.GetIPByMac(&addresses, "nonsense");
  map_.GetIPByMac(&addresses, nullptr);
  EXPECT_THAT(addresses, IsEmpty());
}

class FactoryStatistics : public LibraryTest {};

TEST_F(FactoryStatistics, ListEveryServerAliveOrNot) {
  Start(3);
  servers().Lose(1);
  const auto stats = Stats();
  const MediaSessionStatsMap& map = stats.GetMediaSessionStatsPerMediaServer();
  EXPECT_EQ(map.GetAllStatsMap().size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    std::list<std::string> addresses;
    map.GetIPByMac(&addresses, servers().Mac(i).c_str());
    ASSERT_EQ(addresses.size(), 2u);
    EXPECT_EQ(addresses.front(), servers().Address(i));
    EXPECT_EQ(map.GetOneStatsByIP(addresses.back().c_str()), map.GetOneStatsByMAC(servers().Mac(i).c_str()));
  }
}

TEST_F(FactoryStatistics, NameAServerByTheAddressOfItsEndpoints) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  MediaConfig config;
  ASSERT_TRUE(connection->GetLocalOffer(config));
  std::list<std::string> addresses;
  const auto stats = Stats();
  stats.GetMediaSessionStatsPerMediaServer().GetIPByMac(&addresses, servers().Mac().c_str());
  EXPECT_EQ(addresses.front(), config.GetIPAddress());
}

TEST_F(FactoryStatistics, CountSessionsPerServerAndInAll) {
  ScriptedOptions options;
  options.servers = 2;
  options.capacities = {10, 20};
  Start(options);
  auto first = NewSession();
  auto second = NewSession();
  auto third = NewSession();
  first.reset();
  const auto stats = Stats();
  const MediaSessionStats& all = stats.GetMediaSessionStats();
  EXPECT_EQ(all.GetMediaSessionCapacity(), 30u);
  EXPECT_EQ(all.GetCurrentMediaSessionCount(), 2u);
  EXPECT_EQ(all.GetMaxMediaSessionCount(), 3u);
  // placed on: server 0 (0/10), server 1 (0/20), server 1 (1/20 before 1/10)
  const auto& map = stats.GetMediaSessionStatsPerMediaServer();
  EXPECT_EQ(map.GetOneStatsByMAC(servers().Mac(0).c_str())->GetCurrentMediaSessionCount(), 0u);
  EXPECT_EQ(map.GetOneStatsByMAC(servers().Mac(0).c_str())->GetMaxMediaSessionCount(), 1u);
  EXPECT_EQ(map.GetOneStatsByMAC(servers().Mac(1).c_str())->GetCurrentMediaSessionCount(), 2u);
  EXPECT_EQ(map.GetOneStatsByMAC(servers().Mac(1).c_str())->GetMediaSessionCapacity(), 20u);
}

TEST_F(FactoryStatistics, MeasureHowLongSessionsLast) {
  Start();
  auto brief = NewSession();
  auto lasting = NewSession();
  const auto open = NewSession();
  clock().Advance(std::chrono::seconds(10));
  brief.reset();
  clock().Advance(std::chrono::seconds(20));
  lasting.reset();
  const auto stats = Stats();
  const auto* server = stats.GetMediaSessionStatsPerMediaServer().GetOneStatsByMAC(servers().Mac().c_str());
  for (const MediaSessionStats* figures : {&stats.GetMediaSessionStats(), server}) {
    EXPECT_EQ(figures->GetMinMediaSessionDuration(), seconds(10));
    EXPECT_EQ(figures->GetMaxMediaSessionDuration(), seconds(30));
    EXPECT_EQ(figures->GetAvgMediaSessionDuration(), seconds(20));
  }
}

TEST_F(FactoryStatistics, ShowWhichServersAreInService) {
  Start(2);
  const auto in_service = [&](size_t server) {
    const auto stats = Stats();
    return stats.GetMediaSessionStatsPerMediaServer().GetOneStatsByMAC(servers().Mac(server).c_str())->IsInService();
  };
  EXPECT_TRUE(in_service(0));
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(0).c_str(), false));
  EXPECT_FALSE(in_service(0));
  EXPECT_TRUE(in_service(1));
  EXPECT_TRUE(Stats().GetMediaSessionStats().IsInService());
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(1).c_str(), false));
  EXPECT_FALSE(Stats().GetMediaSessionStats().IsInService());
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(0).c_str(), true));
  EXPECT_TRUE(in_service(0));
}

TEST_F(FactoryStatistics, TakeAnyAddressOfAServerForIt) {
  Start();
  EXPECT_TRUE(factory().SetMediaServerStatus("127.0.2.1", false));
  EXPECT_FALSE(Stats().GetMediaSessionStats().IsInService());
  EXPECT_FALSE(factory().SetMediaServerStatus("127.0.3.1", false));
  EXPECT_FALSE(factory().SetMediaServerStatus(nullptr, false));
}

}  // namespace
