#include "console/event_socket_request.h"

#include <gtest/gtest.h>

#include <string>

namespace kvx_switch {
namespace {

using Parser = EventSocketRequestParser;
using Result = EventSocketRequestParser::Result;

constexpr Parser::Limits kLimits{100, 50};

TEST(EventSocketRequest, SplitsTheCommandLineAtItsFirstBlanks) {
  Parser parser(kLimits);
  parser.Feed("api   show  calls \n\n");
  EventSocketRequest request;
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.command, "api");
  EXPECT_EQ(request.arguments, "show  calls ");
  EXPECT_TRUE(request.headers.empty());
  EXPECT_EQ(parser.Next(request), Result::kMore);
}

TEST(EventSocketRequest, KeepsTabsInTheArguments) {
  Parser parser(kLimits);
  parser.Feed("api\tx a\tb\n\n");
  EventSocketRequest request;
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.command, "api\tx");
  EXPECT_EQ(request.arguments, "a\tb");
}

TEST(EventSocketRequest, TakesLinesThatEndWithCarriageReturnToo) {
  Parser parser(kLimits);
  parser.Feed("auth secret\r\nJob-UUID: 7\r\n\r\nexit\n\n");
  EventSocketRequest request;
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.arguments, "secret");
  EXPECT_EQ(request.Header("job-uuid"), "7");
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.command, "exit");
  EXPECT_EQ(request.arguments, "");
}

TEST(EventSocketRequest, PassesOverEmptyLinesBeforeARequest) {
  Parser parser(kLimits);
  parser.Feed("\n\r\n\n");
  EventSocketRequest request;
  EXPECT_EQ(parser.Next(request), Result::kMore);
  parser.Feed("\nexit\n\n\n\n");
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.command, "exit");
  EXPECT_EQ(parser.Next(request), Result::kMore);
}

TEST(EventSocketRequest, ComesOutTheSameWhenBytesComeOneByOne) {
  const std::string bytes = "sendevent CUSTOM\r\nA: 1\nContent-Length: 4\n\n\n\nabexit\n\n";
  Parser parser(kLimits);
  std::vector<EventSocketRequest> requests;
  for (const char byte : bytes) {
    parser.Feed({&byte, 1});
    EventSocketRequest request;
    if (parser.Next(request) == Result::kRequest) requests.push_back(request);
  }
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].command, "sendevent");
  EXPECT_EQ(requests[0].Header("a"), "1");
  EXPECT_EQ(requests[0].body, "\n\nab");
  EXPECT_EQ(requests[1].command, "exit");
  EXPECT_EQ(requests[1].body, "");
}

TEST(EventSocketRequest, KeepsHeadersInOrderAndPassesOverLinesWithoutColon) {
  Parser parser(kLimits);
  parser.Feed("sendmsg\nB:  2 \nno header\nA: 1:2\nB: 3\n\n");
  EventSocketRequest request;
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  ASSERT_EQ(request.headers.size(), 3u);
  EXPECT_EQ(request.headers[0], std::make_pair(std::string("B"), std::string("2")));
  EXPECT_EQ(request.headers[1], std::make_pair(std::string("A"), std::string("1:2")));
  EXPECT_EQ(request.Header("b"), "2");
  EXPECT_EQ(request.Header("c"), "");
}

TEST(EventSocketRequest, RefusesAHeadOverTheLimitEvenUnfinished) {
  Parser parser(kLimits);
  EventSocketRequest request;
  parser.Feed(std::string(100, 'a'));
  EXPECT_EQ(parser.Next(request), Result::kMore);
  parser.Feed("a");
  EXPECT_EQ(parser.Next(request), Result::kTooLarge);
}

TEST(EventSocketRequest, CountsTheLimitPerRequest) {
  Parser parser(kLimits);
  const std::string line = std::string(98, 'a') + "\n\n";
  parser.Feed(line + line);
  EventSocketRequest request;
  EXPECT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.command, std::string(98, 'a'));
}

TEST(EventSocketRequest, RefusesABodyOverTheLimitBeforeItComes) {
  EventSocketRequest request;
  for (const char* length : {"51", "18446744073709551615", "99999999999999999999999"}) {
    Parser parser(kLimits);
    parser.Feed(std::string("sendevent\nContent-Length: ") + length + "\n\n");
    EXPECT_EQ(parser.Next(request), Result::kTooLarge) << length;
  }
  Parser parser(kLimits);
  parser.Feed("sendevent\nContent-Length: 50\n\n" + std::string(50, 'b'));
  EXPECT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.body, std::string(50, 'b'));
}

TEST(EventSocketRequest, RefusesALengthThatIsNoNumber) {
  for (const char* length : {"-1", "x", "1x", "0x10", "1 2"}) {
    Parser parser(kLimits);
    parser.Feed(std::string("sendevent\nContent-Length: ") + length + "\n\n");
    EventSocketRequest request;
    EXPECT_EQ(parser.Next(request), Result::kMalformed) << length;
  }
}

TEST(EventSocketRequest, RefusesANulByteInTheHeadButNotInTheBody) {
  EventSocketRequest request;
  Parser parser(kLimits);
  parser.Feed(std::string("sendevent\nContent-Length: 3\n\na\0b", 32));
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.body, std::string("a\0b", 3));
  parser.Feed(std::string("ap\0i", 4));
  EXPECT_EQ(parser.Next(request), Result::kMalformed);
}

TEST(EventSocketRequest, StaysBrokenAfterARefusal) {
  Parser parser(kLimits);
  EventSocketRequest request;
  parser.Feed("sendevent\nContent-Length: x\n\n");
  EXPECT_EQ(parser.Next(request), Result::kMalformed);
  parser.Feed("exit\n\n");
  EXPECT_EQ(parser.Next(request), Result::kMalformed);
}

TEST(EventSocketRequest, AppliesNewLimitsToTheNextRequest) {
  Parser parser({10, 0});
  parser.Feed("auth x\n\napi " + std::string(20, 'a') + "\n\n");
  EventSocketRequest request;
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  parser.SetLimits(kLimits);
  ASSERT_EQ(parser.Next(request), Result::kRequest);
  EXPECT_EQ(request.arguments, std::string(20, 'a'));
}

}  // namespace
}  // namespace kvx_switch
