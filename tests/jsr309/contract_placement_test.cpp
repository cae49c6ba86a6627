// Several media servers: who gets the next call.
#include "contract_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using testing::ElementsAre;

constexpr int kNowhere = -1;

class PlacementContract : public test_support::ContractTest {
 protected:
  void StartServers(std::vector<unsigned> capacities) {
    EmbeddedOptions options;
    const auto servers = static_cast<unsigned>(capacities.size());
    options.capacities = std::move(capacities);
    Start(options, servers);
  }
  /// A session with a leg; where it is placed is where the leg's ports are.
  int Place() {
    sessions_.push_back(NewSession());
    return sessions_.back() ? PlaceOf(NewLeg(sessions_.back())) : kNowhere;
  }
  int PlaceOf(const Leg& leg) const { return leg.local.GetIPAddress() == Address(0) ? 0 : 1; }
  std::vector<int> Places(int count) {
    std::vector<int> places;
    for (int i = 0; i < count; ++i) places.push_back(Place());
    return places;
  }
  MediaSessionStats Stats(size_t server) {
    JSR309Stats all;
    EXPECT_TRUE(factory().GetStats(all));
    const MediaSessionStats* stats = all.GetMediaSessionStatsPerMediaServer().GetOneStatsByIP(Address(server).c_str());
    return stats != nullptr ? *stats : MediaSessionStats(0);
  }

  std::vector<SessionPtr> sessions_;
};

TEST_P(PlacementContract, GoesByTheShareOfTheCapacityInUse) {
  StartServers({4, 2});
  EXPECT_THAT(Places(6), ElementsAre(0, 1, 0, 0, 1, 0));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), kNowhere);
  EXPECT_EQ(Stats(0).GetCurrentMediaSessionCount(), 4u);
  EXPECT_EQ(Stats(1).GetCurrentMediaSessionCount(), 2u);
}

TEST_P(PlacementContract, ReturnsToWhereACallHasEnded) {
  StartServers({1, 1});
  EXPECT_THAT(Places(2), ElementsAre(0, 1));
  EXPECT_EQ(Place(), kNowhere);
  sessions_[1].reset();
  EXPECT_TRUE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), 1);
  EXPECT_EQ(Stats(1).GetMaxMediaSessionCount(), 1u);
}

TEST_P(PlacementContract, LeavesOutAServerOutOfServiceWhoseCallsGoOn) {
  StartServers({10, 10});
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  ASSERT_EQ(PlaceOf(a), 0);
  ASSERT_TRUE(factory().SetMediaServerStatus(Address(0).c_str(), false));
  EXPECT_THAT(Places(3), ElementsAre(1, 1, 1));
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_EQ(PlaceOf(NewLeg(session)), 0);
  ASSERT_TRUE(factory().SetMediaServerStatus(Address(1).c_str(), false));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), kNowhere);
  ASSERT_TRUE(factory().SetMediaServerStatus(Address(0).c_str(), true));
  EXPECT_EQ(Place(), 0);
  EXPECT_TRUE(Stats(0).IsInService());
  EXPECT_FALSE(Stats(1).IsInService());
}

INSTANTIATE_TEST_SUITE_P(MediaServers, PlacementContract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
