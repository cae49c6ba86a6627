// G.711 as the recommendation's tables define it (ITU-T G.711, 11/1988, tables 1 and 2): segments of equal steps, a
// decision value between neighbours, and the value halfway between as what a code stands for. Built here from the steps
// alone, in units of 16-bit linear samples, and compared with what the codec callbacks make of every sample and code.

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "codecs.h"
#include "module/module_fixture.h"

namespace module_test {

namespace {

/// What one code stands for: every sample between the two, both included, may have it.
struct CodeValue {
  int lowest = 0;
  int highest = 0;
  int value = 0;
};
using CodeTable = std::array<CodeValue, 256>;

/// A segment: so many intervals of that width.
struct Segment {
  int intervals;
  int width;
};

constexpr int kFullScale = 32768;

/// Fills both halves of the table. `code_of(positive, n)` is the code of the n-th interval from zero.
template <typename CodeOf>
CodeTable make_table(const std::vector<Segment>& segments, bool first_means_zero, CodeOf code_of) {
  CodeTable table;
  int n = 0;
  int edge = 0;
  for (const Segment& segment : segments) {
    for (int i = 0; i < segment.intervals; ++i, ++n) {
      const int next = edge + segment.width;
      const int value = first_means_zero && n == 0 ? 0 : (edge + next) / 2;
      const int end = n == 127 ? kFullScale : next;  // everything louder has the last code
      table[code_of(true, n)] = {edge, end, value};
      table[code_of(false, n)] = {-end, -edge, -value};
      edge = next;
    }
  }
  EXPECT_EQ(n, 128);
  return table;
}

// Table 1: sixteen-bit samples are eight times the table's values. Even bits are inverted, positive codes have bit 8.
CodeTable alaw_table() {
  return make_table({{32, 16}, {16, 32}, {16, 64}, {16, 128}, {16, 256}, {16, 512}, {16, 1024}}, false,
                    [](bool positive, int n) { return ((positive ? 0x80 : 0x00) | n) ^ 0x55; });
}

// Table 2: sixteen-bit samples are four times the table's values. The first interval, half as wide, stands for zero.
CodeTable ulaw_table() {
  return make_table({{1, 4}, {15, 8}, {16, 16}, {16, 32}, {16, 64}, {16, 128}, {16, 256}, {16, 512}, {16, 1024}}, true,
                    [](bool positive, int n) { return (positive ? 0xFF : 0x7F) - n; });
}

struct Law {
  const char* name;
  switch_payload_t iana;
  CodeTable table;
};

class G711 : public testing::TestWithParam<bool> {
 protected:
  G711() {
    law_ = GetParam() ? Law{"A-law", 8, alaw_table()} : Law{"mu-law", 0, ulaw_table()};
    implementation_.ianacode = law_.iana;
    codec_.implementation = &implementation_;
  }
  int Encode(int16_t sample) {
    uint8_t code = 0;
    uint32_t length = 0, rate = 8000;
    unsigned int flags = 0;
    EXPECT_EQ(dummy_codec_encode(&codec_, nullptr, &sample, 2, 8000, &code, &length, &rate, &flags),
              SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(length, 1u);
    return code;
  }
  int Decode(uint8_t code) {
    int16_t sample = 0;
    uint32_t length = 0, rate = 8000;
    unsigned int flags = 0;
    EXPECT_EQ(dummy_codec_decode(&codec_, nullptr, &code, 1, 8000, &sample, &length, &rate, &flags),
              SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(length, 2u);
    return sample;
  }

  Law law_;
  switch_codec_implementation_t implementation_ = {};
  switch_codec_t codec_ = {};
};

}  // namespace

TEST_P(G711, EveryCodeStandsForItsValue) {
  for (int code = 0; code < 256; ++code) {
    ASSERT_EQ(Decode(static_cast<uint8_t>(code)), law_.table[code].value) << law_.name << " code " << code;
  }
}

TEST_P(G711, EverySampleGetsTheCodeOfItsInterval) {
  for (int sample = -kFullScale; sample < kFullScale; ++sample) {
    const int code = Encode(static_cast<int16_t>(sample));
    ASSERT_LE(law_.table[code].lowest, sample) << law_.name << " code " << code;
    ASSERT_GE(law_.table[code].highest, sample) << law_.name << " code " << code;
  }
}

TEST_P(G711, EveryCodeSurvivesDecodingAndEncoding) {
  for (int code = 0; code < 256; ++code) {
    const int again = Encode(static_cast<int16_t>(Decode(static_cast<uint8_t>(code))));
    const bool negative_zero = law_.table[code].value == 0;
    ASSERT_EQ(again, negative_zero ? 0xFF : code) << law_.name;
  }
}

INSTANTIATE_TEST_SUITE_P(BothLaws, G711, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& law) { return law.param ? "ALaw" : "MuLaw"; });

}  // namespace module_test
