#include "sip/variable_check.h"

#include <gtest/gtest.h>

#include <string>

#include "sip/reference.h"

namespace kvx_switch {
namespace {

TEST(VariableCheck, TakesWhatTheCallsWillTake) {
  const char* const kGood[][2] = {{"leg_timeout", "1"},
                                  {"CALL_TIMEOUT", "3600"},
                                  {"originate_timeout", "60"},
                                  {"rtp_secure_media", "Mandatory"},
                                  {"rtp_secure_media", "true"},
                                  {"continue_on_fail", "true"},
                                  {"continue_on_fail", "USER_BUSY,no_answer,27"},
                                  {"hangup_after_bridge", "0"},
                                  {"bridge_answer_timeout", "0"},
                                  {"generate_rtcp_report", "yes"},
                                  {"rtp_allow_inband_to_2833_dtmf_conversion", "false"},
                                  {"jitterbuffer_mode", "Adaptive"},
                                  {"jitterbuffer_msec", "200"},
                                  {"jitterbuffer_msec", "150:40:20"},
                                  {"jitterbuffer_msec", ":40"},
                                  {"video_jitterbuffer_msec", "500:20"},
                                  {"media_session_uuid", "0d477871-d149-48A8-a912-3721687179bf"},
                                  {"my_own", "any thing"},
                                  {"leg_timeout", ""},
                                  {"leg_timeout", "$1"},
                                  {"leg_timeout", "${time}"},
                                  {"$1", "x"}};
  for (const auto& [name, value] : kGood) EXPECT_EQ(FaultOfVariable(name, value), "") << name << "=" << value;
}

TEST(VariableCheck, NamesTheVariableItsValueAndWhatIsExpected) {
  const char* const kBad[][3] = {
      {"leg_timeout", "0", "a number from 1 to 3600"},
      {"call_timeout", "3601", "a number from 1 to 3600"},
      {"originate_timeout", "1m", "a number from 1 to 3600"},
      {"rtp_secure_media", "sometimes", "\"off\", \"optional\" or \"mandatory\""},
      {"continue_on_fail", "USER_BUSY,TIRED", "\"true\", \"false\" or a list of hang-up causes"},
      {"hangup_after_bridge", "maybe", "\"true\" or \"false\""},
      {"bridge_answer_timeout", "10s", "a number from 0 to 86400"},
      {"jitterbuffer_mode", "elastic", "\"none\", \"static\" or \"adaptive\""},
      {"video_jitterbuffer_mode", "off", "\"none\", \"static\" or \"adaptive\""},
      {"jitterbuffer_msec", "201", "pdv:initial:min in milliseconds, the first at most 200"},
      {"jitterbuffer_msec", "100:60ms", "pdv:initial:min in milliseconds, the first at most 200"},
      {"jitterbuffer_msec", "1:2:3:4", "pdv:initial:min in milliseconds, the first at most 200"},
      {"video_jitterbuffer_msec", "1:2:3", "initial:min in milliseconds"},
      {"media_session_uuid", "0d477871-d149-48a8-a912-3721687179b", "a uuid"},
  };
  for (const auto& [name, value, expected] : kBad) {
    EXPECT_EQ(FaultOfVariable(name, value), std::string(name) + " is \"" + value + "\", not " + expected);
  }
}

TEST(VariableCheck, NamesHaveNoBlanks) {
  EXPECT_EQ(FaultOfVariable(" leg_timeout", "5"), "\" leg_timeout\" is no name of a variable");
  EXPECT_EQ(FaultOfVariable("a b", "5"), "\"a b\" is no name of a variable");
  EXPECT_EQ(FaultOfVariable("", "5"), "\"\" is no name of a variable");
}

TEST(Reference, IsAGroupOrAVariableInBraces) {
  for (const char* text : {"$1", "x$9", "${a}", "a${b", "$$1"}) EXPECT_TRUE(HasReference(text)) << text;
  for (const char* text : {"", "$", "$0", "$a", "{a}", "1$"}) EXPECT_FALSE(HasReference(text)) << text;
}

TEST(Reference, MayBeMadePlain) {
  EXPECT_EQ(WithPlainReferences("{a=${b}}sip:${c}@h$2$"), "{a=$1}sip:$1@h$1$");
  EXPECT_EQ(WithPlainReferences("x${open"), "x$1");
  EXPECT_EQ(WithPlainReferences("plain"), "plain");
}

}  // namespace
}  // namespace kvx_switch
