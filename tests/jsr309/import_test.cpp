// Handles on endpoints, and endpoints that change their session.
#include "library_fixture.h"

#include <future>

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Import : public LibraryTest {
 protected:
  // A call of two legs, and the session that is going to adopt one.
  void Begin(size_t server_count = 1) {
    ScriptedOptions options;
    options.servers = server_count;
    Begin(options);
  }

  void Begin(const ScriptedOptions& options) {
    Start(options);
    from_ = NewSession();
    a_ = NewConnection(from_);
    b_ = NewConnection(from_);
    to_ = NewSession();
    c_ = NewConnection(to_);
  }

  static constexpr unsigned kA = 1, kB = 2, kC = 3;
  MediaSessionSharedPtr from_, to_;
  NetworkConnectionSharedPtr a_, b_, c_;
};

TEST_F(Import, GivesANewHandleOnTheSameEndpointInTheDestination) {
  Begin();
  const auto moved = LibraryTest::Import(to_, a_);
  ASSERT_NE(moved, nullptr);
  EXPECT_NE(moved, a_);
  EXPECT_EQ(servers().SessionOf(kA), 2u);
  EXPECT_THAT(servers().OpenEndpoints(), ElementsAre(kA, kB, kC));
}

TEST_F(Import, LetsOldAndNewHandleSpeakOfOneJoin) {
  Begin();
  const auto moved = LibraryTest::Import(to_, a_);
  ASSERT_TRUE(c_->Join(kDuplex, a_));
  EXPECT_EQ(servers().JoinOf(kC, kA), kDuplex);
  EXPECT_TRUE(moved->Unjoin(c_));
  EXPECT_EQ(servers().JoinOf(kC, kA), std::nullopt);
  EXPECT_FALSE(a_->Unjoin(c_));
}

TEST_F(Import, KeepsThePort) {
  Begin();
  MediaConfig before;
  ASSERT_TRUE(a_->GetLocalOffer(before));
  const auto moved = LibraryTest::Import(to_, a_);
  for (const auto& handle : {a_, moved}) {
    MediaConfig after;
    ASSERT_TRUE(handle->GetLocalOffer(after));
    EXPECT_EQ(after.GetRtpPort(), before.GetRtpPort());
  }
}

TEST_F(Import, KeepsTheRtpTimeoutListener) {
  Begin();
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  ASSERT_TRUE(a_->AddListener(listener));
  const auto moved = LibraryTest::Import(to_, a_);
  ASSERT_TRUE(servers().FireRtpTimeout(kA));
  EXPECT_TRUE(listener->WaitForEvents(1));
  EXPECT_TRUE(moved->RemoveListener());
  EXPECT_FALSE(a_->RemoveListener());
}

TEST_F(Import, DissolvesTheJoinWithTheEndpointLeftBehind) {
  Begin();
  ASSERT_TRUE(a_->Join(kDuplex, b_));
  const auto moved = LibraryTest::Import(to_, a_);
  EXPECT_EQ(servers().JoinOf(kA, kB), std::nullopt);
  EXPECT_FALSE(b_->Unjoin(moved));
}

TEST_F(Import, OutlivesTheSessionItCameFrom) {
  Begin();
  const auto moved = LibraryTest::Import(to_, a_);
  from_.reset();
  EXPECT_THAT(servers().OpenEndpoints(), ElementsAre(kA, kC));
  MediaConfig config;
  EXPECT_TRUE(a_->GetLocalOffer(config));
  EXPECT_FALSE(b_->GetLocalOffer(config));
}

TEST_F(Import, EndsWithTheSessionItWentTo) {
  Begin();
  const auto moved = LibraryTest::Import(to_, a_);
  to_.reset();
  EXPECT_THAT(servers().OpenEndpoints(), ElementsAre(kB));
}

TEST_F(Import, KeepsTheEndpointAsLongAsOneHandleIsLeft) {
  Begin();
  auto moved = LibraryTest::Import(to_, a_);
  a_.reset();
  EXPECT_EQ(servers().SessionOf(kA), 2u);
  MediaConfig config;
  EXPECT_TRUE(moved->GetLocalOffer(config));
  moved.reset();
  EXPECT_EQ(servers().SessionOf(kA), 0u);
}

TEST_F(Import, IntoTheSessionItIsInGivesOneMoreHandle) {
  Begin();
  auto second = LibraryTest::Import(from_, a_);
  ASSERT_NE(second, nullptr);
  EXPECT_THAT(servers().Calls(Operation::kImportEndpoint), IsEmpty());
  a_.reset();
  EXPECT_EQ(servers().SessionOf(kA), 1u);
}

TEST_F(Import, ClosesForAllHandlesAtOnce) {
  Begin();
  const auto moved = LibraryTest::Import(to_, a_);
  moved->Close();
  MediaConfig config;
  EXPECT_FALSE(a_->GetLocalOffer(config));
  EXPECT_EQ(servers().Calls(Operation::kClose).size(), 1u);
}

TEST_F(Import, WorksAcrossServersAndKeepsTheEndpointsServer) {
  Begin(2);
  const auto moved = LibraryTest::Import(to_, a_);
  ASSERT_NE(moved, nullptr);
  MediaConfig config;
  ASSERT_TRUE(moved->GetLocalOffer(config));
  EXPECT_EQ(config.GetIPAddress(), servers().Address(0));
  EXPECT_TRUE(c_->Join(kDuplex, moved));
}

TEST_F(Import, OfAClosedConnectionIsRefused) {
  Begin();
  a_->Close();
  EXPECT_EQ(to_->ImportNetworkConnection(a_), nullptr);
}

TEST_F(Import, OfNothingIsRefused) {
  Begin();
  EXPECT_EQ(to_->ImportNetworkConnection(nullptr), nullptr);
}

TEST_F(Import, ThatTheServerRefusesChangesNothing) {
  Begin();
  ASSERT_TRUE(a_->Join(kDuplex, b_));
  servers().Fail(Operation::kImportEndpoint);
  EXPECT_EQ(to_->ImportNetworkConnection(a_), nullptr);
  EXPECT_EQ(servers().SessionOf(kA), 1u);
  EXPECT_TRUE(a_->Unjoin(b_));
}

TEST_F(Import, OfAConnectionOfAnotherFactoryIsRefused) {
  Begin();
  ScriptedMediaServers others;
  MSControlFactory other_factory;
  ASSERT_TRUE(other_factory.Init(others.config_path().c_str(), nullptr));
  const MediaSessionSharedPtr other_session(other_factory.CreateMediaSession());
  const auto other = NewConnection(other_session);
  EXPECT_EQ(to_->ImportNetworkConnection(other), nullptr);
}

TEST_F(Import, OfAnEndpointThatAnotherThreadIsImportingIsRefused) {
  Begin();
  const auto third = NewSession();
  servers().Hold(Operation::kImportEndpoint);
  auto first = std::async(std::launch::async, [&] { return LibraryTest::Import(to_, a_); });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kImportEndpoint));
  EXPECT_EQ(third->ImportNetworkConnection(a_), nullptr);
  servers().Resume(Operation::kImportEndpoint);
  EXPECT_NE(first.get(), nullptr);
  EXPECT_EQ(servers().SessionOf(kA), 2u);
}

TEST_F(Import, OfAConnectionOfAnotherDriverIsRefused) {
  const ScriptedMediaServers others;  // lends the driver
  ScriptedOptions options;
  options.more_servers = "<media_server><driver>" + others.driver_name() +
                         "</driver><mac>02:00:00:00:01:00</mac><address>127.0.3.1</address></media_server>";
  Start(options);
  const auto here = NewSession();
  factory().SetMediaServerStatus(servers().Address().c_str(), false);
  const auto there = NewSession();
  ASSERT_EQ(others.OpenSessions(), 1u);
  const auto connection = NewConnection(there);
  EXPECT_EQ(here->ImportNetworkConnection(connection), nullptr);
  EXPECT_THAT(servers().Calls(Operation::kImportEndpoint), IsEmpty());
}

TEST_F(Import, IntoASessionThatIsLostMeanwhileEndsTheEndpoint) {
  ScriptedOptions options;
  options.servers = 2;
  options.request_timeout_ms = 60000;
  Begin(options);
  servers().Hold(Operation::kImportEndpoint);
  auto import = std::async(std::launch::async, [&] { return LibraryTest::Import(to_, a_); });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kImportEndpoint));
  servers().ReportLost(1);  // while the server itself still answers
  servers().Resume(Operation::kImportEndpoint);
  EXPECT_EQ(import.get(), nullptr);
  EXPECT_THAT(servers().OpenEndpoints(), ElementsAre(kB, kC));
}

TEST_F(Import, IntoASessionThatEndsMeanwhileEndsTheEndpoint) {
  Begin();
  servers().Hold(Operation::kImportEndpoint);
  auto import = std::async(std::launch::async, [&] { return LibraryTest::Import(to_, a_); });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kImportEndpoint));
  auto stop = std::async(std::launch::async, [&] { factory().Stop(); });
  stop.wait();
  servers().Resume(Operation::kImportEndpoint);
  EXPECT_EQ(import.get(), nullptr);
  EXPECT_THAT(servers().OpenEndpoints(), IsEmpty());
}

}  // namespace
