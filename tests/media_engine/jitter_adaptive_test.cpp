// The jitter buffer that follows the network.
#include <gtest/gtest.h>

#include <random>

#include "jitter_line.h"

namespace media_engine_test {
namespace {

using std::chrono::microseconds;
using Verdict = JitterBuffer::Verdict;
using media_engine::milliseconds;

/// A stream of 20 ms packets over a network whose delays are drawn evenly from a range; packets keep their order.
class Network {
 public:
  explicit Network(JitterLine& line, unsigned seed = 7) : line_(line), random_(seed) {}

  void Send(unsigned packets, int most_ms, int least_ms = 0) {
    for (unsigned i = 0; i < packets; ++i, ++number_) {
      const microseconds sent = milliseconds{20} * number_;
      const microseconds transit =
          milliseconds{least_ms} + microseconds(random_() % static_cast<unsigned>((most_ms - least_ms) * 1000 + 1));
      at_ = std::max(at_, sent + transit);
      const auto number = static_cast<uint16_t>(number_);
      line_.Arrive(at_, {0, number, 160u * number_, 1, marker_next_, {}});
      marker_next_ = false;
    }
    line_.PlayUntil(at_);
  }
  void MarkNext() { marker_next_ = true; }

 private:
  JitterLine& line_;
  std::minstd_rand random_;
  uint32_t number_ = 0;
  microseconds at_{0};
  bool marker_next_ = false;
};

TEST(AdaptiveJitterBuffer, BeginsWithTheInitialDelay) {
  JitterLine line(AdaptiveBuffer(70, 20, 200));
  line.Arrive20ms(0, milliseconds{0});
  line.PlayAll();
  EXPECT_EQ(line.played().at(0).held, milliseconds{70});
}

TEST(AdaptiveJitterBuffer, SettlesAtWhatNearlyAllPacketsNeed) {
  JitterLine line(AdaptiveBuffer(40, 10, 200));
  Network network(line);
  network.Send(500, 100);
  const uint64_t late_before = line.Counters().jitter_buffer_late;
  network.Send(2000, 100);
  EXPECT_GE(line.delay_ms(), 85u);
  EXPECT_LE(line.delay_ms(), 100u);
  EXPECT_LE(line.Counters().jitter_buffer_late - late_before, 2000u * 3 / 100);
  // Where the wish was 40 ms flat, two fifths of them would have come too late.
  JitterLine fixed(StaticBuffer(40));
  Network same(fixed);
  same.Send(2500, 100);
  EXPECT_GT(fixed.Counters().jitter_buffer_late, 2000u / 4);
}

TEST(AdaptiveJitterBuffer, ShrinksToTheMinimumWhenTheNetworkIsCalm) {
  JitterLine line(AdaptiveBuffer(100, 15, 200));
  Network network(line);
  network.Send(90, 1);
  EXPECT_EQ(line.delay_ms(), 100u);  // not on the word of a few packets
  network.Send(400, 1);
  EXPECT_GE(line.delay_ms(), 14u);
  EXPECT_LE(line.delay_ms(), 16u);
  EXPECT_EQ(line.Counters().jitter_buffer_late, 0u);
}

TEST(AdaptiveJitterBuffer, GrowsWithTheJitterAndComesBack) {
  JitterLine line(AdaptiveBuffer(20, 20, 200));
  Network network(line);
  network.Send(500, 5);
  EXPECT_LE(line.delay_ms(), 21u);
  network.Send(500, 120);
  EXPECT_GE(line.delay_ms(), 100u);
  network.Send(1000, 5);
  EXPECT_LE(line.delay_ms(), 25u);
}

TEST(AdaptiveJitterBuffer, NeverExceedsTheMaximum) {
  JitterLine line(AdaptiveBuffer(40, 20, 90));
  Network network(line);
  network.Send(3000, 300);
  EXPECT_LE(line.delay_ms(), 90u);
  for (const auto& one : line.played()) ASSERT_LE(one.held, milliseconds{90});
}

TEST(AdaptiveJitterBuffer, InRunningSpeechTheDelayMovesByATwentiethAtMost) {
  JitterLine line(AdaptiveBuffer(150, 20, 200));
  Network network(line);
  network.Send(600, 3);
  unsigned moved = 0;
  for (std::size_t i = 1; i < line.played().size(); ++i) {
    const microseconds step = line.played()[i].at - line.played()[i - 1].at;
    ASSERT_GE(step, milliseconds{19}) << i;
    ASSERT_LE(step, milliseconds{21}) << i;
    moved += step != milliseconds{20};
  }
  EXPECT_GE(moved, 125u);  // from 150 ms down to 20
  EXPECT_EQ(line.delay_ms(), 20u);
}

TEST(AdaptiveJitterBuffer, WhenAPauseEndsTheDelayIsRightAtOnce) {
  for (const bool marked : {true, false}) {
    JitterLine line(AdaptiveBuffer(150, 20, 200));
    // A hundred packets are what it takes to shrink, and the next measurement; the next ones begin to.
    for (uint16_t number = 0; number < 120; ++number) line.Arrive20ms(number, milliseconds{0}, number == 0);
    line.PlayUntil(milliseconds{3000});
    EXPECT_GT(line.delay_ms(), 130u);
    // After a pause: with a marker, or told by the timestamps alone.
    const Rtp next{0, 120, 160 * 150, 1, marked, {}};
    EXPECT_EQ(line.Arrive(milliseconds{150 * 20}, next), Verdict::kHeld);
    line.PlayAll();
    EXPECT_EQ(line.played().back().held, milliseconds{20}) << marked;
  }
}

TEST(AdaptiveJitterBuffer, AWayThatBecameLongerCostsAFewPacketsOnly) {
  JitterLine line(AdaptiveBuffer(40, 20, 200));
  for (uint16_t number = 0; number < 300; ++number) line.Arrive20ms(number, milliseconds{0});
  for (uint16_t number = 300; number < 400; ++number) line.Arrive20ms(number, milliseconds{110});
  EXPECT_LE(line.Counters().jitter_buffer_late, 3u);
  // In time the new length is the usual one, and the delay what it was.
  for (uint16_t number = 400; number < 1000; ++number) line.Arrive20ms(number, milliseconds{110});
  EXPECT_LE(line.delay_ms(), 21u);
  EXPECT_LE(line.Counters().jitter_buffer_late, 3u);
}

TEST(AdaptiveJitterBuffer, PacketsThatTakeAnotherWayAreWaitedForInTheEnd) {
  JitterLine line(AdaptiveBuffer(20, 20, 200));
  for (int i = 0; i < 1000; ++i) {
    // Every tenth comes 70 ms later, behind three others.
    const auto at = [](int number) { return 20 * number + (number % 10 == 0 ? 70 : 0); };
    std::vector<int> now;
    for (int number = i - 4; number <= i; ++number) {
      if (number >= 0 && at(number) >= 20 * i && at(number) < 20 * (i + 1)) now.push_back(number);
    }
    std::sort(now.begin(), now.end(), [&](int a, int b) { return at(a) < at(b); });
    for (int number : now) {
      line.Arrive(milliseconds{at(number)},
                  {0, static_cast<uint16_t>(number), 160u * static_cast<uint32_t>(number), 1, false, {}});
    }
  }
  line.PlayAll();
  EXPECT_LE(line.Counters().jitter_buffer_late, 8u);  // one in ten of those that 50 ms take at a twentieth
  EXPECT_GE(line.Counters().jitter_buffer_reordered, 90u);
  EXPECT_EQ(line.delay_ms(), 70u);
}

TEST(AdaptiveJitterBuffer, AnotherSourceBeginsWithTheInitialDelayAgain) {
  JitterLine line(AdaptiveBuffer(60, 10, 200));
  Network network(line);
  network.Send(600, 1);
  ASSERT_LE(line.delay_ms(), 11u);
  line.Arrive(milliseconds{600 * 20}, {0, 77, 12345, 9, false, {}});
  line.PlayAll();
  EXPECT_EQ(line.played().back().held, milliseconds{60});
}

}  // namespace
}  // namespace media_engine_test
