// Packet numbers as SRTP counts them.
#include "srtp_source.h"

#include <gtest/gtest.h>

#include <set>

namespace media_engine_test {
namespace {

using media_engine::NextSrtcpIndex;
using media_engine::SrtpIndexOf;
using media_engine::SrtpReplayList;

SrtpReplayList ListAt(uint64_t index) {
  SrtpReplayList list;
  list.Add(index);
  return list;
}

TEST(SrtpReplayList, HoldsNothingAtFirst) {
  const SrtpReplayList list, expecting = SrtpReplayList::WithRollovers(7), after = SrtpReplayList::After(9);
  for (const uint64_t index : {uint64_t{0}, uint64_t{1}, uint64_t{1} << 47}) {
    EXPECT_FALSE(list.Holds(index));
    EXPECT_FALSE(expecting.Holds(index));
    EXPECT_FALSE(after.Holds(index));
  }
}

TEST(SrtpReplayList, HoldsWhatCameAndWhatIsTooOldToTell) {
  // Steps of every kind: forwards by one, within the window, by just the window, far; backwards within it.
  for (const uint64_t step : {1u, 2u, 63u, 64u, 65u, 127u, 128u, 129u, 5000u}) {
    SrtpReplayList list;
    std::set<uint64_t> came;
    for (const uint64_t index : {uint64_t{1000}, uint64_t{990}, 1000 + step, 999 + step, 1000 + 2 * step}) {
      if (!list.Holds(index)) list.Add(index);
      came.insert(index);
      const uint64_t highest = *came.rbegin();
      EXPECT_EQ(list.highest(), highest);
      for (uint64_t i = 800; i <= highest + 10; ++i) {
        const bool too_old = i + SrtpReplayList::kWindow <= highest;
        EXPECT_EQ(list.Holds(i), too_old || came.count(i) != 0) << step << " " << index << " " << i;
      }
    }
  }
}

TEST(SrtpReplayList, ReachesAsFarAsPacketsMayBeOutOfOrder) {
  SrtpReplayList list = ListAt(500);
  EXPECT_FALSE(list.Holds(500 - (SrtpReplayList::kWindow - 1)));
  EXPECT_TRUE(list.Holds(500 - SrtpReplayList::kWindow));
  EXPECT_GE(SrtpReplayList::kWindow, 64u);  // RFC 3711, section 3.3.2
}

TEST(SrtpIndex, IsTheNearestToTheHighest) {
  const struct {
    uint64_t highest;
    uint16_t number;
    uint64_t index;
  } known[] = {
      {0x00005, 6, 0x00006},
      {0x00005, 4, 0x00004},
      {0x0ffff, 0, 0x10000},
      {0x0ffff, 0x7ffe, 0x17ffe},
      {0x0ffff, 0x7fff, 0x07fff},
      {0x10000, 0xffff, 0x0ffff},
      {0x10000, 0x8001, 0x08001},
      {0x10000, 0x8000, 0x18000},
      {0x27fff, 0xffff, 0x2ffff},
      {0x27ffe, 0xffff, 0x1ffff},
      {0x28000, 0x0000, 0x20000},
      {0x28001, 0x0000, 0x30000},
      {0xabcd1234ffff, 0, 0xabcd12350000},
  };
  for (const auto& one : known) EXPECT_EQ(SrtpIndexOf(ListAt(one.highest), one.number), one.index) << one.highest;
}

TEST(SrtpIndex, IsNeverBelowZero) {
  EXPECT_EQ(SrtpIndexOf(ListAt(5), 0xfffe), 0xfffeu);
  EXPECT_EQ(SrtpIndexOf(ListAt(0), 0x8001), 0x8001u);
}

TEST(SrtpIndex, OfTheFirstPacketHasTheRolloversThatAreExpected) {
  for (const uint16_t number : {0, 1, 0x7fff, 0x8000, 0xffff}) {
    EXPECT_EQ(SrtpIndexOf(SrtpReplayList(), number), number);
    EXPECT_EQ(SrtpIndexOf(SrtpReplayList::WithRollovers(3), number), (uint64_t{3} << 16) + number);
  }
}

TEST(SrtpIndex, OfTheFirstPacketIsNearTheOneThatCameElsewhere) {
  const SrtpReplayList list = SrtpReplayList::After(0x3fff0);
  EXPECT_EQ(SrtpIndexOf(list, 0xfff1), 0x3fff1u);
  EXPECT_EQ(SrtpIndexOf(list, 0xffef), 0x3ffefu);
  EXPECT_EQ(SrtpIndexOf(list, 0x0001), 0x40001u);
  EXPECT_EQ(SrtpIndexOf(SrtpReplayList::After(0x40001), 0xfff0), 0x3fff0u);
}

TEST(SrtpIndex, EndsWithTheLastRollover) {
  const uint64_t last = 0xffffffffffff;
  EXPECT_EQ(SrtpIndexOf(ListAt(last - 1), 0xffff), last);
  EXPECT_EQ(SrtpIndexOf(ListAt(last), 0), std::nullopt);
  EXPECT_EQ(SrtpIndexOf(ListAt(last), 0xfff0), last - 15);
}

TEST(SrtcpIndex, CountsFromOneToTheLastOf31Bits) {
  EXPECT_EQ(NextSrtcpIndex(SrtpReplayList()), 1u);
  EXPECT_EQ(NextSrtcpIndex(ListAt(1)), 2u);
  EXPECT_EQ(NextSrtcpIndex(ListAt(0x7ffffffe)), 0x7fffffffu);
  EXPECT_EQ(NextSrtcpIndex(ListAt(0x7fffffff)), std::nullopt);
}

}  // namespace
}  // namespace media_engine_test
