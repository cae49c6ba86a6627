// Ends: of endpoints, sessions, servers, and of workers that get stuck.
#include "engine_fixture.h"
#include "heartbeat.h"

#include <future>

namespace media_engine_test {
namespace {

class Lifetime : public EngineTest {};

TEST_F(Lifetime, ClosingAgainIsNoErrorAndEverythingElseIsRefused) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  Leg a = NewCallLeg(*session);
  const Leg b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(a.endpoint->closed());
  EXPECT_FALSE(a.endpoint->DescribeLocal(LocalFor(Pcmu()), a.local, kLimit).ok);
  EXPECT_FALSE(a.endpoint->DescribeRemote(a.far_end->Description(Pcmu()), kLimit).ok);
  EXPECT_FALSE(a.endpoint->DetectRemoteAddress(kLimit).ok);
  EXPECT_FALSE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  EXPECT_FALSE(b.endpoint->Join(Direction::kDuplex, *a.endpoint, kLimit).ok);
  EXPECT_FALSE(b.endpoint->Unjoin(*a.endpoint, kLimit).ok);
  EXPECT_FALSE(session->Import(*a.endpoint).ok);
  EndpointStatistics statistics;
  EXPECT_FALSE(a.endpoint->ReadStatistics(statistics, kLimit).ok);
  // The one it was joined with goes on.
  b.SendRun(1, 1);
  EXPECT_TRUE(Eventually([&] { return b.Statistics().not_joined == 1; }));
}

TEST_F(Lifetime, TheLastReferenceAndTheSessionsEndCloseWithoutWaiting) {
  const auto server = Open(Config());
  auto session = NewSession(*server);
  Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  EXPECT_EQ(server->Usage().endpoints, 2u);
  a.endpoint.reset();
  EXPECT_TRUE(Eventually([&] { return server->Usage().port_pairs == 1; }));
  session.reset();
  EXPECT_TRUE(Eventually([&] { return b.endpoint->closed() && server->Usage().port_pairs == 0; }));
  EXPECT_EQ(server->Usage().sessions, 0u);
}

TEST_F(Lifetime, AnEndedSessionGivesNoEndpoints) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  session->Release();
  Outcome outcome;
  EXPECT_FALSE(session->CreateEndpoint(nullptr, kLimit, outcome));
  EXPECT_NE(outcome.reason.find("has ended"), std::string::npos) << outcome.reason;
}

TEST_F(Lifetime, ShutdownGivesEverythingBackAndHandlesMayOutliveIt) {
  const std::size_t descriptors = OpenDescriptors();
  const std::size_t threads = RunningThreads();
  std::vector<Leg> legs;
  std::vector<std::shared_ptr<Session>> sessions;
  auto server = Open(Config(32));
  EXPECT_EQ(RunningThreads(), threads + 3);  // two workers and the heartbeat
  for (int i = 0; i < 16; ++i) {
    sessions.push_back(NewSession(*server));
    legs.push_back(NewCallLeg(*sessions.back()));
    legs.push_back(NewCallLeg(*sessions.back()));
    ASSERT_TRUE(legs[legs.size() - 2].endpoint->Join(Direction::kDuplex, *legs.back().endpoint, kLimit).ok);
  }
  const std::size_t far_ends = 2 * legs.size();  // each side of a leg has a pair of sockets
  EXPECT_GE(OpenDescriptors(), descriptors + 2 * legs.size() + far_ends);
  server->Shutdown();
  EXPECT_EQ(RunningThreads(), threads);
  EXPECT_EQ(server->Usage().port_pairs, 0u);
  EXPECT_FALSE(server->IsAlive());
  Outcome outcome;
  EXPECT_FALSE(server->CreateSession(outcome));
  EXPECT_EQ(outcome.reason, "media server 127.0.0.1 has been shut down");
  server.reset();
  for (Leg& leg : legs) {
    EXPECT_TRUE(leg.endpoint->closed());
    EXPECT_FALSE(leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit).ok);
    EXPECT_TRUE(leg.endpoint->Close(kLimit).ok);
  }
  EXPECT_FALSE(sessions[0]->CreateEndpoint(nullptr, kLimit, outcome));
  EXPECT_EQ(OpenDescriptors(), descriptors + far_ends);
  legs.clear();
  sessions.clear();
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(Lifetime, ShutdownIsBoundedEvenWithAStuckWorker) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session);
  server->StallWorker(0, true);
  server->StallWorker(1, true);
  const auto begun = std::chrono::steady_clock::now();
  server->Shutdown();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, seconds{1});
  EXPECT_TRUE(a.endpoint->closed());
}

TEST_F(Lifetime, ARefusedServerLeavesNothingBehind) {
  const std::size_t descriptors = OpenDescriptors();
  const std::size_t threads = RunningThreads();
  ServerConfig config = Config();
  config.addresses = {"192.0.2.1"};
  Outcome outcome;
  EXPECT_FALSE(engine_.OpenServer(config, nullptr, outcome));
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(RunningThreads(), threads);
}

TEST_F(Lifetime, RequestsThatRaceWithCloseAreAnswered) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  for (int round = 0; round < 50; ++round) {
    const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
    std::vector<std::future<void>> threads;
    for (int t = 0; t < 3; ++t) {
      threads.push_back(std::async(std::launch::async, [&a, &b] {
        LocalDescription local;
        while (!a.endpoint->closed()) {
          (void)a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit);
          (void)a.endpoint->DescribeLocal(LocalFor(Pcmu()), local, kLimit);
          (void)b.endpoint->Unjoin(*a.endpoint, kLimit);
        }
      }));
    }
    a.SendRun(1, 10);
    EXPECT_TRUE(a.endpoint->Close(kLimit).ok);
    EXPECT_TRUE(a.endpoint->Close(kLimit).ok);
    for (auto& thread : threads) thread.get();
    EXPECT_TRUE(b.endpoint->Close(kLimit).ok);
  }
  EXPECT_EQ(server->Usage().endpoints, 0u);
  EXPECT_EQ(server->Usage().port_pairs, 0u);
}

TEST_F(Lifetime, RequestsThatRaceWithShutdownAreAnswered) {
  for (int round = 0; round < 20; ++round) {
    const auto server = Open(Config());
    std::vector<std::future<void>> threads;
    for (int t = 0; t < 3; ++t) {
      threads.push_back(std::async(std::launch::async, [&] {
        Outcome outcome = Outcome::Done();
        while (outcome) {
          const auto session = server->CreateSession(outcome);
          if (!session) return;
          const auto endpoint = session->CreateEndpoint(nullptr, kLimit, outcome);
          LocalDescription local;
          if (endpoint) outcome = endpoint->DescribeLocal(LocalFor(Pcmu()), local, kLimit);
        }
      }));
    }
    std::this_thread::sleep_for(milliseconds{2});
    server->Shutdown();
    for (auto& thread : threads) thread.get();
    EXPECT_EQ(server->Usage().port_pairs, 0u);
  }
}

TEST_F(Lifetime, AStuckWorkerIsReportedLostAndThenBack) {
  RecordedEvents events;
  ServerConfig config = Config();
  config.heartbeat = milliseconds{200};
  const auto server = Open(config, &events);
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session);
  EXPECT_TRUE(server->IsAlive());
  server->StallWorker(1, true);
  EXPECT_EQ(events.Wait(1), std::vector<std::string>{"lost"});
  EXPECT_FALSE(server->IsAlive());
  Outcome outcome;
  EXPECT_FALSE(server->CreateSession(outcome));
  EXPECT_EQ(outcome.reason, "media server 127.0.0.1 is lost");
  EXPECT_TRUE(log_.Has(LogLevel::kError, "is lost: a worker has not served for 200 ms"));
  server->StallWorker(1, false);
  EXPECT_EQ(events.Wait(2), (std::vector<std::string>{"lost", "back"}));
  EXPECT_TRUE(server->IsAlive());
  EXPECT_TRUE(server->CreateSession(outcome));
}

using Change = HeartbeatWatch::Change;

TEST(HeartbeatWatch, ReportsEachLossAndReturnOnce) {
  HeartbeatWatch watch(milliseconds{400}, milliseconds{100}, 2);
  uint64_t beat = 0;
  EXPECT_EQ(watch.Check({++beat, beat}, milliseconds{100}), Change::kNone);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(watch.Check({1, ++beat}, milliseconds{100}), Change::kNone);
  EXPECT_EQ(watch.Check({1, ++beat}, milliseconds{100}), Change::kLost);
  EXPECT_EQ(watch.Check({1, ++beat}, milliseconds{100}), Change::kNone);
  EXPECT_EQ(watch.Check({2, ++beat}, milliseconds{100}), Change::kBack);
  EXPECT_EQ(watch.Check({3, ++beat}, milliseconds{100}), Change::kNone);
}

TEST(HeartbeatWatch, DoesNotHoldAPauseOfTheWholeProcessAgainstTheWorkers) {
  HeartbeatWatch watch(milliseconds{400}, milliseconds{100}, 1);
  EXPECT_EQ(watch.Check({5}, milliseconds{100}), Change::kNone);
  EXPECT_EQ(watch.Check({5}, seconds{3600}), Change::kNone);
  EXPECT_EQ(watch.Check({6}, milliseconds{100}), Change::kNone);
}

}  // namespace
}  // namespace media_engine_test
