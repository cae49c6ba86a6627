// Embedded media servers that stop serving: who is told, how often, how fast, and what can be done meanwhile.
#include "embedded/embedded_server.h"
#include "embedded_fixture.h"
#include "support/jsr309_manual_clock.h"

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using test_support::EmbeddedOptions;
using test_support::RecordingLostListener;
using testing::Each;
using testing::ElementsAre;

constexpr milliseconds kSoon{20};  // for what must not happen

class EmbeddedLoss : public test_support::EmbeddedTest {
 protected:
  struct WatchedSession {
    SessionPtr session;
    boost::shared_ptr<RecordingLostListener> listener;
    std::string place;
  };

  static EmbeddedOptions TwoServers() {
    EmbeddedOptions options;
    options.addresses = {"127.0.0.1", "127.0.0.2"};
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
  template <typename Condition>
  static bool Eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + test_support::kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
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

TEST_F(EmbeddedLoss, IsToldToEachSessionOfTheServerOnceAndToNoOther) {
  EmbeddedOptions options = TwoServers();
  options.lost_events_per_second = 1000;
  Start(options);
  const auto sessions = WatchMany(20);
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 1, true));  // one of its two workers is enough
  EXPECT_TRUE(Eventually([&] { return Sum(Told(sessions, "127.0.0.1")) == 10; }));
  std::this_thread::sleep_for(kSoon);  // for one too many
  EXPECT_THAT(Told(sessions, "127.0.0.1"), testing::AllOf(testing::SizeIs(10), Each(1u)));
  EXPECT_THAT(Told(sessions, "127.0.0.2"), testing::AllOf(testing::SizeIs(10), Each(0u)));
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 1, false));
}

TEST_F(EmbeddedLoss, IsToldToASessionElsewhereThatCarriesAnEndpointOfTheServer) {
  Start(TwoServers());
  const auto here = Watch(), there = Watch();
  ASSERT_NE(here.place, there.place);
  const Leg leg = NewLeg(here.session);
  const ConnectionPtr imported(there.session->ImportNetworkConnection(leg.connection));
  ASSERT_TRUE(imported);
  ASSERT_TRUE(StallEmbeddedServer(here.place, 0, true));
  EXPECT_TRUE(here.listener->WaitForEvents(1));
  EXPECT_TRUE(there.listener->WaitForEvents(1));
  EXPECT_FALSE(there.listener->WaitForEvents(2, kSoon));
  ASSERT_TRUE(StallEmbeddedServer(here.place, 0, false));
}

TEST_F(EmbeddedLoss, IsToldAtThePaceThatIsConfigured) {
  const auto clock = std::make_shared<test_support::ManualClock>();
  UseFactoryClock(clock);
  EmbeddedOptions options = TwoServers();
  options.lost_events_per_second = 10;
  Start(options);
  const auto sessions = WatchMany(10);
  const auto told = [&] { return Sum(Told(sessions, "127.0.0.1")); };
  const auto wait_for = [&](size_t count) {
    Eventually([&] { return told() >= count; });
    std::this_thread::sleep_for(kSoon);  // for one too many
    return told();
  };
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, true));
  EXPECT_EQ(wait_for(1), 1u);
  for (size_t count = 2; count <= 5; ++count) {
    clock->Advance(milliseconds(99));
    EXPECT_EQ(wait_for(count - 1), count - 1);
    clock->Advance(milliseconds(1));
    EXPECT_EQ(wait_for(count), count);
  }
  clock->Advance(std::chrono::seconds(60));
  EXPECT_EQ(wait_for(5), 5u);
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, false));
}

TEST_F(EmbeddedLoss, SendsNewSessionsElsewhereAndBackAgainEachTime) {
  Start(TwoServers());
  for (int round = 0; round < 3; ++round) {
    const auto sessions = WatchMany(4);
    ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, true));
    ASSERT_TRUE(Eventually([&] { return Sum(Told(sessions, "127.0.0.1")) == 2; })) << round;
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(Serves("127.0.0.2"));
    EXPECT_TRUE(factory().IsMediaServerAvailable());
    ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, false));
    ASSERT_TRUE(Eventually([&] { return Serves("127.0.0.1"); })) << round;
    EXPECT_THAT(Told(sessions, "127.0.0.1"), ElementsAre(1, 1)) << round;
    EXPECT_THAT(Told(sessions, "127.0.0.2"), ElementsAre(0, 0)) << round;
  }
}

TEST_F(EmbeddedLoss, OfEveryServerRefusesSessionsUntilOneIsBack) {
  Start(TwoServers());
  const auto sessions = WatchMany(2);
  for (const char* address : {"127.0.0.1", "127.0.0.2"}) ASSERT_TRUE(StallEmbeddedServer(address, 0, true));
  for (const auto& one : sessions) ASSERT_TRUE(one.listener->WaitForEvents(1));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_FALSE(NewSession());
  JSR309Stats stats;
  ASSERT_TRUE(factory().GetStats(stats));
  EXPECT_THAT(stats.GetMediaSessionStatsPerMediaServer().GetAllStatsMap(), testing::SizeIs(2));
  EXPECT_EQ(stats.GetMediaSessionStats().GetCurrentMediaSessionCount(), 2u);
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.2", 0, false));
  EXPECT_TRUE(Eventually([&] { return Serves("127.0.0.2"); }));
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, false));
}

TEST_F(EmbeddedLoss, HoldsUpNoCallForLongerThanARequestMayTakeAndNoDestructorAtAll) {
  EmbeddedOptions options = TwoServers();
  options.heartbeat_ms = "600000";  // not noticed
  options.threads = 1;
  options.request_timeout_ms = 1000;
  Start(options);
  auto here = NewSession();
  const auto there = NewSession();
  Leg a = NewLeg(here), b = NewLeg(here);
  ASSERT_TRUE(StallEmbeddedServer(a.local.GetIPAddress(), 0, true));
  const auto took = [](auto action) {
    const auto begun = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - begun;
  };
  MediaConfig local;
  AddCodec(local);
  constexpr milliseconds kLong{3000}, kAtOnce{900};
  EXPECT_LT(took([&] { EXPECT_FALSE(a.connection->GetLocalOffer(local)); }), kLong);
  EXPECT_LT(took([&] { EXPECT_FALSE(Join(a, b)); }), kLong);
  ConnectionPtr imported;
  EXPECT_LT(took([&] { imported.reset(there->ImportNetworkConnection(a.connection)); }), kAtOnce);
  EXPECT_LT(took([&] { a.connection.reset(), imported.reset(), b.connection.reset(), here.reset(); }), kAtOnce);
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, false));
  for (const Leg* leg : {&a, &b}) {
    EXPECT_TRUE(Eventually([&] { return test_support::udp_port_is_free(leg->local.GetRtpPort()); }));
  }
}

}  // namespace
