#include "rtpengine/daemon_pulse.h"

#include <gtest/gtest.h>

namespace kelvaro::jsr309::rtpengine {
namespace {

using Change = DaemonPulse::Change;
using Request = DaemonPulse::Request;

/// A heartbeat of 1000 ms, so a ping each 250, by a clock of the test's own.
class DaemonPulseTest : public testing::Test {
 protected:
  Change Pass(int ms) {
    now_ += milliseconds(ms);
    return pulse_.TakeTime(now_);
  }
  Request Due() { return pulse_.TakeDue(now_); }
  void Answer() { pulse_.TakeAnswer(now_); }
  int Rest() const { return static_cast<int>((pulse_.Next() - now_) / milliseconds(1)); }
  static DaemonLife Life(int64_t uptime, int64_t given) { return {uptime, given}; }

  /// There, and with figures.
  void ComeToLife(const DaemonLife& life) {
    Answer();
    ASSERT_EQ(Due(), Request::kStatistics);
    ASSERT_EQ(pulse_.TakeLife(life), Change::kBack);
    while (Due() != Request::kNone) {
    }
    Answer();
  }
  /// Asks for figures when they are due and takes these.
  Change Look(const DaemonLife& life) {
    for (int i = 0; i < 1000; ++i, Pass(10)) {
      const Request due = Due();
      Answer();
      if (due == Request::kStatistics) return pulse_.TakeLife(life);
    }
    ADD_FAILURE() << "no statistics were asked for";
    return Change::kNone;
  }

  DaemonPulse pulse_{milliseconds(1000)};
  NgTime now_{std::chrono::hours(1)};
};

TEST_F(DaemonPulseTest, IsNeitherLostNorBackBeforeTheFirstAnswer) {
  EXPECT_FALSE(pulse_.alive());
  EXPECT_EQ(Due(), Request::kPing);
  EXPECT_EQ(Due(), Request::kNone);
  EXPECT_EQ(Pass(10000), Change::kNone);
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kNone);
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kNone);
  Answer();
  EXPECT_FALSE(pulse_.alive()) << "it might be restarted before anybody could tell";
  EXPECT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(pulse_.TakeLife(Life(5, 0)), Change::kBack);
  EXPECT_TRUE(pulse_.alive());
}

TEST_F(DaemonPulseTest, IsAskedAgainWhenItAnswersAndTellsNoFigures) {
  Answer();
  ASSERT_EQ(Due(), Request::kStatistics);
  pulse_.TakeNoLife();
  EXPECT_FALSE(pulse_.alive());
  EXPECT_EQ(Due(), Request::kPing);
  Answer();
  EXPECT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(pulse_.TakeLife(Life(1, 0)), Change::kBack);
}

TEST_F(DaemonPulseTest, PingsFourTimesAHeartbeatAndLooksAtStatisticsOnce) {
  ComeToLife(Life(5, 0));
  int pings = 0, statistics = 0;
  for (int ms = 0; ms < 4000; ms += 10, Pass(10)) {
    for (Request due = Due(); due != Request::kNone; due = Due()) {
      if (due == Request::kPing) ++pings;
      if (due == Request::kPing) continue;
      EXPECT_EQ(pulse_.TakeLife(Life(5 + ms, ++statistics)), Change::kNone);
    }
    Answer();
  }
  EXPECT_EQ(pings, 15);
  EXPECT_EQ(statistics, 3);
}

TEST_F(DaemonPulseTest, IsLostWhenNothingWasAnsweredForAHeartbeat) {
  ComeToLife(Life(5, 0));  // the last answer
  int silent = 0;
  for (Change change = Change::kNone; change == Change::kNone; ++silent) {
    ASSERT_LT(silent, 1001);
    while (Due() != Request::kNone) {
    }
    change = Pass(1);
  }
  EXPECT_EQ(silent, 1000);
  EXPECT_FALSE(pulse_.alive());
  EXPECT_EQ(pulse_.why(), "no answer for 1000 ms");
  EXPECT_EQ(Pass(5000), Change::kNone);
  pulse_.TakeNoLife();  // what was asked for last
  EXPECT_EQ(Look(Life(5, 1)), Change::kBack);
}

TEST_F(DaemonPulseTest, LivesOnAnyAnswer) {
  ComeToLife(Life(5, 0));
  for (int i = 0; i < 100; ++i) {
    while (Due() != Request::kNone) {
    }
    EXPECT_EQ(Pass(700), Change::kNone);
    Answer();
  }
}

TEST_F(DaemonPulseTest, IsNotLostWhenItWasNotEvenAsked) {
  ComeToLife(Life(5, 0));
  EXPECT_EQ(Pass(3600000), Change::kNone);  // this process was asleep
  EXPECT_TRUE(pulse_.alive());
  EXPECT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(Due(), Request::kPing);
  EXPECT_EQ(Pass(749), Change::kNone);
  EXPECT_EQ(Pass(1), Change::kLost);
}

TEST_F(DaemonPulseTest, AsksAtOnceAfterARefusalAndIsLostWithTheNext) {
  ComeToLife(Life(5, 0));
  EXPECT_EQ(Rest(), 250);
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kNone);
  EXPECT_EQ(Rest(), 0);
  EXPECT_EQ(Due(), Request::kPing);
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kLost);
  EXPECT_EQ(pulse_.why(), "nobody listens there any more");
}

TEST_F(DaemonPulseTest, ForgetsARefusalWithTheNextAnswer) {
  ComeToLife(Life(5, 0));
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kNone);
  Answer();
  EXPECT_EQ(pulse_.TakeRefusal(now_), Change::kNone);
}

TEST_F(DaemonPulseTest, SeesARestartByFiguresThatBeginAnew) {
  ComeToLife(Life(3600, 900));
  EXPECT_EQ(Look(Life(3601, 901)), Change::kNone);
  EXPECT_EQ(Look(Life(0, 0)), Change::kLostAndBack);
  EXPECT_EQ(pulse_.why(), "restarted: it has given statistics 0 times, after 901");
  EXPECT_TRUE(pulse_.alive());
  EXPECT_EQ(Look(Life(1, 1)), Change::kNone);
}

TEST_F(DaemonPulseTest, SeesTheRestartOfADaemonThatWasYoung) {
  ComeToLife(Life(0, 0));
  EXPECT_EQ(Look(Life(1, 0)), Change::kLostAndBack);
}

TEST_F(DaemonPulseTest, SeesARestartByTheUptimeWhereNothingElseTells) {
  ComeToLife({3600, std::nullopt});
  EXPECT_EQ(Look({3601, std::nullopt}), Change::kNone);
  EXPECT_EQ(Look({3601, std::nullopt}), Change::kNone);
  EXPECT_EQ(Look({4, std::nullopt}), Change::kLostAndBack);
  EXPECT_EQ(pulse_.why(), "restarted: it is up for 4 s, after 3601 s");
}

TEST_F(DaemonPulseTest, IsNotMisledByAClockThatIsSetBack) {
  ComeToLife(Life(3600, 900));
  EXPECT_EQ(Look(Life(10, 901)), Change::kNone);
}

TEST_F(DaemonPulseTest, ComparesNothingAcrossALoss) {
  ComeToLife(Life(3600, 900));
  pulse_.TakeRefusal(now_);
  ASSERT_EQ(pulse_.TakeRefusal(now_), Change::kLost);
  EXPECT_EQ(Look(Life(1, 0)), Change::kBack);
  EXPECT_EQ(Look(Life(2, 1)), Change::kNone);
}

TEST_F(DaemonPulseTest, LooksAtOnceWhenACallIsMissedAndForgivesADaemonThatHasLivedOn) {
  ComeToLife(Life(3600, 900));
  pulse_.Suspect();
  EXPECT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(pulse_.TakeLife(Life(3600, 901)), Change::kNone);
  EXPECT_TRUE(pulse_.alive());
}

TEST_F(DaemonPulseTest, TakesAMissedCallForARestartWhenNothingElseTells) {
  ComeToLife({});
  EXPECT_EQ(Look({}), Change::kNone);
  pulse_.Suspect();
  EXPECT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(pulse_.TakeLife({}), Change::kLostAndBack);
  EXPECT_EQ(pulse_.why(), "a call is not known any more");
  EXPECT_EQ(Look({}), Change::kNone);
}

TEST_F(DaemonPulseTest, JudgesAMissedCallByStatisticsThatWereAskedForAfterwards) {
  ComeToLife({});
  Pass(1000);
  ASSERT_EQ(Due(), Request::kStatistics);
  pulse_.Suspect();
  EXPECT_EQ(pulse_.TakeLife({}), Change::kNone);
  ASSERT_EQ(Due(), Request::kStatistics);
  EXPECT_EQ(pulse_.TakeLife({}), Change::kLostAndBack);
}

TEST_F(DaemonPulseTest, KeepsASuspicionWhenTheStatisticsAreLost) {
  ComeToLife({});
  pulse_.Suspect();
  ASSERT_EQ(Due(), Request::kStatistics);
  pulse_.TakeNoLife();
  EXPECT_EQ(Look({}), Change::kLostAndBack);
}

TEST_F(DaemonPulseTest, AsksForStatisticsOneAfterTheOther) {
  ComeToLife(Life(1, 1));
  Pass(1000);
  ASSERT_EQ(Due(), Request::kStatistics);
  Answer();
  for (int i = 0; i < 100; ++i, Pass(100)) {
    EXPECT_NE(Due(), Request::kStatistics);
    Answer();
  }
}

TEST(DaemonLifeTest, IsReadFromStatistics) {
  const Dictionary statistics{{"totalstatistics", Dictionary{{"uptime", "77"}}},
                              {"controlstatistics", Dictionary{{"totalstatscount", 12}}}};
  const DaemonLife life = ReadDaemonLife({{"result", "ok"}, {"statistics", statistics}});
  EXPECT_EQ(life.uptime, 77);
  EXPECT_EQ(life.statistics_given, 12);
  EXPECT_FALSE(ReadDaemonLife({{"result", "ok"}}).uptime);
  EXPECT_FALSE(ReadDaemonLife({{"statistics", Dictionary{}}}).statistics_given);
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
