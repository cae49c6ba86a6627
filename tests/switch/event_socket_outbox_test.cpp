#include "console/event_outbox.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace kvx_switch {
namespace {

constexpr size_t kAll = std::numeric_limits<size_t>::max();

TEST(EventOutboxTest, GivesMessagesInTheirOrderAndSaysWhenThereAreAny) {
  EventOutbox outbox({});
  EXPECT_FALSE(outbox.filled().Raised());
  EXPECT_TRUE(outbox.Put("one "));
  EXPECT_TRUE(outbox.Put("two "));
  EXPECT_TRUE(outbox.filled().Raised());
  EXPECT_EQ(outbox.Take(kAll), "one two ");
  EXPECT_FALSE(outbox.filled().Raised());
  EXPECT_EQ(outbox.Take(kAll), "");
}

TEST(EventOutboxTest, TakesWholeMessagesUpToASizeAndOneAtLeast) {
  EventOutbox outbox({});
  for (const char* text : {"12345", "678", "90"}) outbox.Put(text);
  EXPECT_EQ(outbox.Take(1), "12345");
  EXPECT_TRUE(outbox.filled().Raised());
  EXPECT_EQ(outbox.Take(5), "67890");
}

TEST(EventOutboxTest, DropsAndCountsAboveTheNumberOfMessages) {
  EventOutbox outbox({2, 1000});
  EXPECT_TRUE(outbox.Put("1"));
  EXPECT_TRUE(outbox.Put("2"));
  EXPECT_FALSE(outbox.Put("3"));
  EXPECT_FALSE(outbox.Put("4"));
  EXPECT_EQ(outbox.dropped(), 2u);
  EXPECT_EQ(outbox.Take(kAll), "12");
  EXPECT_TRUE(outbox.Put("5"));
  EXPECT_EQ(outbox.Take(kAll), "5");
  EXPECT_EQ(outbox.dropped(), 2u);
}

TEST(EventOutboxTest, DropsAndCountsAboveTheNumberOfBytes) {
  EventOutbox outbox({100, 10});
  EXPECT_TRUE(outbox.Put("123456"));
  EXPECT_FALSE(outbox.Put("12345"));
  EXPECT_TRUE(outbox.Put("1234"));
  EXPECT_EQ(outbox.dropped(), 1u);
  EXPECT_EQ(outbox.Take(kAll), "1234561234");
  EXPECT_TRUE(outbox.Put("1234567890"));
}

TEST(EventOutboxTest, ForgetsWhatWaits) {
  EventOutbox outbox({1, 4});
  outbox.Put("1234");
  outbox.Clear();
  EXPECT_FALSE(outbox.filled().Raised());
  EXPECT_EQ(outbox.Take(kAll), "");
  EXPECT_TRUE(outbox.Put("5678"));
}

TEST(EventOutboxTest, LosesNothingBetweenManyWritersAndOneReader) {
  constexpr int kWriters = 4;
  constexpr size_t kEach = 5000;
  EventOutbox outbox({kWriters * kEach, kWriters * kEach});
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&outbox, writer] {
      for (size_t i = 0; i < kEach; ++i) outbox.Put(std::string(1, static_cast<char>('a' + writer)));
    });
  }
  std::string taken;
  while (taken.size() < kWriters * kEach) taken += outbox.Take(100);
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(outbox.dropped(), 0u);
  for (int writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(std::count(taken.begin(), taken.end(), static_cast<char>('a' + writer)), static_cast<long>(kEach));
  }
}

}  // namespace
}  // namespace kvx_switch
