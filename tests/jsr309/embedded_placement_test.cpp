// Several embedded media servers: who gets the next call.
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using testing::ElementsAre;

class EmbeddedPlacement : public test_support::EmbeddedTest {
 protected:
  static EmbeddedOptions Servers(std::vector<unsigned> capacities) {
    EmbeddedOptions options;
    options.addresses.clear();
    for (size_t i = 1; i <= capacities.size(); ++i) options.addresses.push_back("127.0.0." + std::to_string(i));
    options.capacities = std::move(capacities);
    return options;
  }
  /// A session with a leg; where it is placed is where the leg's ports are. Empty when there is none.
  std::string Place() {
    sessions_.push_back(NewSession());
    if (!sessions_.back()) return "";
    return NewLeg(sessions_.back()).local.GetIPAddress();
  }
  std::vector<std::string> Places(int count) {
    std::vector<std::string> places;
    for (int i = 0; i < count; ++i) places.push_back(Place());
    return places;
  }
  MediaSessionStats Stats(const std::string& address) {
    JSR309Stats all;
    EXPECT_TRUE(factory().GetStats(all));
    const MediaSessionStats* stats = all.GetMediaSessionStatsPerMediaServer().GetOneStatsByIP(address.c_str());
    return stats != nullptr ? *stats : MediaSessionStats(0);
  }

  std::vector<SessionPtr> sessions_;
};

TEST_F(EmbeddedPlacement, GoesByTheShareOfTheCapacityInUse) {
  Start(Servers({4, 2}));
  EXPECT_THAT(Places(6), ElementsAre("127.0.0.1", "127.0.0.2", "127.0.0.1", "127.0.0.1", "127.0.0.2", "127.0.0.1"));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), "");
  EXPECT_EQ(Stats("127.0.0.1").GetCurrentMediaSessionCount(), 4u);
  EXPECT_EQ(Stats("127.0.0.2").GetCurrentMediaSessionCount(), 2u);
}

TEST_F(EmbeddedPlacement, ReturnsToWhereACallHasEnded) {
  Start(Servers({1, 1}));
  EXPECT_THAT(Places(2), ElementsAre("127.0.0.1", "127.0.0.2"));
  EXPECT_EQ(Place(), "");
  sessions_[1].reset();
  EXPECT_TRUE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), "127.0.0.2");
  EXPECT_EQ(Stats("127.0.0.2").GetMaxMediaSessionCount(), 1u);
}

TEST_F(EmbeddedPlacement, LeavesOutAServerOutOfServiceWhoseCallsGoOn) {
  Start(Servers({10, 10}));
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  ASSERT_STREQ(a.local.GetIPAddress(), "127.0.0.1");
  ASSERT_TRUE(factory().SetMediaServerStatus("127.0.0.1", false));
  EXPECT_THAT(Places(3), ElementsAre("127.0.0.2", "127.0.0.2", "127.0.0.2"));
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_STREQ(NewLeg(session).local.GetIPAddress(), "127.0.0.1");
  ASSERT_TRUE(factory().SetMediaServerStatus("127.0.0.2", false));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(Place(), "");
  ASSERT_TRUE(factory().SetMediaServerStatus("127.0.0.1", true));
  EXPECT_EQ(Place(), "127.0.0.1");
  EXPECT_TRUE(Stats("127.0.0.1").IsInService());
  EXPECT_FALSE(Stats("127.0.0.2").IsInService());
}

TEST_F(EmbeddedPlacement, RefusesACallWhosePortsHaveRunOutAndServesTheNextOne) {
  EmbeddedOptions options = Servers({10, 10});
  options.pairs = 2;
  Start(options);
  std::vector<Leg> legs;
  for (int i = 0; i < 4; ++i) {
    sessions_.push_back(NewSession());
    legs.push_back(NewLeg(sessions_.back()));
  }
  const auto refused = NewSession();
  const ConnectionPtr connection = NewConnection(refused);
  MediaConfig local;
  AddCodec(local);
  EXPECT_FALSE(connection->GetLocalOffer(local));
  for (Leg& leg : legs) leg.connection->Close();
  EXPECT_TRUE(connection->GetLocalOffer(local));
  legs.clear();
  EXPECT_THAT(Places(3), testing::Each(testing::StartsWith("127.0.0.")));
}

}  // namespace
