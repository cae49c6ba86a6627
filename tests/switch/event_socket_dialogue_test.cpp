#include "console/event_socket_dialogue.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvx_switch {
namespace {

constexpr char kGoodbye[] = "Content-Type: text/disconnect-notice\nContent-Length: 23\n\nDisconnected, goodbye.\n";

std::string reply(const std::string& text) {
  return "Content-Type: command/reply\nReply-Text: " + text + "\n\n";
}

class EventSocketDialogueTest : public testing::Test {
 protected:
  std::string Ask(const std::string& command, const std::string& arguments = "") {
    EventSocketRequest request;
    request.command = command;
    request.arguments = arguments;
    return dialogue_.Answer(request);
  }

  std::vector<std::pair<std::string, std::string>> calls_;
  std::string output_ = "done\n";
  std::vector<std::pair<std::string, ApiLine>> jobs_;
  bool room_for_jobs_ = true;
  EventSubscription wanted_;
  std::optional<switch_log_level_t> log_level_;
  EventSocketDialogue dialogue_{"secret",
                                "127.0.0.1:5",
                                {[this](const std::string& command, const std::string& args) {
                                   calls_.emplace_back(command, args);
                                   return output_;
                                 },
                                 [this](const std::string& uuid, const ApiLine& line) {
                                   jobs_.emplace_back(uuid, line);
                                   return room_for_jobs_;
                                 },
                                 [this](const EventSubscription& wanted) { wanted_ = wanted; },
                                 [this](std::optional<switch_log_level_t> level) {
                                   const bool followed = log_level_.has_value();
                                   log_level_ = level;
                                   return followed;
                                 }}};
};

TEST_F(EventSocketDialogueTest, AsksForThePasswordFirst) {
  EXPECT_EQ(dialogue_.Greeting(), "Content-Type: auth/request\n\n");
  EXPECT_FALSE(dialogue_.logged_in());
  EXPECT_FALSE(dialogue_.over());
}

TEST_F(EventSocketDialogueTest, AcceptsTheRightPassword) {
  EXPECT_EQ(Ask("auth", "secret"), reply("+OK accepted"));
  EXPECT_TRUE(dialogue_.logged_in());
  EXPECT_FALSE(dialogue_.over());
}

TEST_F(EventSocketDialogueTest, RefusesEveryOtherPassword) {
  for (const char* guess : {"", "s", "secre", "secrets", "SECRET", "secretsecret"}) {
    EventSocketDialogue dialogue("secret", "127.0.0.1:5", {});
    EventSocketRequest request;
    request.command = "auth";
    request.arguments = guess;
    EXPECT_EQ(dialogue.Answer(request), reply("-ERR invalid")) << guess;
    EXPECT_FALSE(dialogue.logged_in()) << guess;
  }
}

TEST_F(EventSocketDialogueTest, EndsAfterThreeWrongPasswords) {
  EXPECT_EQ(Ask("auth", "a"), reply("-ERR invalid"));
  EXPECT_EQ(Ask("auth", "b"), reply("-ERR invalid"));
  EXPECT_FALSE(dialogue_.over());
  EXPECT_EQ(Ask("auth", "c"), reply("-ERR invalid") + kGoodbye);
  EXPECT_TRUE(dialogue_.over());
  EXPECT_FALSE(dialogue_.logged_in());
}

TEST_F(EventSocketDialogueTest, KnowsNothingElseBeforeThePassword) {
  for (const char* command : {"api", "bgapi", "event", "nixevent", "noevents", "myevents", "filter"}) {
    EXPECT_EQ(Ask(command, "plain ALL"), reply("-ERR command not found")) << command;
  }
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(jobs_.empty());
  EXPECT_FALSE(wanted_.WantsAny());
}

TEST_F(EventSocketDialogueTest, PassesWishesForEventsOn) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("event", "json ALL"), reply("+OK event listener enabled json"));
  EXPECT_TRUE(wanted_.WantsAny());
  EXPECT_EQ(wanted_.format(), EventFormat::kJson);
  EXPECT_EQ(Ask("filter", "Unique-ID u"), reply("+OK filter added. [Unique-ID]=[u]"));
  EXPECT_EQ(Ask("nixevent", "HEARTBEAT"), reply("+OK events nixed"));
  EXPECT_EQ(Ask("myevents", "nobody"), reply("-ERR invalid uuid"));
  EXPECT_EQ(Ask("noevents"), reply("+OK no longer listening for events"));
  EXPECT_FALSE(wanted_.WantsAny());
}

TEST_F(EventSocketDialogueTest, FollowsTheLogDownToALevel) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("nolog"), reply("-ERR not logging"));
  EXPECT_EQ(Ask("log", "warning"), reply("+OK log level warning [4]"));
  EXPECT_EQ(log_level_, SWITCH_LOG_WARNING);
  EXPECT_EQ(Ask("log", "6"), reply("+OK log level 6 [6]"));
  EXPECT_EQ(log_level_, SWITCH_LOG_INFO);
  EXPECT_EQ(Ask("log", "loud"), reply("-ERR invalid log level"));
  EXPECT_EQ(log_level_, SWITCH_LOG_INFO);
  EXPECT_EQ(Ask("nolog"), reply("+OK no longer logging"));
  EXPECT_EQ(log_level_, std::nullopt);
}

TEST_F(EventSocketDialogueTest, ShowsTheLogToNobodyBeforeThePassword) {
  EXPECT_EQ(Ask("log", "debug"), reply("-ERR command not found"));
  EXPECT_EQ(log_level_, std::nullopt);
}

TEST_F(EventSocketDialogueTest, TakesWhatClientLibrariesSayAtTheirEnd) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("linger"), reply("+OK will linger"));
  EXPECT_EQ(Ask("linger", "30"), reply("+OK will linger"));
  EXPECT_EQ(Ask("nolinger"), reply("+OK will not linger"));
}

TEST_F(EventSocketDialogueTest, RefusesToSendWhatIsNoEvent) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("sendevent"), reply("-ERR invalid event"));
  EXPECT_EQ(Ask("sendevent", "NONSENSE"), reply("-ERR invalid event"));
  EXPECT_EQ(Ask("sendevent", "ALL"), reply("-ERR invalid event"));
  EXPECT_EQ(Ask("sendevent", "CUSTOM"), reply("-ERR a CUSTOM event needs an Event-Subclass"));
}

TEST_F(EventSocketDialogueTest, StartsBackgroundCommandsUnderAUuid) {
  Ask("auth", "secret");
  const std::string answer = Ask("bgapi", "originate  a b");
  ASSERT_EQ(jobs_.size(), 1u);
  const std::string& uuid = jobs_[0].first;
  EXPECT_EQ(uuid.size(), 36u);
  EXPECT_EQ(answer, reply("+OK Job-UUID: " + uuid + "\nJob-UUID: " + uuid));
  EXPECT_EQ(jobs_[0].second.command, "originate");
  EXPECT_EQ(jobs_[0].second.arguments, "a b");
  EXPECT_TRUE(calls_.empty());

  EventSocketRequest request;
  request.command = "bgapi";
  request.arguments = "status";
  request.headers = {{"job-uuid", "my-job"}};
  EXPECT_EQ(dialogue_.Answer(request), reply("+OK Job-UUID: my-job\nJob-UUID: my-job"));
  EXPECT_EQ(jobs_.back().first, "my-job");
}

TEST_F(EventSocketDialogueTest, RefusesBackgroundCommandsThatCannotRun) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("bgapi"), reply("-ERR no api command given"));
  EXPECT_TRUE(jobs_.empty());
  room_for_jobs_ = false;
  EXPECT_EQ(Ask("bgapi", "status"), reply("-ERR too many background jobs"));
}

TEST_F(EventSocketDialogueTest, LetsGoAtExitEvenBeforeThePassword) {
  EXPECT_EQ(Ask("exit"), reply("+OK bye") + kGoodbye);
  EXPECT_TRUE(dialogue_.over());
}

TEST_F(EventSocketDialogueTest, TakesCommandNamesInAnyCase) {
  EXPECT_EQ(Ask("AUTH", "secret"), reply("+OK accepted"));
  EXPECT_EQ(Ask("Exit"), reply("+OK bye") + kGoodbye);
}

TEST_F(EventSocketDialogueTest, AnswersUnknownCommandsAndGoesOn) {
  Ask("auth", "secret");
  for (const char* command : {"", "apis", "ap", "sendmsg", "api\tstatus"}) {
    EXPECT_EQ(Ask(command), reply("-ERR command not found")) << command;
  }
  EXPECT_FALSE(dialogue_.over());
  EXPECT_TRUE(dialogue_.logged_in());
}

TEST_F(EventSocketDialogueTest, RunsApiCommandsWithTheirArguments) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("api", "show   calls  now "), "Content-Type: api/response\nContent-Length: 5\n\ndone\n");
  EXPECT_EQ(Ask("api", "status"), "Content-Type: api/response\nContent-Length: 5\n\ndone\n");
  EXPECT_EQ(Ask("api", "status "), "Content-Type: api/response\nContent-Length: 5\n\ndone\n");
  ASSERT_EQ(calls_.size(), 3u);
  EXPECT_EQ(calls_[0], std::make_pair(std::string("show"), std::string("calls  now ")));
  EXPECT_EQ(calls_[1], std::make_pair(std::string("status"), std::string()));
  EXPECT_EQ(calls_[2], std::make_pair(std::string("status"), std::string()));
}

TEST_F(EventSocketDialogueTest, CountsTheBodyInBytes) {
  Ask("auth", "secret");
  output_ = "\xc3\xbc\n\n";
  EXPECT_EQ(Ask("api", "x"), "Content-Type: api/response\nContent-Length: 4\n\n\xc3\xbc\n\n");
}

TEST_F(EventSocketDialogueTest, NeverSendsAnEmptyBody) {
  Ask("auth", "secret");
  output_.clear();
  EXPECT_EQ(Ask("api", "x"), "Content-Type: api/response\nContent-Length: 14\n\n-ERR no reply\n");
}

TEST_F(EventSocketDialogueTest, WantsACommandBehindApi) {
  Ask("auth", "secret");
  EXPECT_EQ(Ask("api"), reply("-ERR no api command given"));
  EXPECT_TRUE(calls_.empty());
}

TEST_F(EventSocketDialogueTest, TurnsAnExceptionOfACommandIntoItsAnswer) {
  EventSocketDialogue dialogue(
      "secret", "127.0.0.1:5",
      {[](auto&, auto&) -> std::string { throw std::runtime_error("no such tree"); }, nullptr, nullptr});
  EventSocketRequest request;
  request.command = "auth";
  request.arguments = "secret";
  dialogue.Answer(request);
  request.command = "api";
  request.arguments = "x";
  EXPECT_EQ(dialogue.Answer(request), "Content-Type: api/response\nContent-Length: 18\n\n-ERR no such tree\n");
  EXPECT_FALSE(dialogue.over());
}

TEST_F(EventSocketDialogueTest, EndsAfterBytesThatAreNoRequest) {
  EXPECT_EQ(dialogue_.AnswerUnreadable(EventSocketRequestParser::Result::kTooLarge),
            reply("-ERR request too large") + kGoodbye);
  EXPECT_TRUE(dialogue_.over());
  EXPECT_EQ(dialogue_.AnswerUnreadable(EventSocketRequestParser::Result::kMalformed),
            reply("-ERR malformed request") + kGoodbye);
}

TEST_F(EventSocketDialogueTest, SaysWhyTheSwitchEndsIt) {
  EXPECT_EQ(dialogue_.Farewell("Enough."), "Content-Type: text/disconnect-notice\nContent-Length: 8\n\nEnough.\n");
  EXPECT_TRUE(dialogue_.over());
}

}  // namespace
}  // namespace kvx_switch
