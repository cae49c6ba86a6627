#include "core/leg_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>
#include <thread>

namespace {

using kvx_switch::LegThreads;
using std::chrono::hours;
using std::chrono::milliseconds;

/// Runs a task and waits until it has run; the thread it ran on.
std::thread::id run_one(LegThreads& threads) {
  std::promise<std::thread::id> ran;
  threads.Run([&ran] { ran.set_value(std::this_thread::get_id()); });
  return ran.get_future().get();
}

template <typename Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 5000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return false;
}

TEST(LegThreads, UsesAThreadAgainWhoseLegIsOver) {
  LegThreads threads(8, hours(1));
  // One may not be idle yet when the next leg comes.
  EXPECT_TRUE(eventually([&] { return run_one(threads) == run_one(threads); }));
  EXPECT_NE(run_one(threads), std::this_thread::get_id());
}

TEST(LegThreads, GivesEveryLegAThreadOfItsOwn) {
  LegThreads threads(8, hours(1));
  std::promise<void> over;
  const std::shared_future<void> end = over.get_future().share();
  std::atomic<int> running{0};
  for (int i = 0; i < 20; ++i) {
    threads.Run([&running, end] {
      ++running;
      end.wait();
    });
  }
  EXPECT_TRUE(eventually([&] { return running.load() == 20; }));
  EXPECT_EQ(threads.Count(), 20u);
  over.set_value();
  EXPECT_TRUE(eventually([&] { return threads.Count() == 8; }));
}

TEST(LegThreads, EndsAThreadThatNobodyNeeds) {
  LegThreads threads(8, milliseconds(5));
  run_one(threads);
  EXPECT_TRUE(eventually([&] { return threads.Count() == 0; }));
  run_one(threads);
}

TEST(LegThreads, WaitsAtItsStopForAllWorkAndGoesOnAfterwards) {
  LegThreads threads(8, hours(1));
  std::atomic<int> done{0};
  for (int round = 1; round <= 3; ++round) {
    for (int i = 0; i < 30; ++i) threads.Run([&done] { ++done; });
    threads.Stop();
    EXPECT_EQ(done.load(), 30 * round);
    EXPECT_EQ(threads.Count(), 0u);
  }
}

TEST(LegThreads, RunsWhatManyThreadsGiveItOnceEach) {
  LegThreads threads(2, milliseconds(1));
  std::atomic<int> done{0};
  {
    std::vector<std::future<void>> givers;
    for (int giver = 0; giver < 4; ++giver) {
      givers.push_back(std::async(std::launch::async, [&] {
        for (int i = 0; i < 250; ++i) threads.Run([&done] { ++done; });
      }));
    }
  }
  threads.Stop();
  EXPECT_EQ(done.load(), 1000);
}

}  // namespace
