// Where sessions are placed, and when there is no place.
#include "library_fixture.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::ElementsAre;

namespace {

class Placement : public LibraryTest {};

TEST_F(Placement, GivesTheCallerASessionAndConnectionsOfItsOwn) {
  Start();
  const std::unique_ptr<MediaSession> session(factory().CreateMediaSession());
  ASSERT_NE(session, nullptr);
  const std::unique_ptr<NetworkConnection> connection(session->CreateNetworkConnection(nullptr));
  ASSERT_NE(connection, nullptr);
  EXPECT_THAT(servers().Operations(),
              ElementsAre(Operation::kOpen, Operation::kCreateSession, Operation::kCreateEndpoint));
}

TEST_F(Placement, SpreadsSessionsOverEqualServers) {
  Start(3);
  std::vector<MediaSessionSharedPtr> sessions;
  std::vector<size_t> places;
  for (int i = 0; i < 6; ++i) {
    sessions.push_back(NewSession());
    places.push_back(LastPlace());
  }
  EXPECT_THAT(places, ElementsAre(0, 1, 2, 0, 1, 2));
}

TEST_F(Placement, PrefersTheServerWithTheLowestShareOfItsCapacityInUse) {
  ScriptedOptions options;
  options.servers = 2;
  options.capacities = {4, 2};
  Start(options);
  std::vector<MediaSessionSharedPtr> sessions;
  std::vector<size_t> places;
  for (int i = 0; i < 6; ++i) {
    sessions.push_back(NewSession());
    places.push_back(LastPlace());
  }
  // loads before each: 0/4 0/2, 1/4 0/2, 1/4 1/2, 2/4 1/2, 3/4 1/2, 3/4 2/2
  EXPECT_THAT(places, ElementsAre(0, 1, 0, 0, 1, 0));
}

TEST_F(Placement, ReturnsToAServerWhoseSessionsHaveEnded) {
  Start(2);
  auto first = NewSession();
  const auto second = NewSession();
  first.reset();
  const auto third = NewSession();
  EXPECT_EQ(LastPlace(), 0u);
}

TEST_F(Placement, GivesNoSessionBeyondTheCapacity) {
  Start(1, 2);
  const auto first = NewSession();
  auto second = NewSession();
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(NewSession(), nullptr);
  second.reset();
  EXPECT_TRUE(factory().IsMediaServerAvailable());
  EXPECT_NE(NewSession(), nullptr);
}

TEST_F(Placement, NeverExceedsTheCapacityWhenManyAskAtOnce) {
  constexpr size_t kCapacity = 5, kAsking = 20;
  ScriptedOptions options;
  options.capacity = kCapacity;
  options.request_timeout_ms = 60000;
  Start(options);
  servers().Hold(Operation::kCreateSession);
  std::atomic<size_t> answered{0};
  std::vector<MediaSessionSharedPtr> sessions(kAsking);
  std::vector<std::thread> threads;
  for (auto& session : sessions) {
    threads.emplace_back([&] {
      session = NewSession();
      ++answered;
    });
  }
  // Those that found the places taken do not wait for the server.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (answered < kAsking - kCapacity && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(answered, kAsking - kCapacity);
  servers().Resume(Operation::kCreateSession);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(servers().OpenSessions(), kCapacity);
  EXPECT_EQ(servers().Calls(Operation::kCreateSession).size(), kCapacity);
}

TEST_F(Placement, LeavesOutServersOutOfService) {
  Start(2);
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(0).c_str(), false));
  const auto first = NewSession();
  const auto second = NewSession();
  EXPECT_EQ(servers().Calls(Operation::kCreateSession)[0].server, 1u);
  EXPECT_EQ(servers().Calls(Operation::kCreateSession)[1].server, 1u);
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(1).c_str(), false));
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(NewSession(), nullptr);
  EXPECT_TRUE(factory().SetMediaServerStatus(servers().Address(1).c_str(), true));
  EXPECT_TRUE(factory().IsMediaServerAvailable());
}

TEST_F(Placement, KeepsSessionsOfAServerThatGoesOutOfService) {
  Start();
  const auto session = NewSession();
  factory().SetMediaServerStatus(servers().Address().c_str(), false);
  EXPECT_NE(NewConnection(session), nullptr);
}

TEST_F(Placement, LeavesOutServersThatAreNotAlive) {
  Start(2);
  servers().Lose(0, false);
  const auto session = NewSession();
  EXPECT_EQ(LastPlace(), 1u);
  servers().Lose(1, false);
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(NewSession(), nullptr);
}

TEST_F(Placement, TriesTheNextServerWhenOneRefuses) {
  Start(2);
  servers().Fail(Operation::kCreateSession);
  EXPECT_NE(NewSession(), nullptr);
  EXPECT_EQ(LastPlace(), 1u);
}

TEST_F(Placement, GivesNothingWhenEveryServerRefuses) {
  Start(2);
  servers().Fail(Operation::kCreateSession, ScriptedMediaServers::kAlways);
  EXPECT_EQ(NewSession(), nullptr);
  EXPECT_EQ(servers().Calls(Operation::kCreateSession).size(), 2u);
  EXPECT_EQ(Stats().GetMediaSessionStats().GetCurrentMediaSessionCount(), 0u);
  EXPECT_TRUE(factory().IsMediaServerAvailable());
}

TEST_F(Placement, GivesNoConnectionWhenTheServerRefuses) {
  Start();
  const auto session = NewSession();
  servers().Fail(Operation::kCreateEndpoint);
  EXPECT_EQ(session->CreateNetworkConnection(nullptr), nullptr);
  EXPECT_NE(NewConnection(session), nullptr);
}

TEST_F(Placement, OffersNothingBeforeInit) {
  MSControlFactory fresh;
  EXPECT_FALSE(fresh.IsMediaServerAvailable());
  EXPECT_EQ(fresh.CreateMediaSession(), nullptr);
  EXPECT_FALSE(fresh.SetMediaServerStatus("127.0.1.1", true));
  JSR309Stats stats;
  EXPECT_FALSE(fresh.GetStats(stats));
  fresh.Stop();
}

}  // namespace
