#include "sip/bridge_target.h"

#include <gtest/gtest.h>

#include "sip/leg_media.h"

namespace kvx_switch {
namespace {

TEST(SipBridgeTarget, TakesAUriWithAndWithoutVariables) {
  BridgeTarget plain;
  std::string error;
  ASSERT_TRUE(ParseBridgeTarget("sip:2000@127.0.0.1:5080", plain, error)) << error;
  EXPECT_EQ(plain.uri, "sip:2000@127.0.0.1:5080");
  EXPECT_TRUE(plain.variables.empty());

  BridgeTarget rich;
  ASSERT_TRUE(ParseBridgeTarget("{a=1,b=x=y,c=}SIP:bob@[::1]:5080;transport=udp", rich, error)) << error;
  EXPECT_EQ(rich.uri, "SIP:bob@[::1]:5080;transport=udp");
  ASSERT_EQ(rich.variables.size(), 3u);
  EXPECT_EQ(rich.variables[1], std::make_pair(std::string("b"), std::string("x=y")));
  EXPECT_EQ(rich.variables[2].second, "");
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
      {"{a=1sip:bob@host", "\"{a=1sip:bob@host\": \"{\" is not closed"},
      {"{a}sip:bob@host", "\"a\" is not name=value"},
      {"{=a}sip:bob@host", "\"=a\" is not name=value"},
  };
  for (const auto& mistake : kMistakes) {
    BridgeTarget target;
    std::string error;
    EXPECT_FALSE(ParseBridgeTarget(mistake.data, target, error)) << mistake.data;
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
