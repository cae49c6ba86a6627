// The jitter buffer with a fixed delay: order, times, what is too late, what begins anew.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <set>

#include "jitter_line.h"

namespace media_engine_test {
namespace {

using std::chrono::microseconds;
using Verdict = JitterBuffer::Verdict;
using media_engine::milliseconds;
using Numbers = std::vector<uint16_t>;

TEST(JitterBuffer, PlaysAsEvenlyAsWasSentHoweverUnevenlyItCame) {
  JitterLine line(StaticBuffer(60));
  const int transits[] = {0, 35, 12, 59, 3, 41, 0, 27, 18, 55};
  for (uint16_t i = 0; i < 200; ++i) {
    EXPECT_EQ(line.Arrive20ms(i, milliseconds{transits[i % 10]}), Verdict::kHeld);
  }
  line.PlayAll();
  ASSERT_EQ(line.played().size(), 200u);
  for (uint16_t i = 0; i < 200; ++i) {
    EXPECT_EQ(line.played()[i].number, i);
    EXPECT_EQ(line.played()[i].at, milliseconds{60 + 20 * i}) << i;
    EXPECT_EQ(line.played()[i].payload, PayloadOf(i));
  }
}

TEST(JitterBuffer, NothingIsPlayedBeforeItsTime) {
  JitterLine line(StaticBuffer(50));
  line.Arrive20ms(0, milliseconds{7});
  line.PlayUntil(milliseconds{57} - microseconds{1});
  EXPECT_TRUE(line.played().empty());
  line.PlayUntil(milliseconds{57});
  EXPECT_EQ(line.Numbers(), Numbers{0});
}

TEST(JitterBuffer, PutsReorderedPacketsBackInPlaceAndCountsThem) {
  JitterLine line(StaticBuffer(60));
  // Numbers and timestamps wrap on the way.
  const std::pair<uint16_t, int> arrivals[] = {{65530, 0},  {65531, 20}, {65534, 80}, {65532, 81},
                                               {65533, 95}, {1, 140},    {0, 141},    {65535, 142}};
  for (const auto& [number, at] : arrivals) {
    const uint32_t timestamp = 4294967000u + 160u * static_cast<uint16_t>(number - 65530);
    EXPECT_EQ(line.Arrive(milliseconds{at}, {0, number, timestamp, 1, false, {}}), Verdict::kHeld) << number;
  }
  line.PlayAll();
  EXPECT_EQ(line.Numbers(), (Numbers{65530, 65531, 65532, 65533, 65534, 65535, 0, 1}));
  EXPECT_EQ(line.Counters().jitter_buffer_reordered, 4u);
  EXPECT_EQ(line.Counters().jitter_buffer_late, 0u);
}

TEST(JitterBuffer, DropsAndCountsWhatComesLaterThanItsTime) {
  JitterLine line(StaticBuffer(40));
  EXPECT_EQ(line.Arrive20ms(0, milliseconds{0}), Verdict::kHeld);
  EXPECT_EQ(line.Arrive20ms(1, milliseconds{40}), Verdict::kHeld);  // just in time
  EXPECT_EQ(line.Arrive20ms(2, milliseconds{40} + microseconds{1}), Verdict::kLate);
  EXPECT_EQ(line.Arrive20ms(3, milliseconds{30}), Verdict::kHeld);
  line.PlayAll();
  EXPECT_EQ(line.Numbers(), (Numbers{0, 1, 3}));
  // Behind one that was played.
  EXPECT_EQ(line.Arrive20ms(2, milliseconds{200}), Verdict::kLate);
  EXPECT_EQ(line.Counters().jitter_buffer_late, 2u);
  EXPECT_EQ(line.Counters().jitter_buffer_reordered, 0u);
}

TEST(JitterBuffer, ALostPacketIsNotWaitedFor) {
  JitterLine line(StaticBuffer(40));
  for (uint16_t number : {0, 1, 4, 5}) line.Arrive20ms(number, milliseconds{0});
  line.PlayAll();
  EXPECT_EQ(line.Numbers(), (Numbers{0, 1, 4, 5}));
  EXPECT_EQ(line.played()[2].at, milliseconds{120});
}

TEST(JitterBuffer, PlaysNothingTwice) {
  JitterLine line(StaticBuffer(40));
  EXPECT_EQ(line.Arrive20ms(0, milliseconds{0}), Verdict::kHeld);
  EXPECT_EQ(line.Arrive20ms(0, milliseconds{1}), Verdict::kDuplicate);  // while it is held
  for (uint16_t number = 1; number < 10; ++number) line.Arrive20ms(number, milliseconds{1});
  line.PlayAll();
  EXPECT_EQ(line.Arrive20ms(3, milliseconds{900}), Verdict::kDuplicate);  // after it was played
  EXPECT_EQ(line.Counters().jitter_buffer_duplicates, 2u);
  EXPECT_EQ(line.Counters().jitter_buffer_late, 0u);
  EXPECT_EQ(line.played().size(), 10u);
}

TEST(JitterBuffer, AnotherSourceBeginsAnewBehindWhatIsHeld) {
  // Its numbers have nothing to do with those before, even where they are the same.
  for (const uint16_t first : {7, 40002, 39990, 65535}) {
    JitterLine line(StaticBuffer(60));
    for (uint16_t number : {40000, 40001, 40002}) {
      line.Arrive(milliseconds{20 * (number - 40000)}, {0, number, 160u * number, 1, false, PayloadOf(number)});
    }
    // The first two have changed places.
    const uint16_t second = first + 1, third = first + 2;
    line.Arrive(milliseconds{50}, {0, second, 5160, 2, false, PayloadOf(second)});
    line.Arrive(milliseconds{55}, {0, first, 5000, 2, true, PayloadOf(first)});
    line.Arrive(milliseconds{70}, {0, third, 5320, 2, false, PayloadOf(third)});
    line.PlayAll();
    EXPECT_EQ(line.Numbers(), (Numbers{40000, 40001, 40002, first, second, third}));
    ASSERT_EQ(line.played().size(), 6u);
    EXPECT_EQ(line.played()[4].at, milliseconds{50 + 60});
    EXPECT_EQ(line.played()[5].at, milliseconds{70 + 60});
    EXPECT_EQ(line.Counters().jitter_buffer_late, 0u);
  }
}

TEST(JitterBuffer, ANewNumberingOfTheSameSourceLosesNothing) {
  JitterLine line(StaticBuffer(60));
  Numbers expected;
  uint32_t at = 0;
  for (uint16_t number : {500, 501, 30000, 30001, 20, 21}) {
    EXPECT_EQ(line.Arrive(milliseconds{at}, {0, number, 8 * at, 1, false, PayloadOf(number)}), Verdict::kHeld);
    expected.push_back(number);
    at += 20;
  }
  line.PlayAll();
  EXPECT_EQ(line.Numbers(), expected);
  for (const auto& one : line.played()) EXPECT_EQ(one.held, milliseconds{60}) << one.number;
}

TEST(JitterBuffer, TimestampsThatLeapBeginAnewWithoutALoss) {
  for (const int32_t leap : {8000 * 3600, -8000 * 3600, 8000 * 3, -8000 * 3, 0x7fffff00}) {
    JitterLine line(StaticBuffer(60));
    for (uint16_t number = 0; number < 20; ++number) {
      const uint32_t timestamp = 160u * number + (number < 10 ? 0u : static_cast<uint32_t>(leap));
      EXPECT_EQ(line.Arrive(milliseconds{20 * number}, {0, number, timestamp, 1, false, {}}), Verdict::kHeld) << leap;
    }
    line.PlayAll();
    ASSERT_EQ(line.played().size(), 20u) << leap;
    for (const auto& one : line.played()) EXPECT_EQ(one.held, milliseconds{60}) << leap << ", " << one.number;
  }
}

TEST(JitterBuffer, AnotherClockRateBeginsAnew) {
  JitterLine line(StaticBuffer(60));
  for (uint16_t number = 0; number < 20; ++number) {
    const uint32_t rate = number < 10 ? 8000 : 16000;
    EXPECT_EQ(line.Arrive(milliseconds{20 * number}, {0, number, rate / 50 * number, 1, false, {}}, rate),
              Verdict::kHeld);
  }
  line.PlayAll();
  for (const auto& one : line.played()) EXPECT_EQ(one.held, milliseconds{60}) << one.number;
}

TEST(JitterBuffer, TimestampsThatStoodStillDuringASilenceLoseNothing) {
  JitterLine line(StaticBuffer(60));
  for (uint16_t number = 0; number < 10; ++number) {
    EXPECT_EQ(line.Arrive(milliseconds{20 * number}, {0, number, 160u * number, 1, false, {}}), Verdict::kHeld);
  }
  for (uint16_t number = 10; number < 20; ++number) {
    EXPECT_EQ(line.Arrive(milliseconds{1500 + 20 * number}, {0, number, 160u * number, 1, number == 10, {}}),
              Verdict::kHeld);
  }
  line.PlayAll();
  for (const auto& one : line.played()) EXPECT_EQ(one.held, milliseconds{60}) << one.number;
}

TEST(JitterBuffer, AWayThatBecameLongerForGoodIsTakenAfterAQuarterOfASecond) {
  JitterLine line(StaticBuffer(60));
  for (uint16_t number = 0; number < 100; ++number) line.Arrive20ms(number, milliseconds{0});
  for (uint16_t number = 100; number < 200; ++number) line.Arrive20ms(number, milliseconds{300});
  line.PlayAll();
  EXPECT_EQ(line.Counters().jitter_buffer_late, 13u);
  EXPECT_EQ(line.played().size(), 187u);
  EXPECT_EQ(line.played().back().held, milliseconds{60});
}

TEST(JitterBuffer, AHoldUpOfTheNetworkDoesNotMoveTheDelay) {
  JitterLine line(StaticBuffer(60));
  for (uint16_t number = 0; number < 100; ++number) line.Arrive20ms(number, milliseconds{0});
  // Fifteen come at once, when the last of them was sent.
  for (uint16_t number = 100; number < 115; ++number) line.Arrive20ms(number, milliseconds{20 * (114 - number)});
  for (uint16_t number = 115; number < 130; ++number) line.Arrive20ms(number, milliseconds{0});
  line.PlayAll();
  EXPECT_EQ(line.Counters().jitter_buffer_late, 11u);  // those that were more than 60 ms late
  EXPECT_EQ(line.played().back().at, milliseconds{129 * 20 + 60});
}

TEST(JitterBuffer, FollowsClocksThatDriftApart) {
  for (const int parts_per_million : {300, -300}) {
    JitterLine line(StaticBuffer(40));
    for (uint32_t i = 0; i < 1800u * 50; ++i) {
      const microseconds at{int64_t{i} * (20000 + 20000 * parts_per_million / 1000000)};
      ASSERT_EQ(line.Arrive(at, {0, static_cast<uint16_t>(i), 160 * i, 1, false, {}}), Verdict::kHeld) << i;
      if (line.played().size() > 1) {
        ASSERT_GT(line.played().back().held, milliseconds{35}) << i;
        ASSERT_LT(line.played().back().held, milliseconds{45}) << i;
      }
    }
  }
}

TEST(JitterBuffer, NothingIsHeldLongerThanTheMaximum) {
  JitterLine line(StaticBuffer(60, 80));
  line.Arrive20ms(0, milliseconds{70});  // the first was slow: the others seem early
  for (uint16_t number = 1; number < 60; ++number) {
    line.Arrive20ms(number, milliseconds{number < 4 ? 70 - 20 * number + 5 : 0});
  }
  line.PlayAll();
  for (const auto& one : line.played()) {
    EXPECT_LE(one.held, milliseconds{80}) << one.number;
    EXPECT_GE(one.held, milliseconds{0}) << one.number;
  }
  EXPECT_EQ(line.played().size(), 60u);
  EXPECT_EQ(line.played().back().held, milliseconds{60});
}

TEST(JitterBuffer, AFloodFindsNoRoomAndIsCounted) {
  JitterLine line(StaticBuffer(100, 100));
  unsigned held = 0;
  for (uint16_t number = 0; number < 1000; ++number) {
    held += line.Arrive(milliseconds{0}, {0, number, 0, 1, false, PayloadOf(number)}) == Verdict::kHeld;
  }
  EXPECT_EQ(held, 28u);  // 100 ms of 5 ms packets, and some to spare
  EXPECT_EQ(line.Counters().jitter_buffer_overflows, 972u);
  line.PlayAll();
  EXPECT_EQ(line.played().size(), 28u);
  EXPECT_EQ(line.Arrive(milliseconds{500}, {0, 1000, 4000, 1, false, {}}), Verdict::kHeld);
}

TEST(JitterBuffer, PayloadsOfAnyLengthComeOutAsTheyWere) {
  JitterLine line(StaticBuffer(60));
  std::map<uint16_t, Bytes> sent;
  std::minstd_rand random(5);
  for (uint16_t number = 0; number < 300; ++number) {
    const std::size_t length = number % 7 == 0 ? 2000 : random() % 700;
    sent[number] = PayloadOf(number, length);
    EXPECT_EQ(line.Arrive(milliseconds{20 * number}, {0, number, 160u * number, 1, false, sent[number]}),
              Verdict::kHeld);
  }
  line.PlayAll();
  ASSERT_EQ(line.played().size(), 300u);
  for (const auto& one : line.played()) EXPECT_EQ(one.payload, sent[one.number]) << one.number;
}

TEST(JitterBuffer, WhatIsDiscardedIsCountedAndNeverPlayed) {
  JitterLine line(StaticBuffer(60));
  for (uint16_t number = 0; number < 3; ++number) line.Arrive20ms(number, milliseconds{0});
  line.Discard();
  line.PlayUntil(milliseconds{1000});
  EXPECT_TRUE(line.played().empty());
  EXPECT_EQ(line.Counters().jitter_buffer_discarded, 3u);
  // The same numbers again, as a far end that goes on.
  EXPECT_EQ(line.Arrive(milliseconds{1000}, {0, 2, 320, 1, false, {}}), Verdict::kHeld);
  line.PlayAll();
  EXPECT_EQ(line.played().at(0).held, milliseconds{60});
}

/// When a packet came, as its payload.
Bytes TimeAsPayload(microseconds at) {
  Bytes payload(sizeof(int64_t));
  const int64_t count = at.count();
  std::memcpy(payload.data(), &count, sizeof count);
  return payload;
}
microseconds PayloadAsTime(const Bytes& payload) {
  int64_t count = -1;
  if (payload.size() == sizeof count) std::memcpy(&count, payload.data(), sizeof count);
  return microseconds(count);
}

TEST(JitterBuffer, AnythingThatComesIsHeldOrCountedAndNothingWaitsTooLong) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    JitterLine line(seed % 2 == 0 ? StaticBuffer(40, 120) : AdaptiveBuffer(40, 10, 120));
    std::minstd_rand random(seed + 1);
    microseconds at{0};
    uint16_t number = 0;
    uint32_t timestamp = 0;
    uint64_t sent = 0;
    for (; sent < 3000; ++sent) {
      at += microseconds(1 + random() % 30000);
      number = static_cast<uint16_t>(random() % 50 == 0 ? random() : number + random() % 4 - 1);
      timestamp = random() % 50 == 0 ? static_cast<uint32_t>(random()) * 3 : timestamp + random() % 320;
      const uint32_t rates[] = {8000, 8000, 8000, 0, 2147483647};
      const uint32_t ssrc = random() % 200 == 0 ? 2 : 1;
      line.Arrive(at, {0, number, timestamp, ssrc, random() % 20 == 0, TimeAsPayload(at)},
                  rates[random() % (seed % 3 == 0 ? 5 : 4)]);
    }
    line.PlayAll();
    const auto counters = line.Counters();
    EXPECT_EQ(line.played().size() + counters.jitter_buffer_late + counters.jitter_buffer_duplicates +
                  counters.jitter_buffer_overflows,
              sent);
    std::set<microseconds> seen;
    for (const auto& one : line.played()) {
      const microseconds came = PayloadAsTime(one.payload);
      EXPECT_TRUE(seen.insert(came).second);
      ASSERT_GE(one.at, came) << "seed " << seed;
      ASSERT_LE(one.at - came, milliseconds{120}) << "seed " << seed;
    }
  }
}

// An event's packets all carry the time of its beginning (RFC 4733, section 2.5.1.2).
class JitterBufferEvents : public testing::Test {
 protected:
  Verdict Event(int at_ms, uint16_t number, uint16_t duration, bool end, bool marker = false) {
    const uint8_t flags = end ? 0x8a : 0x0a;
    return line_.Arrive(milliseconds{at_ms},
                        {101,
                         number,
                         160 * 5,
                         1,
                         marker,
                         {5, flags, static_cast<uint8_t>(duration >> 8), static_cast<uint8_t>(duration)}},
                        0);
  }
  JitterLine line_{StaticBuffer(60)};
};

TEST_F(JitterBufferEvents, AllPacketsOfAnEventComeThroughInOrderAndSoDoesTheSpeechAround) {
  for (uint16_t number = 0; number < 5; ++number) line_.Arrive20ms(number, milliseconds{0});
  for (uint16_t i = 0; i < 40; ++i) {  // 800 ms, longer than any delay
    EXPECT_EQ(
        Event(100 + 20 * i + (i % 5) * 9, static_cast<uint16_t>(5 + i), static_cast<uint16_t>(160 * i), false, i == 0),
        Verdict::kHeld);
  }
  // The end is sent three times (section 2.5.1.4): here at once.
  for (uint16_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Event(910, static_cast<uint16_t>(45 + i), 6400, true), Verdict::kHeld);
  }
  for (uint16_t i = 0; i < 10; ++i) {
    const auto number = static_cast<uint16_t>(48 + i);
    EXPECT_EQ(line_.Arrive(milliseconds{920 + 20 * i}, {0, number, 8u * (920 + 20 * i), 1, i == 0, PayloadOf(number)}),
              Verdict::kHeld);
  }
  line_.PlayAll();
  Numbers all(58);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(line_.Numbers(), all);
  EXPECT_EQ(line_.played()[47].payload, (Bytes{5, 0x8a, 0x19, 0x00}));
  for (const auto& one : line_.played()) EXPECT_LE(one.held, milliseconds{60}) << one.number;
  EXPECT_EQ(line_.played().back().held, milliseconds{60});
}

TEST_F(JitterBufferEvents, RepeatedEndsThatCome20MillisecondsApartAreAllPlayed) {
  line_.Arrive20ms(4, milliseconds{0});
  for (uint16_t i = 0; i < 3; ++i)
    EXPECT_EQ(Event(400 + 20 * i, static_cast<uint16_t>(5 + i), 1600, true), Verdict::kHeld);
  line_.PlayAll();
  EXPECT_EQ(line_.Numbers(), (Numbers{4, 5, 6, 7}));
  EXPECT_EQ(line_.played()[3].at - line_.played()[1].at, milliseconds{40});
}

TEST_F(JitterBufferEvents, OvertakenEventPacketsGetTheirPlaceBack) {
  line_.Arrive20ms(4, milliseconds{0});
  EXPECT_EQ(Event(100, 5, 0, false, true), Verdict::kHeld);
  EXPECT_EQ(Event(120, 7, 320, true), Verdict::kHeld);
  EXPECT_EQ(Event(130, 6, 160, false), Verdict::kHeld);
  line_.PlayAll();
  EXPECT_EQ(line_.Numbers(), (Numbers{4, 5, 6, 7}));
  EXPECT_EQ(line_.Counters().jitter_buffer_reordered, 1u);
}

TEST_F(JitterBufferEvents, AnEventThatCameSlowlyDoesNotHoldUpTheSpeechBehindIt) {
  for (uint16_t number = 0; number < 5; ++number) line_.Arrive20ms(number, milliseconds{0});
  EXPECT_EQ(Event(100 + 50, 5, 0, true, true), Verdict::kHeld);
  EXPECT_EQ(line_.Arrive20ms(6, milliseconds{31}), Verdict::kHeld);
  line_.PlayAll();
  EXPECT_EQ(line_.Numbers(), (Numbers{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(line_.played().back().at, milliseconds{6 * 20 + 60});
}

TEST_F(JitterBufferEvents, ACallMayBeginWithAnEvent) {
  EXPECT_EQ(Event(0, 5, 0, false, true), Verdict::kHeld);
  EXPECT_EQ(Event(20, 6, 160, true), Verdict::kHeld);
  EXPECT_EQ(line_.Arrive(milliseconds{40}, {0, 7, 4242, 1, true, {}}), Verdict::kHeld);
  line_.PlayAll();
  EXPECT_EQ(line_.Numbers(), (Numbers{5, 6, 7}));
  for (const auto& one : line_.played()) EXPECT_EQ(one.held, milliseconds{60});
}

}  // namespace
}  // namespace media_engine_test
