// Media servers that stop serving: who is told, how often, how fast, and what can be done meanwhile.
#include "contract_fixture.h"
#include "support/jsr309_manual_clock.h"

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using test_support::EmbeddedOptions;
using test_support::RecordingLostListener;
using testing::Each;
using testing::ElementsAre;

constexpr milliseconds kSoon{20};  // for what must not happen

class LossContract : public test_support::ContractTest {
 protected:
  struct WatchedSession {
    SessionPtr session;
    boost::shared_ptr<RecordingLostListener> listener;
    std::string place;
  };

  static EmbeddedOptions TwoServers() {
    EmbeddedOptions options;
    options.pairs = 32;
    options.heartbeat_ms = "200";
    return options;
  }
  WatchedSession Watch() {
    WatchedSession watched{NewSession(), boost::make_shared<RecordingLostListener>(), ""};
    EXPECT_TRUE(watched.session->AddListener(watched.listener));
    MediaConfig local;
    AddCodec(local);
    const ConnectionPtr connection = NewConnection(watched.session);
    EXPECT_TRUE(connection && connection->GetLocalOffer(local));
    watched.place = local.GetIPAddress();
    return watched;
  }
  std::vector<WatchedSession> WatchMany(int count) {
    std::vector<WatchedSession> sessions;
    for (int i = 0; i < count; ++i) sessions.push_back(Watch());
    return sessions;
  }
  /// How often each session of that place has been told.
  static std::vector<size_t> Told(const std::vector<WatchedSession>& sessions, const std::string& place) {
    std::vector<size_t> told;
    for (const WatchedSession& one : sessions) {
      if (one.place == place) told.push_back(one.listener->Events().size());
    }
    return told;
  }
  static size_t Sum(const std::vector<size_t>& counts) {
    size_t sum = 0;
    for (size_t count : counts) sum += count;
    return sum;
  }
  bool Serves(const std::string& address) {
    const auto session = NewSession();
    if (!session) return false;
    const ConnectionPtr connection = NewConnection(session);
    MediaConfig local;
    AddCodec(local);
    return connection && connection->GetLocalOffer(local) && local.GetIPAddress() == address;
  }
};

TEST_P(LossContract, IsToldToEachSessionOfTheServerOnceAndToNoOther) {
  EmbeddedOptions options = TwoServers();
  options.lost_events_per_second = 1000;
  Start(options, 2);
  const auto sessions = WatchMany(20);
  Lose(0);
  EXPECT_TRUE(Eventually([&] { return Sum(Told(sessions, Address(0))) == 10; }));
  std::this_thread::sleep_for(kSoon);  // for one too many
  EXPECT_THAT(Told(sessions, Address(0)), testing::AllOf(testing::SizeIs(10), Each(1u)));
  EXPECT_THAT(Told(sessions, Address(1)), testing::AllOf(testing::SizeIs(10), Each(0u)));
  BringBack(0);
}

TEST_P(LossContract, IsToldToASessionElsewhereThatCarriesAnEndpointOfTheServer) {
  Start(TwoServers(), 2);
  const auto here = Watch(), there = Watch();
  ASSERT_NE(here.place, there.place);
  const Leg leg = NewLeg(here.session);
  const ConnectionPtr imported(there.session->ImportNetworkConnection(leg.connection));
  ASSERT_TRUE(imported);
  const size_t lost = here.place == Address(0) ? 0 : 1;
  Lose(lost);
  EXPECT_TRUE(here.listener->WaitForEvents(1));
  EXPECT_TRUE(there.listener->WaitForEvents(1));
  EXPECT_FALSE(there.listener->WaitForEvents(2, kSoon));
  BringBack(lost);
}

TEST_P(LossContract, IsToldAtThePaceThatIsConfigured) {
  const auto clock = std::make_shared<test_support::ManualClock>();
  UseFactoryClock(clock);
  EmbeddedOptions options = TwoServers();
  options.lost_events_per_second = 10;
  Start(options, 2);
  const auto sessions = WatchMany(10);
  const auto told = [&] { return Sum(Told(sessions, Address(0))); };
  const auto wait_for = [&](size_t count) {
    Eventually([&] { return told() >= count; });
    std::this_thread::sleep_for(kSoon);  // for one too many
    return told();
  };
  Lose(0);
  EXPECT_EQ(wait_for(1), 1u);
  for (size_t count = 2; count <= 5; ++count) {
    clock->Advance(milliseconds(99));
    EXPECT_EQ(wait_for(count - 1), count - 1);
    clock->Advance(milliseconds(1));
    EXPECT_EQ(wait_for(count), count);
  }
  clock->Advance(std::chrono::seconds(60));
  EXPECT_EQ(wait_for(5), 5u);
  BringBack(0);
}

TEST_P(LossContract, SendsNewSessionsElsewhereAndBackAgainEachTime) {
  Start(TwoServers(), 2);
  for (int round = 0; round < 3; ++round) {
    const auto sessions = WatchMany(4);
    Lose(0);
    ASSERT_TRUE(Eventually([&] { return Sum(Told(sessions, Address(0))) == 2; })) << round;
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(Serves(Address(1)));
    EXPECT_TRUE(factory().IsMediaServerAvailable());
    BringBack(0);
    ASSERT_TRUE(Eventually([&] { return Serves(Address(0)); })) << round;
    EXPECT_THAT(Told(sessions, Address(0)), ElementsAre(1, 1)) << round;
    EXPECT_THAT(Told(sessions, Address(1)), ElementsAre(0, 0)) << round;
  }
}

TEST_P(LossContract, OfEveryServerRefusesSessionsUntilOneIsBack) {
  Start(TwoServers(), 2);
  const auto sessions = WatchMany(2);
  for (const size_t server : {0, 1}) Lose(server);
  for (const auto& one : sessions) ASSERT_TRUE(one.listener->WaitForEvents(1));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_FALSE(NewSession());
  JSR309Stats stats;
  ASSERT_TRUE(factory().GetStats(stats));
  EXPECT_THAT(stats.GetMediaSessionStatsPerMediaServer().GetAllStatsMap(), testing::SizeIs(2));
  EXPECT_EQ(stats.GetMediaSessionStats().GetCurrentMediaSessionCount(), 2u);
  BringBack(1);
  EXPECT_TRUE(Eventually([&] { return Serves(Address(1)); }));
  BringBack(0);
}

INSTANTIATE_TEST_SUITE_P(MediaServers, LossContract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
