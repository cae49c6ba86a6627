#include "support/figures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/rate_search.h"
#include "support/report.h"

namespace bench {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Median, IsTheOneInTheMiddleOrTheMeanOfTwo) {
  EXPECT_EQ(Median({}), 0);
  EXPECT_EQ(Median({3}), 3);
  EXPECT_EQ(Median({9, 1, 2}), 2);
  EXPECT_EQ(Median({9, 1, 2, 4}), 3);
}

TEST(Spread, IsAShareOfTheMedian) {
  EXPECT_EQ(Spread({}), 0);
  EXPECT_DOUBLE_EQ(Spread({90, 100, 120}), 0.3);
}

Comparison Sample(double ours, double reference, double target, bool at_most) {
  Comparison out;
  out.id = "rate";
  out.what = "rate";
  out.unit = "packets/s";
  out.ours_name = "ours";
  out.reference_name = "theirs";
  out.ours = {ours};
  out.reference = {reference};
  out.target = target;
  out.at_most = at_most;
  return out;
}

TEST(Comparison, ReachesItsTargetFromTheRightSide) {
  EXPECT_TRUE(Sample(300, 200, 1.5, false).reached());
  EXPECT_FALSE(Sample(299, 200, 1.5, false).reached());
  EXPECT_TRUE(Sample(100, 200, 0.5, true).reached());
  EXPECT_FALSE(Sample(101, 200, 0.5, true).reached());
}

TEST(Comparison, HasNotRunWithoutBothSides) {
  Comparison one = Sample(3, 2, 1, false);
  EXPECT_TRUE(one.ran());
  one.reference.clear();
  EXPECT_FALSE(one.ran());
  EXPECT_FALSE(one.reached());
  one.absolute = true;
  EXPECT_TRUE(one.ran());
  one.failure = "the reference did not start";
  EXPECT_FALSE(one.ran());
}

TEST(Report, MarksWhatIsUnderTargetAndWhatDidNotRun) {
  Comparison failed = Sample(1, 1, 1, false);
  failed.failure = "no daemon";
  const std::string table = TableOf({Sample(300, 200, 1.5, false), Sample(1, 2, 1.5, false), failed});
  EXPECT_THAT(table, HasSubstr("1.50 x    >= 1.50       reached"));
  EXPECT_THAT(table, HasSubstr("0.50 x    >= 1.50       UNDER TARGET"));
  EXPECT_THAT(table, HasSubstr("NOT RUN"));
  EXPECT_THAT(table, HasSubstr("no daemon"));
}

TEST(Report, WritesTextsOfAnyKindAsJson) {
  Comparison one = Sample(1, 2, 0.5, true);
  one.note = "a \"quote\"\n";
  const std::string json = JsonOf({"today", "2 cores", "abc", "quick"}, {one});
  EXPECT_THAT(json, HasSubstr("\"note\": \"a \\\"quote\\\"\\u000a\""));
  EXPECT_THAT(json, HasSubstr("\"ratio\": 0.5, \"reached\": true"));
}

TEST(Report, EscapesTextsInThePlot) {
  Comparison one = Sample(1, 2, 0.5, true);
  one.what = "less < more";
  const std::string plot = PlotOf({"today", "2 cores", "abc", "quick"}, {one});
  EXPECT_THAT(plot, HasSubstr("less &lt; more"));
  EXPECT_THAT(plot, Not(HasSubstr("less < more")));
}

/// A relay that holds up to a limit, under a load that reaches another.
Highest SearchWith(double relay_limit, double load_limit, double guess) {
  SearchSettings settings;
  settings.guess = guess;
  return FindHighestRate(settings, [=](double rate) {
    if (rate > load_limit) return Trial::kLoadFails;
    return rate <= relay_limit ? Trial::kHolds : Trial::kFails;
  });
}

TEST(RateSearch, FindsTheLimitFromBelowAndFromAbove) {
  for (const double guess : {50000.0, 123456.0, 400000.0}) {
    const Highest found = SearchWith(123456, 1e9, guess);
    EXPECT_LE(found.rate, 123456) << guess;
    EXPECT_GE(found.rate, 123456 / 1.011) << guess;
    EXPECT_FALSE(found.by_the_load) << guess;
  }
}

TEST(RateSearch, TellsThatTheLoadWasTheLimit) {
  const Highest found = SearchWith(300000, 200000, 100000);
  EXPECT_TRUE(found.by_the_load);
  EXPECT_LE(found.rate, 200000);
  EXPECT_GT(found.rate, 150000);
}

TEST(RateSearch, FindsTheRelaysLimitBelowThatOfTheLoad) {
  const Highest found = SearchWith(100000, 200000, 400000);
  EXPECT_FALSE(found.by_the_load);
  EXPECT_LE(found.rate, 100000);
  EXPECT_GE(found.rate, 100000 / 1.011);
}

TEST(RateSearch, GivesASecondTrialToARateThatFails) {
  int trials = 0;
  SearchSettings settings;
  settings.guess = 1000;
  const Highest found = FindHighestRate(settings, [&](double rate) {
    ++trials;
    if (trials == 1) return Trial::kFails;
    return rate <= 1000 ? Trial::kHolds : Trial::kFails;
  });
  EXPECT_EQ(found.rate, 1000);
}

TEST(RateSearch, EndsWhenNothingHolds) {
  const Highest found = SearchWith(0, 1e9, 100000);
  EXPECT_EQ(found.rate, 0);
}

}  // namespace
}  // namespace bench
