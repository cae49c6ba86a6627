#include "sip/bridge_target.h"

#include <gtest/gtest.h>

#include "sip/leg_media.h"

namespace kvx_switch {
namespace {

TEST(SipBridgeTarget, TakesAUriWithAndWithoutVariables) {
  BridgePlan plain;
  std::string error;
  ASSERT_TRUE(ParseBridgePlan("sip:2000@127.0.0.1:5080", plain, error)) << error;
  ASSERT_EQ(plain.targets.size(), 1u);
  EXPECT_EQ(plain.targets[0].uri, "sip:2000@127.0.0.1:5080");
  EXPECT_TRUE(plain.targets[0].variables.empty());

  BridgePlan rich;
  ASSERT_TRUE(ParseBridgePlan("{a=1,b=x=y,c=}SIP:bob@[::1]:5080;transport=udp", rich, error)) << error;
  EXPECT_EQ(rich.targets[0].uri, "SIP:bob@[::1]:5080;transport=udp");
  ASSERT_EQ(rich.variables.size(), 3u);
  EXPECT_EQ(rich.variables[1], std::make_pair(std::string("b"), std::string("x=y")));
  EXPECT_EQ(rich.variables[2].second, "");
}

TEST(SipBridgeTarget, BracesAreForEveryTargetAndBracketsForOne) {
  BridgePlan plan;
  std::string error;
  ASSERT_TRUE(ParseBridgePlan("{a=1}[b=2,a=3]sip:x@[::1]:5080|sip:y@host|[c=4|5]sip:z@host", plan, error)) << error;
  ASSERT_EQ(plan.targets.size(), 3u);
  EXPECT_EQ(plan.targets[0].uri, "sip:x@[::1]:5080");
  EXPECT_EQ(plan.targets[0].variables, (VariableList{{"a", "1"}, {"b", "2"}, {"a", "3"}}));
  EXPECT_EQ(*FindInList(plan.targets[0].variables, "A"), "3") << "the target's own counts";
  EXPECT_EQ(plan.targets[1].variables, (VariableList{{"a", "1"}}));
  EXPECT_EQ(*FindInList(plan.targets[2].variables, "c"), "4|5");
  EXPECT_EQ(FindInList(plan.targets[2].variables, "b"), nullptr);
  EXPECT_EQ(plan.variables, (VariableList{{"a", "1"}}));
}

TEST(SipBridgeTarget, ValuesMayHoldCommas) {
  BridgePlan plan;
  std::string error;
  ASSERT_TRUE(ParseBridgePlan(R"({a=1\,2,b='3,4',c=it\'s}sip:x@host)", plan, error)) << error;
  EXPECT_EQ(plan.variables, (VariableList{{"a", "1,2"}, {"b", "3,4"}, {"c", "it's"}}));
}

TEST(SipBridgeTarget, SaysWhatItCannotTake) {
  const struct {
    const char* data;
    const char* error;
  } kMistakes[] = {
      {"", "\"\" is not a SIP URI (sip:user@host:port)"},
      {"sip:", "\"sip:\" is not a SIP URI (sip:user@host:port)"},
      {"sip:bob@", "\"sip:bob@\" is not a SIP URI (sip:user@host:port)"},
      {"user/1000", "\"user/1000\" is not a SIP URI (sip:user@host:port)"},
      {"sip:bob smith@host", "\"sip:bob smith@host\" is not a SIP URI (sip:user@host:port)"},
      {"sip:bob@host|", "\"\" is not a SIP URI (sip:user@host:port)"},
      {"sip:a@host,sip:b@host",
       "\"sip:a@host,sip:b@host\": several targets at once (\",\") are not supported, only one after the other "
       "(\"|\")"},
      {"{a=1sip:bob@host", "\"{a=1sip:bob@host\": \"{\" is not closed"},
      {"sip:a@host|[a=1sip:bob@host", "\"[a=1sip:bob@host\": \"[\" is not closed"},
      {"{a}sip:bob@host", "\"a\" is not name=value"},
      {"{=a}sip:bob@host", "\"=a\" is not name=value"},
  };
  for (const auto& mistake : kMistakes) {
    BridgePlan plan;
    std::string error;
    EXPECT_FALSE(ParseBridgePlan(mistake.data, plan, error)) << mistake.data;
    EXPECT_EQ(error, mistake.error);
  }
}

TEST(SipLocalAddress, FarEndsAreToldTheSecondOfTwo) {
  std::string bound;
  std::string told;
  SplitLocalAddress("10.0.0.5,203.0.113.7", bound, told);
  EXPECT_EQ(bound, "10.0.0.5");
  EXPECT_EQ(told, "203.0.113.7");
  SplitLocalAddress("2001:db8::1", bound, told);
  EXPECT_EQ(bound, "2001:db8::1");
  EXPECT_EQ(told, "2001:db8::1");
}

}  // namespace
}  // namespace kvx_switch
