#include "rtpengine/ng_frame.h"

#include <gtest/gtest.h>

namespace kelvaro::jsr309::rtpengine {
namespace {

TEST(NgFrame, IsCookieSpaceAndDictionary) {
  EXPECT_EQ(FrameNg("c_1", {{"command", "ping"}}), "c_1 d7:command4:pinge");
}

TEST(NgFrame, IsReadAsItWasWritten) {
  std::string error;
  const auto frame = ParseNg(FrameNg("c_1", {{"sdp", "v=0 and more"}}), error);
  ASSERT_TRUE(frame) << error;
  EXPECT_EQ(frame->cookie, "c_1");
  EXPECT_EQ(TextOf(frame->message, "sdp"), "v=0 and more");
}

TEST(NgFrame, IsRefusedWithoutCookieOrDictionary) {
  std::string error;
  EXPECT_FALSE(ParseNg("", error));
  EXPECT_EQ(error, "no cookie");
  EXPECT_FALSE(ParseNg(" de", error));
  EXPECT_EQ(error, "no cookie");
  EXPECT_FALSE(ParseNg("cde", error));
  EXPECT_EQ(error, "no cookie");
  EXPECT_FALSE(ParseNg("c i5e", error));
  EXPECT_EQ(error, "the message is no dictionary");
  EXPECT_FALSE(ParseNg("c d", error));
  EXPECT_EQ(error, "value missing at octet 1");
}

TEST(NgReply, SaysWhyItRefuses) {
  EXPECT_EQ(RefusalOf({{"result", "ok"}, {"warning", "whatever"}}), "");
  EXPECT_EQ(RefusalOf({{"result", "pong"}}), "");
  EXPECT_EQ(RefusalOf({{"result", "error"}, {"error-reason", "Unknown call-id"}}), "Unknown call-id");
  EXPECT_EQ(RefusalOf({{"result", "error"}}), "error");
  EXPECT_EQ(RefusalOf({{"result", "load limit"}, {"message", "too much"}}), "load limit: too much");
  EXPECT_EQ(RefusalOf({{"sdp", "v=0"}}), "a reply without a result");
}

TEST(NgReply, TellsACallThatIsNotKnown) {
  EXPECT_TRUE(IsUnknownCall({{"result", "error"}, {"error-reason", "Unknown call-id"}}));
  EXPECT_FALSE(IsUnknownCall({{"result", "error"}, {"error-reason", "Incomplete SDP specification"}}));
  EXPECT_FALSE(IsUnknownCall({{"result", "ok"}, {"warning", "Call-ID not found or tags didn't match"}}));
}

TEST(NgReply, HasNumbersAsNumbersAndAsText) {
  const Dictionary reply{{"a", 7}, {"b", "12"}, {"c", "3.75"}, {"d", "x"}, {"e", ""}, {"f", "1x"}};
  EXPECT_EQ(NumberOf(reply, "a"), 7);
  EXPECT_EQ(NumberOf(reply, "b"), 12);
  EXPECT_EQ(NumberOf(reply, "c"), 3);
  for (const char* key : {"d", "e", "f", "missing"}) EXPECT_FALSE(NumberOf(reply, key)) << key;
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
