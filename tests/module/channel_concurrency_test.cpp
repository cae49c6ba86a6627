#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using testing::IsEmpty;

/// A thread that runs what it is given, one thing after the other, as a leg's own thread does.
class LegThread {
 public:
  LegThread() : thread_([this] { Run(); }) {}
  ~LegThread() {
    Give(nullptr);
    thread_.join();
  }

  void Give(std::function<void()> work) {
    const std::lock_guard<std::mutex> lock(mutex_);
    work_ = std::move(work);
    given_ = true;
    changed_.notify_all();
  }
  /// False when the work is not done by then.
  bool Wait(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_until(lock, deadline, [this] { return !given_; });
  }

 private:
  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return given_; });
      const std::function<void()> work = std::move(work_);
      if (!work) return;
      lock.unlock();
      work();
      lock.lock();
      given_ = false;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<void()> work_;  // guarded by mutex_
  bool given_ = false;          // guarded by mutex_
  std::thread thread_;
};

class ChannelConcurrency : public MediaCallbacks {
 protected:
  /// Runs both at once, each on its leg's thread. A deadlock ends the program: its threads cannot be joined.
  void AtOnce(const std::function<void()>& first, const std::function<void()>& second) {
    std::atomic<int> ready{0};
    const auto together = [&ready](const std::function<void()>& work) {
      ++ready;
      while (ready < 2) std::this_thread::yield();
      work();
    };
    first_.Give([&] { together(first); });
    second_.Give([&] { together(second); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    if (!first_.Wait(deadline) || !second_.Wait(deadline)) {
      std::fprintf(stderr, "two legs' threads wait for each other\n");
      std::abort();
    }
  }

  /// A leg that the tables know has its connection in the session that they name; one that they do not know has none.
  void ExpectConsistent(const MediaLeg& a, const MediaLeg& b) const {
    std::size_t known = 0;
    for (const MediaLeg* leg : {&a, &b}) {
      if (!leg->Known()) continue;
      ++known;
      EXPECT_TRUE(leg->Node());
    }
    EXPECT_EQ(servers_.OpenEndpoints().size(), known);
  }

  void ExpectNothingLeft() const {
    EXPECT_EQ(MediaSessions(), 0u);
    EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
    EXPECT_EQ(servers_.OpenSessions(), 0u);
  }

  /// Each bridge that was lost has said why, in one of the ways that a race leaves.
  void ExpectReasons(std::size_t lost_bridges) {
    std::size_t reasons = 0;
    for (const test_support::LogLine& line : LinesOf({"channel_bridge.cpp"})) {
      if (line.level != SWITCH_LOG_ERROR) continue;
      ++reasons;
      EXPECT_THAT(line.text, testing::AnyOf("Transfer migration failed, tranferee is busy\n",
                                            "Failed to find network connections!\n",
                                            testing::EndsWith("from FS table. Channel bridge failed")));
    }
    EXPECT_EQ(reasons, lost_bridges);
    log_.Clear();
  }

  LegThread first_, second_;
};

/// Ten times a thousand rounds rather than ten thousand: the media servers remember all that they ever made.
class ChannelConcurrencyTenfold : public ChannelConcurrency, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Tenfold, ChannelConcurrencyTenfold, testing::Range(0, 10));

TEST_P(ChannelConcurrencyTenfold, LegsBridgedFromBothSidesAtOnceEndInOneSessionOrStayWhole) {
  int joined = 0;
  std::size_t lost = 0;
  for (int round = 0; round < 1000 && !HasFailure(); ++round) {
    MediaLeg a, b;
    ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
    ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
    a.BondWith(b);
    switch_status_t from_a = SWITCH_STATUS_FALSE, from_b = SWITCH_STATUS_FALSE;
    AtOnce([&] { from_a = a.Bridge(); }, [&] { from_b = b.Bridge(); });
    ExpectConsistent(a, b);
    lost += (from_a != SWITCH_STATUS_SUCCESS) + (from_b != SWITCH_STATUS_SUCCESS);
    if (from_a == SWITCH_STATUS_SUCCESS || from_b == SWITCH_STATUS_SUCCESS) {
      ++joined;
      EXPECT_EQ(a.MediaSession(), b.MediaSession());
    }
    AtOnce([&] { a.Unbridge(); }, [&] { b.Unbridge(); });
    AtOnce([&] { a.Destroy(); }, [&] { b.Destroy(); });
    ExpectNothingLeft();
    servers_.ForgetCalls();
    if (round % 100 != 99) continue;
    ExpectReasons(lost);
    lost = 0;
  }
  EXPECT_GT(joined, 0);
}

TEST_F(ChannelConcurrency, DestructionRacesTheCallbacksOfTheOtherLeg) {
  for (int round = 0; round < 1000 && !HasFailure(); ++round) {
    MediaLeg a, b;
    const bool together = round % 2 == 0;
    ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
    if (together) a.BondWith(b);
    ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
    a.BondWith(b);
    AtOnce(
        [&] {
          a.Bridge();
          LocalMedia media;
          a.GetMedia(media);
          a.Unbridge();
          a.Bridge(RTPDIR_SEND);
          RemoteMedia fax;
          fax.state = SWITCH_SDP_ANSWER_RECEIVED;
          fax.enable_udp_passthru = SWITCH_TRUE;
          a.SetMedia(fax);
        },
        [&] {
          LocalMedia media;
          b.GetMedia(media);
          b.SetMedia({});
          channel_destroy(b.Connection());
        });
    channel_destroy(a.Connection());
    EXPECT_FALSE(a.Known());
    EXPECT_FALSE(b.Known());
    ExpectNothingLeft();
    servers_.ForgetCalls();
    if (round % 100 == 0) log_.Clear();
  }
}

TEST_F(ChannelConcurrency, TimeoutsALostServerAndTheHangUpOfAllRaceTheCallbacks) {
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    MediaLeg a, b;
    ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
    const unsigned endpoint_a = servers_.LastEndpoint();
    ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
    const unsigned endpoint_b = servers_.LastEndpoint();
    a.BondWith(b);
    std::thread trouble([&] {
      servers_.FireRtpTimeout(endpoint_a);
      servers_.FireRtpTimeout(endpoint_b);
      servers_.Lose();
    });
    std::thread operator_command([] {
      std::vector<boost::uuids::uuid> all;
      mod_globals->GetMSTable()->ListAllMSUuid(all);
      HangupAllMSCalls(all);
    });
    AtOnce(
        [&] {
          a.Bridge();
          LocalMedia media;
          a.GetMedia(media);
          a.Unbridge();
          channel_destroy(a.Connection());
        },
        [&] {
          b.Bridge();
          b.SetMedia({});
          channel_destroy(b.Connection());
        });
    trouble.join();
    operator_command.join();
    EXPECT_FALSE(a.Known());
    EXPECT_FALSE(b.Known());
    ExpectNothingLeft();
    servers_.Return();
    servers_.ForgetCalls();
    if (round % 100 == 0) log_.Clear();
  }
}

}  // namespace
}  // namespace module_test
