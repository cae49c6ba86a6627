// That a watch which is only looked at when it says so misses no silence.
#include "silence_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace media_engine_test {
namespace {

using media_engine::milliseconds;
using media_engine::seconds;
using media_engine::SilenceWatch;
using media_engine::TimePoint;
using Verdict = SilenceWatch::Verdict;

constexpr milliseconds kStep{100};
const TimePoint kStart{seconds{1000}};

struct Told {
  TimePoint when;
  Verdict verdict;
};

/// The same watch twice: looked at with every step, and when it asks for it.
class Pair {
 public:
  template <typename Change>
  void Both(const Change& change) {
    change(often_);
    change(seldom_);
  }
  /// Something was set that may bring a verdict forward.
  void LookSoon(TimePoint now) { next_ = std::min(next_, now + kStep); }
  void Step(TimePoint now, bool expected) {
    Look(often_, now, expected, told_often_);
    if (now < next_) return;
    Look(seldom_, now, expected, told_seldom_);
    next_ = std::max(seldom_.NextVerdict(now), now + kStep);
    ++looks_;
  }
  const std::vector<Told>& told_often() const { return told_often_; }
  const std::vector<Told>& told_seldom() const { return told_seldom_; }
  int looks() const { return looks_; }

 private:
  static void Look(SilenceWatch& watch, TimePoint now, bool expected, std::vector<Told>& told) {
    const Verdict verdict = watch.Check(now, expected);
    if (verdict != Verdict::kQuiet) told.push_back({now, verdict});
  }

  SilenceWatch often_, seldom_;
  std::vector<Told> told_often_, told_seldom_;
  TimePoint next_ = kStart;
  int looks_ = 0;
};

TEST(SilenceWatch, ThatIsLookedAtOnlyWhenItAsksForItTellsTheSameSilencesAtTheSameTime) {
  std::size_t silences = 0;
  for (unsigned seed = 1; seed <= 50; ++seed) {
    std::minstd_rand random(seed);
    const auto chance = [&random](unsigned of) { return random() % of == 0; };
    Pair pair;
    bool expected = true, talks = false;
    TimePoint now = kStart;
    for (int step = 0; step < 3000; ++step, now += kStep) {
      if (chance(200)) talks = !talks;
      if (talks) pair.Both([now](SilenceWatch& watch) { watch.Received(now); });
      if (chance(150)) {
        expected = !expected;
        pair.Both([now](SilenceWatch& watch) { watch.Restart(now); });
      }
      if (chance(100)) {
        const seconds inactive(random() % 4 * 5), pending(random() % 4 * 7);
        pair.Both([&](SilenceWatch& watch) {
          watch.SetInactiveTimeout(inactive);
          watch.SetPendingTimeout(pending);
          watch.Described(now);
        });
        pair.LookSoon(now);
      }
      pair.Step(now, expected);
    }
    silences += pair.told_often().size();
    ASSERT_EQ(pair.told_seldom().size(), pair.told_often().size()) << "seed " << seed;
    for (std::size_t i = 0; i < pair.told_often().size(); ++i) {
      EXPECT_EQ(pair.told_seldom()[i].verdict, pair.told_often()[i].verdict) << "seed " << seed;
      const auto late = pair.told_seldom()[i].when - pair.told_often()[i].when;
      EXPECT_TRUE(late >= milliseconds{0} && late <= kStep) << "seed " << seed << ", silence " << i;
    }
    EXPECT_LT(pair.looks(), 1000) << "seed " << seed;
  }
  EXPECT_GE(silences, 100u);
}

TEST(SilenceWatch, WithoutTimeoutsOrDescriptionThereIsNothingToLookFor) {
  SilenceWatch watch;
  EXPECT_EQ(watch.NextVerdict(kStart), TimePoint::max());
  watch.Described(kStart);
  EXPECT_EQ(watch.NextVerdict(kStart), TimePoint::max());
  watch.SetInactiveTimeout(seconds{5});
  EXPECT_EQ(watch.NextVerdict(kStart), kStart + seconds{5});
}

}  // namespace
}  // namespace media_engine_test
