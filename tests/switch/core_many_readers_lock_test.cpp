#include "core/many_readers_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

using kvx_switch::ManyReadersLock;

constexpr int kThreads = 24;  // more than the lock has parts, so that some threads share one

TEST(ManyReadersLock, ReadersDoNotWaitForEachOther) {
  ManyReadersLock lock;
  std::atomic<int> inside{0};
  std::promise<void> all_inside;
  const std::shared_future<void> leave = all_inside.get_future().share();
  std::atomic<int> met{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      const std::shared_lock<ManyReadersLock> reading(lock);
      if (++inside == kThreads) all_inside.set_value();
      if (leave.wait_for(std::chrono::seconds(60)) == std::future_status::ready) ++met;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(met, kThreads);
}

TEST(ManyReadersLock, NobodySeesWhatAWriterHasHalfDone) {
  ManyReadersLock lock;
  int one = 0, other = 0;  // always the same for whoever holds the lock
  std::atomic<int> differences{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, writes = i % 3 == 0] {
      for (int round = 0; round < 500; ++round) {
        if (writes) {
          const std::lock_guard<ManyReadersLock> writing(lock);
          if (one != other) ++differences;
          ++one;
          ++other;
        } else {
          const std::shared_lock<ManyReadersLock> reading(lock);
          if (one != other) ++differences;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(differences, 0);
  EXPECT_EQ(one, kThreads / 3 * 500);
}

}  // namespace
