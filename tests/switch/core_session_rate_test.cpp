#include "core/session_rate.h"

#include <gtest/gtest.h>

namespace kvx_switch {
namespace {

using std::chrono::milliseconds;

const SessionRate::Time kStart{std::chrono::hours(1)};

TEST(SessionRate, TakesWhatTheLimitAllowsWithinASecond) {
  SessionRate rate;
  rate.SetLimit(3);
  for (int leg = 0; leg < 3; ++leg) {
    EXPECT_EQ(rate.Refusal(kStart), "");
    rate.Count(kStart);
  }
  EXPECT_EQ(rate.Refusal(kStart + milliseconds(999)), "there were 3 new legs within a second, at most 3 may be");
  EXPECT_EQ(rate.Refusal(kStart + milliseconds(1000)), "");
}

TEST(SessionRate, SecondIsAnyAndNotOneOfTheClock) {
  SessionRate rate;
  rate.SetLimit(2);
  rate.Count(kStart + milliseconds(900));
  rate.Count(kStart + milliseconds(950));
  EXPECT_NE(rate.Refusal(kStart + milliseconds(1100)), "") << "the turn of a second makes no room";
  EXPECT_EQ(rate.Refusal(kStart + milliseconds(1900)), "") << "one of the two is a second ago";
}

TEST(SessionRate, TellsTheLastSecondAndThePeak) {
  SessionRate rate;
  for (int leg = 0; leg < 5; ++leg) rate.Count(kStart + milliseconds(100 * leg));
  const SessionRate::Figures busy = rate.At(kStart + milliseconds(400));
  EXPECT_EQ(busy.last_second, 5u);
  EXPECT_EQ(busy.limit, SessionRate::kUsualLimit);
  const SessionRate::Figures later = rate.At(kStart + milliseconds(1250));
  EXPECT_EQ(later.last_second, 2u);
  EXPECT_EQ(later.peak, 5u);
  EXPECT_EQ(rate.At(kStart + std::chrono::minutes(1)).last_second, 0u);
}

TEST(SessionRate, ResetForgetsLimitAndFigures) {
  SessionRate rate;
  rate.SetLimit(1);
  rate.Count(kStart);
  rate.Reset();
  EXPECT_EQ(rate.Refusal(kStart), "");
  EXPECT_EQ(rate.At(kStart).peak, 0u);
  EXPECT_EQ(rate.At(kStart).limit, SessionRate::kUsualLimit);
}

}  // namespace
}  // namespace kvx_switch
