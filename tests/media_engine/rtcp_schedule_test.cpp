// The times of reports: RFC 3550, sections 6.2, 6.3 and A.7.
#include "rtcp_schedule.h"

#include <gtest/gtest.h>

#include "far_end.h"

namespace media_engine_test {
namespace {

using media_engine::RtcpInterval;
using media_engine::RtcpLoad;
using media_engine::RtcpSchedule;
using media_engine::TimePoint;
using std::chrono::milliseconds;
using std::chrono::seconds;

uint32_t drawn = 0;
uint32_t Drawn() {
  return drawn;
}
constexpr uint32_t kLeast = 0, kMiddle = 0x80000000, kMost = 0xffffffff;

TimePoint At(int64_t ms) {
  return TimePoint(seconds{1000} + milliseconds{ms});
}

TEST(RtcpInterval, GivesAFewSendersAQuarterOfTheBandwidth) {
  // A.7 by hand. Two of ten send, which is not more than a quarter.
  const RtcpLoad receiver{10, 2, false, 1000};
  const RtcpLoad sender{10, 2, true, 1000};
  EXPECT_DOUBLE_EQ(RtcpInterval(receiver, 1000, false), 1000.0 * 8 / 750);  // eight receivers share three quarters
  EXPECT_DOUBLE_EQ(RtcpInterval(sender, 1000, false), 1000.0 * 2 / 250);    // two senders share one
}

TEST(RtcpInterval, SharesAmongAllWhenManySend) {
  EXPECT_DOUBLE_EQ(RtcpInterval({2, 2, true, 100}, 400, false), 8);
  EXPECT_DOUBLE_EQ(RtcpInterval({2, 1, false, 100}, 400, false), 8);
}

TEST(RtcpInterval, IsFiveSecondsAtLeastAndHalfOfThatBeforeTheFirstReport) {
  const RtcpLoad two{2, 2, true, 500};
  EXPECT_DOUBLE_EQ(RtcpInterval(two, 120, false), 5);
  EXPECT_DOUBLE_EQ(RtcpInterval(two, 120, true), 2.5);
  EXPECT_DOUBLE_EQ(RtcpInterval({1, 0, false, 0}, 120, false), 5);  // no bandwidth known
}

TEST(RtcpBandwidth, IsATwentiethOfTheCodecWithItsHeaders) {
  // 50 packets of 160 octets and 40 of headers a second: 10000 octets.
  media_engine::Codec codec = Pcmu();
  EXPECT_DOUBLE_EQ(media_engine::RtcpBandwidth(&codec, 28), 500);
  EXPECT_DOUBLE_EQ(media_engine::RtcpBandwidth(&codec, 48), 550);
  codec.packet_time_ms = 40;
  EXPECT_DOUBLE_EQ(media_engine::RtcpBandwidth(&codec, 28), 450);
  codec.bit_rate = 0;
  EXPECT_DOUBLE_EQ(media_engine::RtcpBandwidth(&codec, 28), 100);
  EXPECT_DOUBLE_EQ(media_engine::RtcpBandwidth(nullptr, 28), 150);
}

class Schedule : public testing::Test {
 protected:
  /// The first millisecond after `from` at which a report goes.
  int64_t NextReport(RtcpSchedule& schedule, int64_t from, int64_t until = 20000) const {
    for (int64_t ms = from + 1; ms <= until; ++ms) {
      if (schedule.Expire(load_, At(ms))) return ms;
    }
    return -1;
  }
  RtcpSchedule Started() const {
    RtcpSchedule schedule(Drawn);
    schedule.Start(load_, 120, At(0));
    return schedule;
  }

  RtcpLoad load_{2, 2, true, 500};
};

TEST_F(Schedule, TheFirstReportComesWithinTheBoundsOfTheHalvedInterval) {
  // 2.5 s, half to one and a half times, by e - 3/2.
  drawn = kLeast;
  RtcpSchedule early = Started();
  EXPECT_EQ(NextReport(early, 0), 1027);
  drawn = kMost;
  RtcpSchedule late = Started();
  EXPECT_EQ(NextReport(late, 0), 3079);
}

TEST_F(Schedule, TheOthersComeWithinTheBoundsOfFiveSeconds) {
  for (const auto& [draw, expected] : {std::pair{kLeast, 2053}, {kMiddle, 4105}, {kMost, 6157}}) {
    drawn = draw;
    RtcpSchedule schedule = Started();
    const int64_t first = NextReport(schedule, 0);
    schedule.Reported(load_, 120, At(first));
    EXPECT_EQ(NextReport(schedule, first) - first, expected);
  }
}

TEST_F(Schedule, IsPutOffWhenTheIntervalDrawnAgainIsLonger) {
  drawn = kLeast;
  RtcpSchedule schedule = Started();
  drawn = kMost;
  EXPECT_FALSE(schedule.Expire(load_, At(1027)));
  drawn = kLeast;
  // Now it is the later time that counts.
  EXPECT_EQ(NextReport(schedule, 1027), 3079);
}

TEST_F(Schedule, AnEarlierDrawAtTheTimeItselfChangesNothing) {
  drawn = kMost;
  RtcpSchedule schedule = Started();
  drawn = kLeast;
  EXPECT_EQ(NextReport(schedule, 0), 3079);
}

TEST_F(Schedule, LongReportsThroughLittleBandwidthComeLessOften) {
  drawn = kMiddle;
  load_.bandwidth = 20;  // 120 octets of each of two: 12 s
  RtcpSchedule schedule = Started();
  const int64_t first = NextReport(schedule, 0);
  EXPECT_EQ(first, 9850);  // 12 / 1.21828
  // The mean moves by a sixteenth of the difference: to 120 + 160 / 16.
  schedule.Reported(load_, 280, At(first));
  EXPECT_NEAR(static_cast<double>(NextReport(schedule, first, 40000) - first), 13000 / 1.21828, 1);
}

TEST_F(Schedule, WhenTheFarEndLeavesWhatRemainsIsHalved) {
  drawn = kMost;
  RtcpSchedule schedule = Started();  // with two members
  load_.members = load_.senders = 1;
  // 3078 due, at 1000: 2078 remain of 3078, half of it is 1039; and the last report moves up to 500.
  schedule.FarEndLeft(At(1000));
  schedule.FarEndLeft(At(1000));  // nobody is left to leave
  drawn = kLeast;
  EXPECT_EQ(NextReport(schedule, 1000), 2040);
}

TEST_F(Schedule, NothingIsDueBeforeTheStart) {
  RtcpSchedule schedule(Drawn);
  EXPECT_FALSE(schedule.started());
  EXPECT_FALSE(schedule.Expire(load_, At(1000000)));
  schedule.FarEndLeft(At(5));
  EXPECT_FALSE(schedule.Expire(load_, At(1000000)));
}

TEST_F(Schedule, WhatCouldNotBeSentLeavesTheFirstReportTheFirst) {
  drawn = kMiddle;
  RtcpSchedule schedule = Started();
  const int64_t first = NextReport(schedule, 0);
  schedule.Reported(load_, 0, At(first));
  EXPECT_EQ(NextReport(schedule, first) - first, 2053);
}

}  // namespace
}  // namespace media_engine_test
