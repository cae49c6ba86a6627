// The end of a server whose worker is stuck for good, as far as the server can tell.
#include "engine_fixture.h"
#include "support/stuck_clock.h"

namespace media_engine_test {
namespace {

class ShutdownLimit : public EngineTest {
 protected:
  std::unique_ptr<Server> OpenStickable(unsigned threads) {
    ServerConfig config = Config();
    config.threads = threads;
    config.heartbeat = seconds{60};
    Outcome outcome;
    return stickable_.OpenServer(config, nullptr, outcome);
  }

  std::shared_ptr<test_support::StuckClock> time_ = std::make_shared<test_support::StuckClock>();
  Engine stickable_{time_};
};

TEST_F(ShutdownLimit, IsKeptAndTheStuckWorkerEndsEverythingWhenItGoesOn) {
  const std::size_t threads = RunningThreads();
  auto server = OpenStickable(1);
  auto session = NewSession(*server);
  Leg a = NewLeg(*session);
  const std::size_t without_ports = OpenDescriptors();
  LocalSettings settings = LocalFor(Pcmu());
  settings.pending_timeout = seconds{5};
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  time_->SetStuck(true);
  ASSERT_TRUE(time_->WaitForStuck(1));

  const auto begun = std::chrono::steady_clock::now();
  server->Shutdown(milliseconds{200});
  EXPECT_LT(std::chrono::steady_clock::now() - begun, seconds{5});
  EXPECT_TRUE(
      log_.Has(LogLevel::kError,
               "media server 127.0.0.1: 1 of its workers did not end within 200 ms and are left to themselves"));
  EXPECT_EQ(a.endpoint->DescribeLocal(settings, a.local, seconds{60}).reason, "the media server has been shut down");
  EXPECT_FALSE(a.endpoint->closed());
  EXPECT_EQ(server->Usage().port_pairs, 1u);
  server.reset();

  time_->Advance(seconds{10});  // beyond the timeout, of which nobody is to be told any more
  time_->SetStuck(false);
  EXPECT_TRUE(Eventually([&] { return RunningThreads() == threads; }));
  EXPECT_TRUE(a.endpoint->closed());
  EXPECT_LT(OpenDescriptors(), without_ports);  // the worker's own are gone too
  EXPECT_EQ(a.events->Wait(1, milliseconds{0}).size(), 0u);
}

TEST_F(ShutdownLimit, IsOneForAllWorkersTogether) {
  const std::size_t threads = RunningThreads();
  auto server = OpenStickable(4);
  time_->SetStuck(true);
  for (unsigned worker = 0; worker < 4; ++worker) {  // each has something to do
    server->StallWorker(worker, true);
    server->StallWorker(worker, false);
  }
  ASSERT_TRUE(time_->WaitForStuck(4));
  const auto begun = std::chrono::steady_clock::now();
  server->Shutdown(milliseconds{1000});
  EXPECT_LT(std::chrono::steady_clock::now() - begun, milliseconds{3900});  // one after the other it would be four
  EXPECT_TRUE(log_.Has(LogLevel::kError, "4 of its workers"));
  time_->SetStuck(false);
  EXPECT_TRUE(Eventually([&] { return RunningThreads() == threads; }));
}

TEST_F(ShutdownLimit, IsNotWaitedForByWorkersThatServe) {
  auto server = OpenStickable(2);
  const auto begun = std::chrono::steady_clock::now();
  server->Shutdown(seconds{60});
  EXPECT_LT(std::chrono::steady_clock::now() - begun, seconds{5});
  EXPECT_FALSE(log_.Has(LogLevel::kError, "left to themselves"));
}

}  // namespace
}  // namespace media_engine_test
