#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include <switch.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> split(std::string text, char delimiter, unsigned int most = 10) {
  std::vector<char*> pieces(most + 1, reinterpret_cast<char*>(1));
  const unsigned int count = switch_separate_string(text.data(), delimiter, pieces.data(), most);
  for (unsigned int i = count; i < most; ++i) EXPECT_EQ(pieces[i], nullptr) << "the array is zeroed first";
  EXPECT_EQ(pieces[most], reinterpret_cast<char*>(1)) << "nothing behind the array is written";
  return {pieces.begin(), pieces.begin() + count};
}

TEST(SeparateString, KeepsEmptyFieldsAndTrimsBlanks) {
  EXPECT_THAT(split("a,b,c", ','), ElementsAre("a", "b", "c"));
  EXPECT_THAT(split(" a , ,c ", ','), ElementsAre("a", "", "c"));
  EXPECT_THAT(split(",a", ','), ElementsAre("", "a"));
  EXPECT_THAT(split("a,", ','), ElementsAre("a"));
  EXPECT_THAT(split("", ','), IsEmpty());
  EXPECT_THAT(split("mode-set=7; octet-align=1", ';'), ElementsAre("mode-set=7", "octet-align=1"));
}

TEST(SeparateString, TakesARunOfBlanksAsOneDelimiter) {
  EXPECT_THAT(split("a  b   c", ' '), ElementsAre("a", "b", "c"));
  EXPECT_THAT(split("  a b  ", ' '), ElementsAre("a", "b"));
}

TEST(SeparateString, KeepsTheRestInTheLastPiece) {
  EXPECT_THAT(split("a,b,c,d", ',', 2), ElementsAre("a", "b,c,d"));
  EXPECT_THAT(split("usage all more words", ' ', 2), ElementsAre("usage", "all more words"));
  EXPECT_THAT(split("a,b", ',', 1), ElementsAre("a,b"));
}

TEST(SeparateString, QuotesGroup) {
  EXPECT_THAT(split("'a,b',c", ','), ElementsAre("a,b", "c"));
  EXPECT_THAT(split("' a ',b", ','), ElementsAre(" a ", "b"));
  EXPECT_THAT(split("'a b' c", ' '), ElementsAre("a b", "c"));
  EXPECT_THAT(split("\"a b\" c", ' '), ElementsAre("a b", "c"));
  EXPECT_THAT(split("\"a,b\"", ','), ElementsAre("\"a", "b\"")) << "double quotes group with blanks only";
}

TEST(SeparateString, AQuoteWithoutItsFellowIsACharacter) {
  EXPECT_THAT(split("it's,b", ','), ElementsAre("it's", "b"));
}

TEST(SeparateString, BackslashesTakeQuotesDelimitersAndControlCharacters) {
  EXPECT_THAT(split("a\\,b,c", ','), ElementsAre("a,b", "c"));
  EXPECT_THAT(split("\\'a\\',b", ','), ElementsAre("'a'", "b"));
  EXPECT_THAT(split("a\\nb\\tc\\sd", ','), ElementsAre("a\nb\tc d"));
  EXPECT_THAT(split("a\\xb", ','), ElementsAre("a\\xb"));
  EXPECT_THAT(split("a\\", ','), ElementsAre("a\\"));
}

TEST(SeparateString, RefusesNothingToSplit) {
  char* pieces[2];
  EXPECT_EQ(switch_separate_string(nullptr, ',', pieces, 2), 0u);
  char text[] = "a,b";
  EXPECT_EQ(switch_separate_string(text, ',', pieces, 0), 0u);
  EXPECT_EQ(switch_split(text, ',', pieces), 2u);
}

TEST(Truth, KnowsItsWordsInAnyCase) {
  for (const char* word : {"yes", "ON", "True", "t", "enabled", "Active", "allow", "1", "-3", "7.5"}) {
    EXPECT_TRUE(switch_true(word)) << word;
    EXPECT_FALSE(switch_false(word)) << word;
  }
  for (const char* word : {"no", "OFF", "False", "f", "disabled", "Inactive", "disallow", "0", "0.9", ""}) {
    EXPECT_FALSE(switch_true(word)) << word;
    EXPECT_TRUE(switch_false(word)) << word;
  }
  for (const char* word : {"perhaps", "1x", "yes "}) {
    EXPECT_FALSE(switch_true(word)) << word;
    EXPECT_FALSE(switch_false(word)) << word;
  }
  EXPECT_FALSE(switch_true(nullptr));
  EXPECT_FALSE(switch_false(nullptr));
}

TEST(IsFilePath, TakesAbsolutePathsAndUrls) {
  EXPECT_TRUE(switch_is_file_path("/etc/jsr309.xml"));
  EXPECT_TRUE(switch_is_file_path("http://host/file"));
  EXPECT_TRUE(switch_is_file_path("{a=b} /file"));
  EXPECT_TRUE(switch_is_file_path("{a}{b}/file"));
  EXPECT_FALSE(switch_is_file_path("jsr309.xml"));
  EXPECT_FALSE(switch_is_file_path("./jsr309.xml"));
  EXPECT_FALSE(switch_is_file_path(""));
  EXPECT_FALSE(switch_is_file_path(nullptr));
  EXPECT_FALSE(switch_is_file_path("{a=b}"));
}

TEST(IsFilePath, AGroupThatIsNotClosedIsNoPath) {
  EXPECT_FALSE(switch_is_file_path("{a=b/file"));
}

TEST(IsNumber, TakesASignDigitsAndPoints) {
  EXPECT_TRUE(switch_is_number("12"));
  EXPECT_TRUE(switch_is_number("-1.5"));
  EXPECT_TRUE(switch_is_number("+3"));
  EXPECT_TRUE(switch_is_number(""));
  EXPECT_FALSE(switch_is_number("1a"));
  EXPECT_FALSE(switch_is_number(nullptr));
}

TEST(VariableReference, IsADollarWithABrace) {
  EXPECT_TRUE(switch_string_var_check_const("a ${b}"));
  EXPECT_TRUE(switch_string_var_check_const("$\\{b}"));
  EXPECT_FALSE(switch_string_var_check_const("$5"));
  EXPECT_FALSE(switch_string_var_check_const("{b}"));
  EXPECT_FALSE(switch_string_var_check_const(nullptr));
}

TEST(CopyString, AlwaysTerminatesAndReturnsTheEnd) {
  char buffer[6];
  memset(buffer, 'x', sizeof(buffer));
  EXPECT_EQ(switch_copy_string(buffer, "abc", sizeof(buffer)), buffer + 3);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(switch_copy_string(buffer, "abcdefgh", sizeof(buffer)), buffer + 5);
  EXPECT_STREQ(buffer, "abcde");
  EXPECT_EQ(switch_copy_string(buffer, nullptr, sizeof(buffer)), buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(switch_copy_string(buffer, "a", 0), buffer);
  EXPECT_EQ(switch_copy_string(nullptr, "a", 5), nullptr);
}

TEST(Printf, WritesToBuffersAndToTheHeap) {
  char buffer[4];
  EXPECT_EQ(switch_snprintf(buffer, sizeof(buffer), "%d", 12345), 5);
  EXPECT_STREQ(buffer, "123");
  char* text = switch_mprintf("%s=%d", "a", 1);
  EXPECT_STREQ(text, "a=1");
  switch_safe_free(text);
  EXPECT_EQ(text, nullptr);
}

TEST(ResolveHost, GivesNumericText) {
  char buffer[46];
  EXPECT_EQ(switch_resolve_host("127.0.0.1", buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(buffer, "127.0.0.1");
  EXPECT_EQ(switch_resolve_host("::1", buffer, sizeof(buffer)), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(buffer, "::1");
}

TEST(ResolveHost, FailsWithoutAHostOrRoom) {
  char buffer[4] = "abc";
  EXPECT_EQ(switch_resolve_host("127.0.0.1", buffer, sizeof(buffer)), SWITCH_STATUS_FALSE);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(switch_resolve_host("", buffer, sizeof(buffer)), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_resolve_host(nullptr, buffer, sizeof(buffer)), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_resolve_host("300.300.300.300.", buffer, sizeof(buffer)), SWITCH_STATUS_FALSE);
}

TEST(Uuid, IsRandomVersionFour) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    char text[SWITCH_UUID_FORMATTED_LENGTH + 1];
    EXPECT_EQ(switch_uuid_str(text, sizeof(text)), text);
    EXPECT_THAT(text, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    EXPECT_TRUE(seen.insert(text).second);
  }
}

TEST(Uuid, ParsesWhatItFormats) {
  switch_uuid_t uuid, again;
  char text[37];
  switch_uuid_get(&uuid);
  switch_uuid_format(text, &uuid);
  ASSERT_EQ(switch_uuid_parse(&again, text), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(memcmp(uuid.data, again.data, sizeof(uuid.data)), 0);
  EXPECT_EQ(switch_uuid_parse(&again, "01234567-89AB-cdef-0123-456789abcdef"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(again.data[4], 0x89);
}

TEST(Uuid, RefusesOtherText) {
  switch_uuid_t uuid;
  EXPECT_EQ(switch_uuid_parse(&uuid, ""), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_uuid_parse(&uuid, nullptr), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_uuid_parse(&uuid, "01234567-89ab-cdef-0123-456789abcde"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_uuid_parse(&uuid, "01234567x89ab-cdef-0123-456789abcdef"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_uuid_parse(&uuid, "0123456g-89ab-cdef-0123-456789abcdef"), SWITCH_STATUS_FALSE);
  char small[10];
  EXPECT_STREQ(switch_uuid_str(small, sizeof(small)), "");
}

TEST(Time, TakesApartAndPrints) {
  switch_time_exp_t parts;
  switch_time_exp_gmt(&parts, 1709210096123456);
  EXPECT_EQ(parts.tm_usec, 123456);
  char text[40];
  switch_size_t length = 0;
  switch_strftime(text, &length, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  EXPECT_EQ(std::string(text, length), "2024-02-29 12:34:56");
  switch_strftime(text, &length, 5, "%Y-%m-%d", &parts);
  EXPECT_EQ(length, 0u);
}

TEST(Time, LocalTimeKnowsItsOffset) {
  switch_time_exp_t local;
  switch_time_exp_lt(&local, 1709210096000000);
  struct tm parts {};
  const time_t seconds = 1709210096;
  localtime_r(&seconds, &parts);
  EXPECT_EQ(local.tm_hour, parts.tm_hour);
  EXPECT_EQ(local.tm_gmtoff, parts.tm_gmtoff);
}

TEST(Time, SleepLastsAtLeastSoLong) {
  const switch_time_t before = switch_time_now();
  switch_sleep(2000);
  EXPECT_GE(switch_time_now() - before, 2000);
}

}  // namespace
