// Embedded media servers as servers: configuration, ports, loss, imports between them, shutdown.
#include "embedded/embedded_server.h"
#include "embedded_fixture.h"
#include "support/process_inspection.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using test_support::RecordingLostListener;
using testing::HasSubstr;

class EmbeddedServers : public test_support::EmbeddedTest {
 protected:
  /// The one ERROR of an Init that fails.
  std::string InitError(const EmbeddedOptions& options) {
    EXPECT_FALSE(Init(options));
    const auto errors = logger().Messages(kelvaro::ERROR_LOG_LEVEL);
    EXPECT_EQ(errors.size(), 1u);
    return errors.empty() ? "" : errors.back();
  }
};

TEST_F(EmbeddedServers, AHeartbeatThatIsNoNumberIsRefusedByItsValue) {
  EmbeddedOptions options;
  options.heartbeat_ms = "soon";
  const std::string error = InitError(options);
  EXPECT_THAT(error, HasSubstr(path()));
  EXPECT_THAT(error, HasSubstr("heartbeat_ms"));
  EXPECT_THAT(error, HasSubstr("\"soon\""));
}

TEST_F(EmbeddedServers, AHeartbeatOutOfRangeIsRefused) {
  EmbeddedOptions options;
  options.heartbeat_ms = "19";
  EXPECT_THAT(InitError(options), HasSubstr("not a number of milliseconds from 20 to 600000"));
}

TEST_F(EmbeddedServers, ASettingThatIsNotKnownIsRefused) {
  EmbeddedOptions options;
  options.extra = "<colour>blue</colour>";
  const std::string error = InitError(options);
  EXPECT_THAT(error, HasSubstr("colour"));
  EXPECT_THAT(error, HasSubstr("not known to the embedded media server"));
}

TEST_F(EmbeddedServers, AnAddressThatIsNotOursIsRefusedAndNothingStays) {
  const auto before = test_support::inspect_process(getpid());
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "192.0.2.1"};
  EXPECT_THAT(InitError(options), HasSubstr("address '192.0.2.1' cannot be bound"));
  DestroyFactory();
  EXPECT_EQ(test_support::describe_difference(before, test_support::inspect_process(getpid())), "");
}

TEST_F(EmbeddedServers, StatisticsAreOfTheirSessions) {
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  options.extra = "<capacity>4</capacity>";
  Start(options);
  auto first = NewSession();
  const auto second = NewSession();
  const auto third = NewSession();
  first.reset();
  ASSERT_TRUE(factory().SetMediaServerStatus("127.0.0.2", false));
  JSR309Stats stats;
  ASSERT_TRUE(factory().GetStats(stats));
  const MediaSessionStatsMap& servers = stats.GetMediaSessionStatsPerMediaServer();
  EXPECT_STREQ(servers.GetMacByIP("127.0.0.1"), "02:00:00:00:00:01");
  EXPECT_STREQ(servers.GetMacByIP("127.0.0.2"), "02:00:00:00:00:02");
  const MediaSessionStats* one = servers.GetOneStatsByIP("127.0.0.1");
  const MediaSessionStats* other = servers.GetOneStatsByMAC("02:00:00:00:00:02");
  ASSERT_TRUE(one != nullptr && other != nullptr);
  EXPECT_EQ(one->GetMediaSessionCapacity(), 4u);
  EXPECT_EQ(one->GetCurrentMediaSessionCount(), 1u);
  EXPECT_EQ(one->GetMaxMediaSessionCount(), 2u);
  EXPECT_TRUE(one->IsInService());
  EXPECT_GT(one->GetMaxMediaSessionDuration().total_microseconds(), 0);
  EXPECT_EQ(other->GetCurrentMediaSessionCount(), 1u);
  EXPECT_EQ(other->GetMaxMediaSessionCount(), 1u);
  EXPECT_FALSE(other->IsInService());
  EXPECT_EQ(other->GetMaxMediaSessionDuration().total_microseconds(), 0) << "its session has not ended";
  const MediaSessionStats& sum = stats.GetMediaSessionStats();
  EXPECT_EQ(sum.GetMediaSessionCapacity(), 8u);
  EXPECT_EQ(sum.GetCurrentMediaSessionCount(), 2u);
  EXPECT_EQ(sum.GetMaxMediaSessionCount(), 3u);
  EXPECT_EQ(sum.GetAvgMediaSessionDuration(), one->GetAvgMediaSessionDuration());
}

TEST_F(EmbeddedServers, PortsRunOutCleanlyAndComeBack) {
  EmbeddedOptions options;
  options.pairs = 2;
  Start(options);
  const auto session = NewSession();
  Leg a = NewLeg(session), b = NewLeg(session);
  const ConnectionPtr refused = NewConnection(session);
  MediaConfig local;
  AddCodec(local);
  EXPECT_FALSE(refused->GetLocalOffer(local));
  EXPECT_EQ(local.GetRtpPort(), 0);
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL, "no free RTP port pair in " + std::to_string(port_min())));
  a.connection->Close();
  EXPECT_TRUE(test_support::udp_port_is_free(a.local.GetRtpPort()));
  EXPECT_TRUE(refused->GetLocalOffer(local));
  EXPECT_EQ(local.GetRtpPort(), a.local.GetRtpPort());
  EXPECT_TRUE(logger().Has(kelvaro::INFO_LOG_LEVEL, "serve 2 endpoints: fewer than 1000 sessions of two need"));
}

TEST_F(EmbeddedServers, AnImportedConnectionIsJoinedAcrossServersAtOnce) {
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  options.pairs = 16;
  Start(options);
  for (int round = 0; round < 20; ++round) {
    const auto here = NewSession(), there = NewSession();
    const Leg a = NewLeg(here);
    const Leg b = NewLeg(there);
    EXPECT_STRNE(a.local.GetIPAddress(), b.local.GetIPAddress());
    EXPECT_FALSE(Join(a, b));
    const ConnectionPtr imported(here->ImportNetworkConnection(b.connection));
    ASSERT_TRUE(imported);
    // Through the old handle, as an application does that kept it.
    ASSERT_TRUE(Join(a, b)) << round;
    EXPECT_TRUE(Flows(a, b, 1));
    EXPECT_TRUE(Flows(b, a, 2));
    MediaConfig again;
    AddCodec(again);
    ASSERT_TRUE(imported->GetLocalOffer(again));
    EXPECT_STREQ(again.GetIPAddress(), b.local.GetIPAddress());
    EXPECT_EQ(again.GetRtpPort(), b.local.GetRtpPort());
    EXPECT_TRUE(a.connection->Unjoin(imported));
  }
}

TEST_F(EmbeddedServers, TheEndOfTheOldSessionDoesNotTouchAnImportedConnection) {
  Start();
  const auto here = NewSession();
  auto there = NewSession();
  const Leg a = NewLeg(here), b = NewLeg(there);
  const ConnectionPtr imported(here->ImportNetworkConnection(b.connection));
  ASSERT_TRUE(imported);
  there.reset();
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
}

TEST_F(EmbeddedServers, AStuckWorkerLosesItsServerAndItComesBack) {
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  options.threads = 1;
  options.heartbeat_ms = "200";
  options.request_timeout_ms = 300;
  Start(options);
  const auto session = NewSession(), elsewhere = NewSession();
  const Leg leg = NewLeg(session), safe = NewLeg(elsewhere);
  const auto lost = boost::make_shared<RecordingLostListener>(), kept = boost::make_shared<RecordingLostListener>();
  ASSERT_TRUE(session->AddListener(lost));
  ASSERT_TRUE(elsewhere->AddListener(kept));
  const std::string address = leg.local.GetIPAddress();
  ASSERT_TRUE(StallEmbeddedServer(address, 0, true));
  ASSERT_TRUE(lost->WaitForEvents(1));
  MediaConfig local;
  EXPECT_FALSE(leg.connection->GetLocalOffer(local));
  // What is made now is made on the other server.
  const Leg fresh = NewLeg(NewSession());
  EXPECT_STREQ(fresh.local.GetIPAddress(), safe.local.GetIPAddress());
  ASSERT_TRUE(StallEmbeddedServer(address, 0, false));
  // Back, it takes sessions again; what was lost stays lost.
  bool back = false;
  for (int i = 0; !back && i < 500; ++i) {
    const auto again = NewSession();
    back = again && std::string(NewLeg(again).local.GetIPAddress()) == address;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(back);
  EXPECT_FALSE(leg.connection->GetLocalOffer(local));
  EXPECT_EQ(lost->Events().size(), 1u);
  EXPECT_EQ(kept->Events().size(), 0u);
  EXPECT_FALSE(StallEmbeddedServer("127.0.0.9", 0, true));
  EXPECT_FALSE(StallEmbeddedServer(address, 7, true));
}

TEST_F(EmbeddedServers, StopGivesEverythingBackInTimeAndHandlesMayOutliveIt) {
  const auto before = test_support::inspect_process(getpid());
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  options.request_timeout_ms = 1000;
  Start(options);
  const auto here = NewSession(), there = NewSession();
  std::vector<std::uint16_t> ports;
  {
    const Leg a = NewLeg(here), b = NewLeg(here), c = NewLeg(there);
    ASSERT_TRUE(Join(a, b));
    const ConnectionPtr imported(here->ImportNetworkConnection(c.connection));
    ASSERT_TRUE(Join(a, c));
    ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, true));
    const auto begun = std::chrono::steady_clock::now();
    factory().Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
    MediaConfig local;
    for (const Leg* leg : {&a, &b, &c}) {
      EXPECT_FALSE(leg->connection->GetLocalOffer(local));
      EXPECT_FALSE(Join(*leg, a));
      leg->connection->Close();
    }
    EXPECT_FALSE(StallEmbeddedServer("127.0.0.1", 0, false) && factory().IsMediaServerAvailable());
    EXPECT_FALSE(here->CreateNetworkConnection(nullptr));
    DestroyFactory();
    EXPECT_FALSE(c.connection->GetLocalOffer(local));
  }
  EXPECT_EQ(test_support::describe_difference(before, test_support::inspect_process(getpid())), "");
}

}  // namespace
