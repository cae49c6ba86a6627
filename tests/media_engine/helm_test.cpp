// Who does a worker's requests: its thread, or who asks while it sleeps.
#include "helm.h"

#include <future>

#include "engine_fixture.h"
#include "server_context.h"
#include "worker.h"

namespace media_engine_test {
namespace {

using media_engine::Helm;
using media_engine::Mailbox;
using media_engine::MakeTask;
using media_engine::PortPool;
using media_engine::ServerContext;
using media_engine::Task;
using media_engine::Worker;

TEST(Helm, IsTheWorkersUntilItLeavesAndThenOfTheFirstWhoTakesIt) {
  Helm helm;
  EXPECT_FALSE(helm.IsFree());
  EXPECT_FALSE(helm.TryTake());
  helm.Leave();
  EXPECT_TRUE(helm.IsFree());
  EXPECT_TRUE(helm.TryTake());
  EXPECT_FALSE(helm.IsFree());
  EXPECT_FALSE(helm.TryTake());
  helm.GiveBack();
  EXPECT_TRUE(helm.TryTake());
  helm.GiveBack();
  EXPECT_TRUE(helm.Return());
  EXPECT_FALSE(helm.TryTake());
}

TEST(Helm, SaysWhetherAnybodyHasHadItSinceTheWorkerLeft) {
  Helm helm;
  helm.Leave();
  EXPECT_FALSE(helm.Return());
  helm.Leave();
  ASSERT_TRUE(helm.TryTake());
  helm.GiveBack();
  EXPECT_TRUE(helm.Return());
  helm.Leave();
  EXPECT_FALSE(helm.Return());
}

TEST(Helm, IsWaitedForByTheWorkerUntilItIsGivenBack) {
  Helm helm;
  helm.Leave();
  ASSERT_TRUE(helm.TryTake());
  std::promise<void> returning;
  bool done = false;  // guarded by the helm
  auto worker = std::async(std::launch::async, [&] {
    returning.set_value();
    EXPECT_TRUE(helm.Return());
    EXPECT_TRUE(done);
  });
  returning.get_future().wait();
  done = true;
  helm.GiveBack();
  worker.get();
  EXPECT_FALSE(helm.TryTake());
}

TEST(Helm, HasOneHolderAtATime) {
  Helm helm;
  uint64_t turns = 0;  // guarded by the helm
  std::atomic<uint64_t> taken{0};
  std::atomic<bool> over{false};
  std::vector<std::future<void>> helpers;
  for (int i = 0; i < 3; ++i) {
    helpers.push_back(std::async(std::launch::async, [&] {
      while (!over.load()) {
        if (!helm.TryTake()) {
          std::this_thread::yield();
          continue;
        }
        ++turns;
        ++taken;
        helm.GiveBack();
      }
    }));
  }
  constexpr uint64_t kTurns = 3000;
  for (uint64_t i = 0; i < kTurns || taken.load() < 100; ++i) {
    helm.Leave();
    std::this_thread::yield();
    helm.Return();
    ++turns;
    ++taken;
  }
  over.store(true);
  for (auto& helper : helpers) helper.get();
  EXPECT_EQ(turns, taken.load());
}

/// A worker on a thread of its own that rests as long as it may.
class RestingWorker : public testing::Test {
 protected:
  RestingWorker() {
    thread_ = std::thread([this] {
      while (!over_.load()) worker_.RunOnce(milliseconds{60000});
      worker_.Finish();
    });
  }
  ~RestingWorker() override {
    over_.store(true);
    mailbox_->PostToThread(MakeTask([](Worker&) {}));
    thread_.join();
  }
  std::thread::id WhoRuns(bool serve) {
    std::promise<std::thread::id> ran;
    auto runner = ran.get_future();
    std::unique_ptr<Task> task = MakeTask([&ran](Worker&) { ran.set_value(std::this_thread::get_id()); });
    if (serve) {
      EXPECT_TRUE(mailbox_->Put(task));
      mailbox_->Serve();
    } else {
      EXPECT_TRUE(mailbox_->PostToThread(std::move(task)));
      mailbox_->Serve();
    }
    return runner.get();
  }

  std::shared_ptr<PortPool> pool_ = std::make_shared<PortPool>(*SocketAddress::Parse("127.0.0.1", 0), 2, 3);
  std::shared_ptr<ServerContext> context_ = std::make_shared<ServerContext>(
      std::make_shared<SteadyClock>(), nullptr, *SocketAddress::Parse("127.0.0.1", 0), std::string(), pool_, LogSink());
  std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>();
  Worker worker_{context_, mailbox_};
  std::atomic<bool> over_{false};
  std::thread thread_;
};

TEST_F(RestingWorker, HasItsRequestsDoneByWhoMakesThem) {
  EXPECT_TRUE(Eventually([&] { return WhoRuns(true) == std::this_thread::get_id(); }));
}

TEST_F(RestingWorker, DoesItselfWhatItsThreadIsToDo) {
  for (int i = 0; i < 100; ++i) EXPECT_EQ(WhoRuns(false), thread_.get_id());
}

TEST_F(RestingWorker, GetsEveryTaskDoneOnceAndInOrderWhoeverDoesIt) {
  constexpr int kThreads = 4, kTasks = 500;
  std::vector<std::vector<int>> done(kThreads);  // guarded by the helm
  std::atomic<int> left{kThreads * kTasks};
  std::vector<std::future<void>> makers;
  for (int maker = 0; maker < kThreads; ++maker) {
    makers.push_back(std::async(std::launch::async, [&, maker] {
      for (int i = 0; i < kTasks; ++i) {
        std::unique_ptr<Task> task = MakeTask([&, maker, i](Worker&) {
          done[static_cast<std::size_t>(maker)].push_back(i);
          --left;
        });
        if (i % 3 == 0) {
          EXPECT_TRUE(mailbox_->Post(task));
        } else if (i % 50 == 1) {
          EXPECT_TRUE(mailbox_->PostToThread(std::move(task)));
        } else {
          EXPECT_TRUE(mailbox_->Put(task));
          mailbox_->Serve();
        }
      }
    }));
  }
  for (auto& maker : makers) maker.get();
  EXPECT_TRUE(Eventually([&] { return left.load() == 0; }));
  std::vector<int> expected(kTasks);
  for (int i = 0; i < kTasks; ++i) expected[static_cast<std::size_t>(i)] = i;
  for (const auto& tasks : done) EXPECT_EQ(tasks, expected);
}

class HelpedServer : public EngineTest {
 protected:
  /// Its worker rests for minutes when it has no endpoints.
  std::unique_ptr<Server> OpenCalm(unsigned pairs = 16) {
    ServerConfig config = Config(pairs);
    config.threads = 1;
    config.heartbeat = seconds{1200};
    return Open(config);
  }
};

TEST_F(HelpedServer, RunsTheTimersOfEndpointsThatCameWhileItsWorkerSlept) {
  const auto server = OpenCalm();
  const auto session = NewSession(*server);
  Leg leg = NewLeg(*session);
  LocalSettings settings = LocalFor(Pcmu());
  settings.pending_timeout = seconds{5};
  ASSERT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
  clock_->Advance(seconds{6});
  EXPECT_EQ(leg.events->Wait(1), std::vector<std::string>{"pending"});
}

TEST_F(HelpedServer, AnswersWhoAsksWhileItsWorkerIsStalledOnlyWhenThatGoesOn) {
  const auto server = OpenCalm();
  const auto session = NewSession(*server);
  const Leg leg = NewCallLeg(*session);
  server->StallWorker(0, true);
  EndpointStatistics statistics;
  EXPECT_FALSE(leg.endpoint->ReadStatistics(statistics, milliseconds{50}).ok);
  server->StallWorker(0, false);
  EXPECT_TRUE(leg.endpoint->ReadStatistics(statistics, kLimit).ok);
}

/// Events of sockets that others close meanwhile must not be served.
TEST_F(HelpedServer, MovesPacketsWhileOthersMakeAndCloseEndpoints) {
  const auto server = OpenCalm(64);
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  std::vector<std::future<void>> makers;
  for (int maker = 0; maker < 2; ++maker) {
    makers.push_back(std::async(std::launch::async, [&server] {
      const auto own = NewSession(*server);
      for (int i = 0; i < 150; ++i) {
        const Leg c = NewCallLeg(*own), d = NewCallLeg(*own);
        EXPECT_TRUE(c.endpoint->Join(Direction::kDuplex, *d.endpoint, kLimit).ok);
        c.SendRun(1, 3);
        d.SendRun(1, 3);
        EXPECT_TRUE(c.endpoint->Close(kLimit).ok);
        if (i % 2 == 0) d.endpoint->Release();
      }
    }));
  }
  for (uint16_t number = 1; number <= 300; ++number) {
    a.SendRun(number, 1);
    ASSERT_TRUE(b.far_end->ReceiveRtp()) << number;
  }
  for (auto& maker : makers) maker.get();
  EXPECT_EQ(a.Statistics().rtp_packets_received, 300u);
}

}  // namespace
}  // namespace media_engine_test
