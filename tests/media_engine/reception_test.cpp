// What is measured on a stream that comes in: RFC 3550, A.1, A.3 and A.8, with values computed by hand.
#include "reception.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace media_engine_test {
namespace {

using media_engine::Reception;
using media_engine::ReportBlock;
using media_engine::RtpHeader;
using media_engine::TimePoint;
using std::chrono::microseconds;
using std::chrono::seconds;

class ReceptionOf : public testing::Test {
 protected:
  void Take(uint16_t number, uint32_t ssrc = 1) {
    RtpHeader header;
    header.sequence_number = number;
    header.ssrc = ssrc;
    reception_.Count(header, 0, TimePoint(seconds{1000}));
  }
  void TakeAll(const std::vector<int>& numbers) {
    for (const int number : numbers) Take(static_cast<uint16_t>(number));
  }
  void TakeRun(int first, int count) {
    for (int i = 0; i < count; ++i) Take(static_cast<uint16_t>(first + i));
  }

  Reception reception_;
};

TEST_F(ReceptionOf, AReportCountsAsTheAppendixDoes) {
  // A.3 by hand: 90 of 100, then 198 of 200.
  TakeRun(100, 50);
  TakeRun(160, 40);
  ReportBlock block = reception_.Report();
  EXPECT_EQ(block.ssrc, 1u);
  EXPECT_EQ(block.cumulative_lost, 10);
  EXPECT_EQ(block.fraction_lost, 25);  // 10 * 256 / 100
  EXPECT_EQ(block.highest_sequence, 199u);
  TakeRun(200, 100);
  TakeRun(302, 98);
  block = reception_.Report();
  EXPECT_EQ(block.cumulative_lost, 12);
  EXPECT_EQ(block.fraction_lost, 2);  // 2 * 256 / 200
  EXPECT_EQ(reception_.fraction_lost_maximum(), 25);
}

TEST_F(ReceptionOf, TheHighestNumberIsExtendedByTheWraps) {
  TakeRun(65530, 10);  // to 3
  EXPECT_EQ(reception_.Report().highest_sequence, 0x10003u);
  for (int i = 0; i < 2 * 65536; ++i) Take(static_cast<uint16_t>(4 + i));
  EXPECT_EQ(reception_.Report().highest_sequence, 0x30003u);
  EXPECT_EQ(reception_.lost(), 0u);
}

TEST_F(ReceptionOf, DuplicatesDoNotMakeUpForLosses) {
  TakeAll({1, 2, 2, 5, 5, 5, 2});
  EXPECT_EQ(reception_.lost(), 2u);  // 3 and 4
  EXPECT_EQ(reception_.duplicates(), 4u);
  EXPECT_EQ(reception_.reordered(), 0u);
  EXPECT_EQ(reception_.received(), 7u);
  EXPECT_EQ(reception_.fraction_lost_maximum(), 102);  // 2 * 256 / 5
}

TEST_F(ReceptionOf, AReportCountsDuplicatesAsReceivedAndMayBeNegative) {
  TakeAll({1, 2, 2, 2, 3});
  const ReportBlock block = reception_.Report();
  EXPECT_EQ(block.cumulative_lost, -2);
  EXPECT_EQ(block.fraction_lost, 0);
}

TEST_F(ReceptionOf, DuplicatesAndLateOnesAreToldApartAcrossAWrap) {
  TakeAll({65533, 65535, 1, 65534, 0, 65535, 1, 0, 65534, 2});
  EXPECT_EQ(reception_.reordered(), 2u);   // 65534 and 0, once each
  EXPECT_EQ(reception_.duplicates(), 4u);  // 65535, 1, 0, 65534
  EXPECT_EQ(reception_.lost(), 0u);
  EXPECT_EQ(reception_.Report().highest_sequence, 0x10002u);
}

TEST_F(ReceptionOf, OneThatComesLateIsTakenBackFromTheLosses) {
  TakeAll({10, 13});
  EXPECT_EQ(reception_.lost(), 2u);
  Take(12);
  EXPECT_EQ(reception_.lost(), 1u);
  Take(11);
  EXPECT_EQ(reception_.lost(), 0u);
  EXPECT_EQ(reception_.reordered(), 2u);
}

TEST_F(ReceptionOf, OneThatComesAfterItsReportMakesThatIntervalNoLoss) {
  TakeAll({10, 12});
  EXPECT_EQ(reception_.Report().fraction_lost, 85);  // 1 of 3
  TakeAll({11, 13});
  const ReportBlock block = reception_.Report();
  EXPECT_EQ(block.fraction_lost, 0);
  EXPECT_EQ(block.cumulative_lost, 0);
}

TEST_F(ReceptionOf, AnEarlierOneThanTheFirstThatCameWasExpectedToo) {
  TakeAll({0, 65535, 1, 3});
  EXPECT_EQ(reception_.lost(), 1u);  // 2; what was sent begins with 65535
  Take(65532);
  EXPECT_EQ(reception_.lost(), 3u);  // 65533 and 65534 as well
  EXPECT_EQ(reception_.Report().highest_sequence, 3u);
}

TEST_F(ReceptionOf, TheOldestThatStillCountsIsNinetyNineBehind) {
  TakeRun(1000, 1);
  Take(1100);
  Take(1001);  // 99 behind
  EXPECT_EQ(reception_.reordered(), 1u);
  EXPECT_EQ(reception_.lost(), 98u);
  Take(1001);
  EXPECT_EQ(reception_.duplicates(), 1u);
  Take(1000);  // 100 behind: a stray
  EXPECT_EQ(reception_.duplicates(), 1u);
  EXPECT_EQ(reception_.received(), 4u);
}

TEST_F(ReceptionOf, EveryOrderOfAFewPacketsCountsTheSame) {
  std::vector<int> numbers = {65534, 65535, 0, 1, 2};
  std::sort(numbers.begin(), numbers.end());
  do {
    reception_ = Reception();
    TakeAll(numbers);
    TakeAll(numbers);
    EXPECT_EQ(reception_.lost(), 0u) << testing::PrintToString(numbers);
    EXPECT_EQ(reception_.duplicates(), 5u) << testing::PrintToString(numbers);
  } while (std::next_permutation(numbers.begin(), numbers.end()));
}

TEST_F(ReceptionOf, AJumpOfLessThanThreeThousandIsLossAndMoreIsARestart) {
  TakeRun(0, 10);
  Take(9 + 2999);
  EXPECT_EQ(reception_.lost(), 2998u);
  EXPECT_EQ(reception_.source_changes(), 0u);
  Take(9 + 2999 + 3000);
  EXPECT_EQ(reception_.lost(), 2998u);  // a stray, for the time being
  Take(9 + 2999 + 3001);
  EXPECT_EQ(reception_.source_changes(), 1u);
  EXPECT_EQ(reception_.lost(), 2998u);
  EXPECT_EQ(reception_.received(), 10u + 1u + 2u);
}

TEST_F(ReceptionOf, ASourceThatRestartsIsNotALoss) {
  TakeAll({10, 12, 40000, 40001, 40003});
  EXPECT_EQ(reception_.source_changes(), 1u);
  EXPECT_EQ(reception_.lost(), 2u);  // 11 and 40002
}

TEST_F(ReceptionOf, LossIsCountedAcrossWraps) {
  for (int i = 0; i < 70000; ++i) {
    if (i % 10 != 3) Take(static_cast<uint16_t>(65000 + i));
  }
  EXPECT_EQ(reception_.lost(), 7000u);
}

TEST_F(ReceptionOf, ReportsBeginAnewWithTheNumbering) {
  TakeRun(0, 100);
  reception_.Report();
  TakeAll({30000, 30001, 30003});
  const ReportBlock block = reception_.Report();
  EXPECT_EQ(block.highest_sequence, 30003u);
  EXPECT_EQ(block.cumulative_lost, 1);
  EXPECT_EQ(block.fraction_lost, 64);  // 1 of 4
}

TEST_F(ReceptionOf, LossesAreClampedTo24Bits) {
  // 2999 lost of every 3000; the numbers go round often enough to lose 2^23.
  uint16_t number = 0;
  for (int i = 0; i < 3000; ++i) {
    Take(number);
    number = static_cast<uint16_t>(number + 2999);
  }
  EXPECT_EQ(reception_.lost(), 2999u * 2998u);
  const ReportBlock block = reception_.Report();
  EXPECT_EQ(block.cumulative_lost, 0x7fffff);
  EXPECT_EQ(block.fraction_lost, 255);  // 8991002 * 256 / 8994002 is 255.9
}

TEST_F(ReceptionOf, NothingHeardMeansNothingToReport) {
  EXPECT_FALSE(reception_.started());
  EXPECT_FALSE(reception_.HeardSinceReport());
  EXPECT_EQ(reception_.lost(), 0u);
  Take(1);
  EXPECT_TRUE(reception_.HeardSinceReport());
  reception_.Report();
  EXPECT_FALSE(reception_.HeardSinceReport());
  Take(1);  // even a duplicate is a sign of life
  EXPECT_TRUE(reception_.HeardSinceReport());
}

TEST_F(ReceptionOf, AnotherSourceBeginsAnew) {
  TakeAll({1, 5});
  EXPECT_FALSE(reception_.IsNewSource(1));
  EXPECT_TRUE(reception_.IsNewSource(2));
  Take(60000, 2);
  EXPECT_EQ(reception_.ssrc(), 2u);
  EXPECT_EQ(reception_.lost(), 0u);
  EXPECT_EQ(reception_.received(), 1u);
  EXPECT_EQ(reception_.fraction_lost_maximum(), 0);
  EXPECT_EQ(reception_.source_changes(), 1u);
}

/// Packets of 20 ms at 8000 Hz that come that many microseconds apart from when they should.
uint32_t JitterOf(const std::vector<int>& deviations, Reception& reception, uint32_t clock_rate = 8000) {
  int i = 0;
  for (const int deviation : deviations) {
    RtpHeader header;
    header.sequence_number = static_cast<uint16_t>(i);
    header.timestamp = static_cast<uint32_t>(i) * clock_rate / 50;
    reception.Count(header, clock_rate, TimePoint(seconds{1000} + microseconds{20000 * i + deviation}));
    ++i;
  }
  return reception.jitter();
}

TEST(Jitter, FollowsTheAppendix) {
  // A.8 in sixteenths, with differences of 80, 80 and 0 ticks: 80; 80 + 80 - 5 = 155; 155 - 10 = 145.
  Reception reception;
  EXPECT_EQ(JitterOf({0, 10000}, reception), 80u / 16);
  reception = Reception();
  EXPECT_EQ(JitterOf({0, 10000, 0}, reception), 155u / 16);
  reception = Reception();
  EXPECT_EQ(JitterOf({0, 10000, 0, 0}, reception), 145u / 16);
  EXPECT_EQ(reception.jitter_measure().maximum(), 9u);
  EXPECT_EQ(reception.jitter_measure().average(), (5u + 9u + 9u) / 3);
}

TEST(Jitter, TendsToTheMeanDifference) {
  std::vector<int> deviations;
  for (int i = 0; i < 400; ++i) deviations.push_back(i % 2 == 0 ? 0 : 5000);
  Reception reception;
  // 5 ms to and fro is 40 ticks at 8000 Hz, and 240 at 48000.
  EXPECT_NEAR(JitterOf(deviations, reception), 40, 1);
  Reception wide;
  EXPECT_NEAR(JitterOf(deviations, wide, 48000), 240, 1);
}

TEST(Jitter, IsNotMeasuredBetweenDifferentClocks) {
  Reception reception;
  JitterOf({0, 0}, reception);
  RtpHeader header;
  header.sequence_number = 2;
  header.timestamp = 77;
  reception.Count(header, 16000, TimePoint(seconds{1000} + microseconds{40000}));
  EXPECT_EQ(reception.jitter(), 0u);
}

}  // namespace
}  // namespace media_engine_test
