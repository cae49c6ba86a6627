#include "rtpengine/bencode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <ostream>

namespace kelvaro::jsr309::rtpengine {
namespace {

using testing::HasSubstr;

TEST(Bencode, WritesEveryKindAndSortsKeys) {
  const Bencode value(Bencode::Dictionary{
      {"to", Bencode::List{"a", -7, Bencode::Dictionary{}}}, {"command", "ping"}, {"empty", ""}, {"zero", 0}});
  EXPECT_EQ(EncodeBencode(value), "d7:command4:ping5:empty0:2:tol1:ai-7edee4:zeroi0ee");
}

TEST(Bencode, ReadsWhatItWrites) {
  const Bencode value(Bencode::Dictionary{{"sdp", std::string("v=0\r\n\0x", 7)},
                                          {"tags", Bencode::List{Bencode::List{}, std::numeric_limits<int64_t>::min()}},
                                          {"most", std::numeric_limits<int64_t>::max()}});
  std::string error;
  const std::optional<Bencode> read = DecodeBencode(EncodeBencode(value), error);
  ASSERT_TRUE(read) << error;
  EXPECT_TRUE(*read == value);
}

TEST(Bencode, ReadsKeysInAnyOrder) {
  std::string error;
  const std::optional<Bencode> read = DecodeBencode("d6:result2:ok3:sdp3:v=0e", error);
  ASSERT_TRUE(read) << error;
  ASSERT_NE(read->Entries(), nullptr);
  EXPECT_EQ(TextOf(*read->Entries(), "result"), "ok");
  EXPECT_EQ(TextOf(*read->Entries(), "sdp"), "v=0");
  EXPECT_EQ(TextOf(*read->Entries(), "missing"), "");
}

TEST(Bencode, GivesNoTextForANumber) {
  EXPECT_EQ(TextOf({{"warning", 7}}, "warning"), "");
}

struct Malformed {
  const char* text;
  const char* error;

  friend void PrintTo(const Malformed& one, std::ostream* out) { *out << '"' << one.text << "\": " << one.error; }
};

class BencodeRefuses : public testing::TestWithParam<Malformed> {};

TEST_P(BencodeRefuses, WhatTheNotationDoesNotAllow) {
  std::string error;
  EXPECT_FALSE(DecodeBencode(GetParam().text, error));
  EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Malformed, BencodeRefuses,
    testing::Values(Malformed{"", "value missing at octet 0"},
                    Malformed{"x", "neither value nor text length at octet 0"},
                    Malformed{"i12", "number without end at octet 0"}, Malformed{"ie", "malformed number at octet 0"},
                    Malformed{"i-e", "malformed number at octet 0"}, Malformed{"i1.5e", "malformed number at octet 0"},
                    Malformed{"i007e", "number with needless digits at octet 0"},
                    Malformed{"i-0e", "number with needless digits at octet 0"},
                    Malformed{"i9223372036854775808e", "malformed number at octet 0"},
                    Malformed{"5:four", "text longer than what came at octet 0"},
                    Malformed{"18446744073709551615:a", "text longer than what came at octet 0"},
                    Malformed{"99999999999999999999:a", "malformed text length at octet 0"},
                    Malformed{"-1:a", "malformed text length at octet 0"},
                    Malformed{"01:a", "text length with needless digits at octet 0"},
                    Malformed{"l1:a", "value missing at octet 4"}, Malformed{"d1:a", "value missing at octet 4"},
                    Malformed{"d1:ae", "neither value nor text length at octet 4"},
                    Malformed{"di1e1:ae", "malformed text length at octet 1"},
                    Malformed{"d1:ai1e1:ai2ee", "key twice in a dictionary, before at octet 10"},
                    Malformed{"i1ei2e", "more than one value at octet 3"}));

TEST(Bencode, BoundsTheDepth) {
  const auto nested = [](int depth) { return std::string(static_cast<std::size_t>(depth), 'l'); };
  std::string error;
  EXPECT_TRUE(DecodeBencode(nested(kBencodeDepth + 1) + std::string(kBencodeDepth + 1, 'e'), error));
  EXPECT_FALSE(DecodeBencode(nested(kBencodeDepth + 2) + std::string(kBencodeDepth + 2, 'e'), error));
  EXPECT_THAT(error, HasSubstr("nested too deeply"));
  EXPECT_FALSE(DecodeBencode(nested(1000000), error));
}

TEST(Bencode, RefusesEveryPartOfAMessage) {
  const std::string whole = EncodeBencode(Bencode::Dictionary{{"list", Bencode::List{1, "two"}}, {"sdp", "v=0"}});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    std::string error;
    EXPECT_FALSE(DecodeBencode(whole.substr(0, length), error)) << length;
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
