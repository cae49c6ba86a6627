#include "rtpengine/leg_silence.h"

#include <gtest/gtest.h>

namespace {

using kelvaro::jsr309::rtpengine::LegSilence;
using kelvaro::jsr309::rtpengine::NgTime;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Verdict = LegSilence::Verdict;

NgTime At(int ms) {
  return NgTime() + std::chrono::hours(1) + milliseconds(ms);
}

class LegSilences : public testing::Test {
 protected:
  LegSilences() {
    silence_.SetInactiveTimeout(seconds(5));
    silence_.SetPendingTimeout(seconds(30));
    silence_.Described(At(0));
  }
  LegSilence silence_;
};

TEST_F(LegSilences, AreToldOnceAfterMediaAndOnceWithoutAny) {
  EXPECT_EQ(silence_.Check(At(29999), true), Verdict::kQuiet);
  EXPECT_EQ(silence_.Check(At(30000), true), Verdict::kPending);
  EXPECT_EQ(silence_.Check(At(90000), true), Verdict::kQuiet);
  silence_.Counted(1, At(100000));
  EXPECT_EQ(silence_.Check(At(104999), true), Verdict::kQuiet);
  EXPECT_EQ(silence_.Check(At(105000), true), Verdict::kInactive);
  EXPECT_EQ(silence_.Check(At(200000), true), Verdict::kQuiet);
  silence_.Counted(2, At(200000));
  EXPECT_EQ(silence_.Check(At(205000), true), Verdict::kInactive);
}

TEST_F(LegSilences, AreNoneWhereNothingIsExpectedAndBeginAnewAfterThat) {
  silence_.Counted(7, At(0));
  EXPECT_EQ(silence_.Check(At(60000), false), Verdict::kQuiet);
  silence_.Restart(At(60000));
  EXPECT_EQ(silence_.Check(At(64999), true), Verdict::kQuiet);
  EXPECT_EQ(silence_.Check(At(65000), true), Verdict::kInactive);
}

TEST_F(LegSilences, TheCountOfANewPortThatBeginsFromNothingIsNoMedia) {
  silence_.Counted(100, At(0));
  silence_.Counted(0, At(4000));
  EXPECT_EQ(silence_.Check(At(5000), true), Verdict::kInactive);
  silence_.Counted(1, At(6000));
  EXPECT_EQ(silence_.Check(At(10999), true), Verdict::kQuiet);
}

TEST_F(LegSilences, OfZeroSecondsAreOffAndNobodyLooks) {
  EXPECT_EQ(silence_.Interval(), milliseconds(625));
  silence_.SetInactiveTimeout(seconds(0));
  EXPECT_EQ(silence_.Interval(), milliseconds(3750));
  silence_.SetPendingTimeout(seconds(0));
  EXPECT_EQ(silence_.Interval(), milliseconds(0));
  EXPECT_EQ(silence_.Check(At(3600000), true), Verdict::kQuiet);
}

}  // namespace
