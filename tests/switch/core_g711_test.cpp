// G.711 against the tables of the recommendation: characters, decision values and quantised values, built here from
// their definition in segments rather than from bit operations.

#include <g711.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

struct Interval {
  int low;    // smallest magnitude
  int high;   // one above the largest
  int value;  // what it decodes to
};

/// Table 2/G.711: 14-bit magnitudes, 8 segments of 16 intervals, the steps 2, 4, ... 256; the first interval is half.
std::vector<Interval> mu_law_intervals() {
  std::vector<Interval> intervals;
  int low = 0;
  for (int segment = 0; segment < 8; ++segment) {
    const int step = 2 << segment;
    for (int i = 0; i < 16; ++i) {
      const bool first = segment == 0 && i == 0;
      const int high = low + (first ? step / 2 : step);
      intervals.push_back({low, high, first ? 0 : (low + high) / 2});
      low = high;
    }
  }
  return intervals;
}

/// Table 1/G.711: 13-bit magnitudes, the steps 2, 2, 4, ... 128.
std::vector<Interval> a_law_intervals() {
  std::vector<Interval> intervals;
  int low = 0;
  for (int segment = 0; segment < 8; ++segment) {
    const int step = segment == 0 ? 2 : 1 << segment;
    for (int i = 0; i < 16; ++i) {
      intervals.push_back({low, low + step, low + step / 2});
      low += step;
    }
  }
  return intervals;
}

/// Number of the interval that a magnitude falls into; the last one takes what is above it.
int interval_of(const std::vector<Interval>& intervals, int magnitude) {
  for (size_t i = 0; i < intervals.size(); ++i) {
    if (magnitude < intervals[i].high) return static_cast<int>(i);
  }
  return static_cast<int>(intervals.size()) - 1;
}

TEST(G711, TablesEndWhereTheRecommendationSays) {
  EXPECT_EQ(mu_law_intervals().back().high, 8159);
  EXPECT_EQ(mu_law_intervals().back().value, 8031);
  EXPECT_EQ(a_law_intervals().back().high, 4096);
  EXPECT_EQ(a_law_intervals().back().value, 4032);
}

TEST(G711, EncodesEveryMuLawSampleByTheTable) {
  const auto intervals = mu_law_intervals();
  for (int sample = -32768; sample <= 32767; ++sample) {
    const int magnitude = (sample < 0 ? ~sample : sample) >> 2;
    const int expected = (sample < 0 ? 0x7F : 0xFF) - interval_of(intervals, magnitude);
    ASSERT_EQ(linear_to_ulaw(sample), expected) << sample;
  }
}

TEST(G711, EncodesEveryALawSampleByTheTable) {
  const auto intervals = a_law_intervals();
  for (int sample = -32768; sample <= 32767; ++sample) {
    // 13 bits with sign: magnitudes below 4096.
    const int magnitude = (sample < 0 ? ~sample : sample) >> 3;
    const int expected = (interval_of(intervals, magnitude) | (sample < 0 ? 0 : 0x80)) ^ 0x55;
    ASSERT_EQ(linear_to_alaw(sample), expected) << sample;
  }
}

TEST(G711, DecodesEveryMuLawCharacterByTheTable) {
  const auto intervals = mu_law_intervals();
  for (int code = 0; code < 128; ++code) {
    EXPECT_EQ(ulaw_to_linear(static_cast<uint8_t>(0xFF - code)), intervals[static_cast<size_t>(code)].value * 4);
    EXPECT_EQ(ulaw_to_linear(static_cast<uint8_t>(0x7F - code)), intervals[static_cast<size_t>(code)].value * -4);
  }
}

TEST(G711, DecodesEveryALawCharacterByTheTable) {
  const auto intervals = a_law_intervals();
  for (int code = 0; code < 128; ++code) {
    EXPECT_EQ(alaw_to_linear(static_cast<uint8_t>((code | 0x80) ^ 0x55)),
              intervals[static_cast<size_t>(code)].value * 8);
    EXPECT_EQ(alaw_to_linear(static_cast<uint8_t>(code ^ 0x55)), intervals[static_cast<size_t>(code)].value * -8);
  }
}

TEST(G711, DecodingAndEncodingAgainKeepsEveryCharacter) {
  for (int code = 0; code < 256; ++code) {
    const auto octet = static_cast<uint8_t>(code);
    EXPECT_EQ(linear_to_alaw(alaw_to_linear(octet)), octet);
    // mu-law has two zeros; the negative one comes back as the positive.
    EXPECT_EQ(linear_to_ulaw(ulaw_to_linear(octet)), octet == 0x7F ? 0xFF : octet);
  }
}

TEST(G711, ClipsWhatDoesNotFitSixteenBits) {
  EXPECT_EQ(linear_to_ulaw(1000000), linear_to_ulaw(32767));
  EXPECT_EQ(linear_to_ulaw(-1000000), linear_to_ulaw(-32768));
  EXPECT_EQ(linear_to_alaw(1000000), linear_to_alaw(32767));
  EXPECT_EQ(linear_to_alaw(-1000000), linear_to_alaw(-32768));
}

}  // namespace
