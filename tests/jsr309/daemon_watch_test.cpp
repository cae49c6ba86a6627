#include "rtpengine/daemon_watch.h"

#include "ng_control_fixture.h"

#include "support/rtpengine_daemon.h"

#include <mutex>
#include <string>
#include <vector>

namespace kelvaro::jsr309::rtpengine {
namespace {

using test_support::kLongEnough;
using test_support::NgServer;
using test_support::RtpengineDaemon;
using test_support::wait_until;
using testing::ElementsAre;
using testing::HasSubstr;
using Answers = NgServer::Answers;

class Told : public DaemonListener {
 public:
  void OnDaemonBack() override { Add("back"); }
  void OnDaemonLost(const std::string& why) override { Add("lost: " + why); }
  std::vector<std::string> All() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return all_;
  }
  bool Await(std::size_t count) const {
    return wait_until(kLongEnough, [&] { return All().size() >= count; });
  }

 private:
  void Add(const std::string& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    all_.push_back(what);
  }
  mutable std::mutex mutex_;
  std::vector<std::string> all_;  // guarded by mutex_
};

/// Long for what must not happen, short for what must.
constexpr milliseconds kNever = std::chrono::minutes(10), kSoon{2000};

class DaemonWatchTest : public test_support::NgControlTest {
 protected:
  ~DaemonWatchTest() override {
    if (watched_) watched_->Stop();
    server_.reset();  // its script looks at what is ours
  }
  void Watch(const std::string& address, std::uint16_t port, milliseconds heartbeat) {
    watched_ = std::make_unique<NgControl>(NgControlSettings{address, port, "02:00:00:00:00:01"}, guarded_);
    watch_ = std::make_unique<DaemonWatch>(*watched_, heartbeat, told_);
    std::string error;
    ASSERT_TRUE(watched_->Start(watch_.get(), error)) << error;
  }
  /// Answers as long as answering_, with figures of a process that gave that many statistics.
  NgServer::Script Living() {
    return [this](const NgFrame& request, int) {
      if (!answering_) return Answers{};
      if (TextOf(request.message, "command") == "ping") return NgServer::Reply(request, {{"result", "pong"}});
      const Dictionary control{{"totalstatscount", given_++}};
      return NgServer::Reply(request, {{"result", "ok"}, {"statistics", Dictionary{{"controlstatistics", control}}}});
    };
  }

  std::atomic<bool> answering_{true};
  std::atomic<int64_t> given_{100};
  Told told_;
  std::unique_ptr<NgControl> watched_;
  std::unique_ptr<DaemonWatch> watch_;
};

TEST_F(DaemonWatchTest, TellsLossAndReturnInTurn) {
  Serve(Living());
  Watch("127.0.0.1", server_->Port(), kSoon);
  ASSERT_TRUE(told_.Await(1));
  EXPECT_TRUE(watch_->IsAlive());
  answering_ = false;
  ASSERT_TRUE(told_.Await(2));
  EXPECT_FALSE(watch_->IsAlive());
  EXPECT_EQ(watch_->Epoch(), 1u);
  answering_ = true;
  ASSERT_TRUE(told_.Await(3));
  EXPECT_TRUE(watch_->IsAlive());
  EXPECT_THAT(told_.All(), ElementsAre("back", "lost: no answer for 2000 ms", "back"));
}

TEST_F(DaemonWatchTest, SeesAServerGoAndComeLongBeforeItsHeartbeat) {
  Serve(Living());
  const std::uint16_t port = server_->Port();
  Watch("127.0.0.1", port, kNever);
  ASSERT_TRUE(told_.Await(1));
  server_.reset();
  // Anything that is asked of it shows that nobody listens any more.
  std::string error;
  EXPECT_FALSE(watched_->Ask({{"command", "query"}, {"call-id", "one"}}, milliseconds(50), error));
  ASSERT_TRUE(told_.Await(2));
  server_ = std::make_unique<NgServer>(Living(), port);
  EXPECT_TRUE(watched_->Ask({{"command", "list"}}, kLongEnough, error)) << error;
  ASSERT_TRUE(told_.Await(3));
  EXPECT_THAT(told_.All(), ElementsAre("back", "lost: nobody listens there any more", "back"));
}

TEST_F(DaemonWatchTest, FindsOutAtOnceThatAMissedCallWentWithARestart) {
  Serve(Living());
  Watch("127.0.0.1", server_->Port(), kNever);
  ASSERT_TRUE(wait_until(kLongEnough, [this] { return given_ > 100; }));
  ASSERT_TRUE(wait_until(kLongEnough, [this] { return watched_->Counters().replies >= 2; }));
  given_ = 0;
  watch_->ReportUnknownCall(0);
  ASSERT_TRUE(told_.Await(3));
  EXPECT_THAT(told_.All(), ElementsAre("back", "lost: restarted: it has given statistics 0 times, after 100", "back"));
  EXPECT_EQ(watch_->Epoch(), 1u);
  // The same loss, reported by the next of its calls.
  watch_->ReportUnknownCall(0);
  std::string error;
  EXPECT_TRUE(watched_->Ask({{"command", "list"}}, kLongEnough, error)) << error;
  EXPECT_EQ(watch_->Epoch(), 1u);
}

TEST_F(DaemonWatchTest, KeepsADaemonThatEndedOneCallByItself) {
  Serve(Living());
  Watch("127.0.0.1", server_->Port(), kNever);
  ASSERT_TRUE(wait_until(kLongEnough, [this] { return watched_->Counters().replies >= 2; }));
  const int64_t before = given_;
  watch_->ReportUnknownCall(0);
  ASSERT_TRUE(wait_until(kLongEnough, [&] { return given_ > before; }));
  // Replies are taken in turn: with the next, that of the statistics has been looked at.
  std::string error;
  EXPECT_TRUE(watched_->Ask({{"command", "list"}}, kLongEnough, error)) << error;
  EXPECT_TRUE(watched_->Ask({{"command", "list"}}, kLongEnough, error)) << error;
  EXPECT_THAT(told_.All(), ElementsAre("back"));
}

TEST_F(DaemonWatchTest, TellsNothingAfterTheStop) {
  Serve(Living());
  Watch("127.0.0.1", server_->Port(), kSoon);
  ASSERT_TRUE(told_.Await(1));
  watched_->Stop();
  EXPECT_THAT(told_.All(), ElementsAre("back"));
  watch_->ReportUnknownCall(0);
  EXPECT_TRUE(watch_->IsAlive());
}

class RealDaemonTest : public DaemonWatchTest {};

TEST_F(RealDaemonTest, AnswersAPing) {
  RtpengineDaemon daemon;
  const auto control = Open(daemon.ControlPort(), daemon.Address());
  std::string error;
  const auto reply = control->Ask({{"command", "ping"}}, kLongEnough, error);
  ASSERT_TRUE(reply) << error;
  EXPECT_EQ(TextOf(*reply, "result"), "pong");
  control->Stop();
}

TEST_F(RealDaemonTest, CountsItsStatisticsAndTellsItsUptime) {
  RtpengineDaemon daemon;
  const auto control = Open(daemon.ControlPort(), daemon.Address());
  int64_t before = -1;
  for (int i = 0; i < 5; ++i) {
    std::string error;
    const auto reply = control->Ask({{"command", "statistics"}}, kLongEnough, error);
    ASSERT_TRUE(reply) << error;
    const DaemonLife life = ReadDaemonLife(*reply);
    ASSERT_TRUE(life.uptime);
    ASSERT_TRUE(life.statistics_given);
    EXPECT_GT(*life.statistics_given, before);
    before = *life.statistics_given;
  }
  control->Stop();
}

TEST_F(RealDaemonTest, DoesNotKnowACallThatItNeverHad) {
  RtpengineDaemon daemon;
  const auto control = Open(daemon.ControlPort(), daemon.Address());
  std::string error;
  const auto reply = control->Ask({{"command", "query"}, {"call-id", "none"}}, kLongEnough, error);
  ASSERT_TRUE(reply) << error;
  EXPECT_TRUE(IsUnknownCall(*reply));
  control->Stop();
}

TEST_F(RealDaemonTest, IsSeenToBeKilledAndToComeBack) {
  RtpengineDaemon daemon;
  Watch(daemon.Address(), daemon.ControlPort(), kSoon);
  ASSERT_TRUE(told_.Await(1));
  daemon.Kill();
  ASSERT_TRUE(told_.Await(2));
  daemon.Start();
  ASSERT_TRUE(told_.Await(3));
  EXPECT_THAT(told_.All(), ElementsAre("back", "lost: nobody listens there any more", "back"));
}

TEST_F(RealDaemonTest, IsSeenToBeRestartedThoughNobodyAskedMeanwhile) {
  RtpengineDaemon daemon;
  Watch(daemon.Address(), daemon.ControlPort(), kNever);
  ASSERT_TRUE(wait_until(kLongEnough, [this] { return watched_->Counters().replies >= 2; }));
  daemon.Kill();
  daemon.Start();
  watch_->ReportUnknownCall(0);
  ASSERT_TRUE(told_.Await(3));
  ASSERT_EQ(told_.All().size(), 3u);
  EXPECT_THAT(told_.All()[1], HasSubstr("lost: restarted: it has given statistics 0 times, after 0"));
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
