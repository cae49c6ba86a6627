// The log on its way to the clients of the event socket, and events that clients send.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "console/event_socket_server.h"
#include "core/log.h"
#include "core_fixture.h"
#include "event_socket_raw_client.h"

namespace kvx_switch {
namespace {

using event_socket_test::RawClient;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

std::string reply(const std::string& text) {
  return "Content-Type: command/reply\nReply-Text: " + text + "\n\n";
}

class EventSocketLog : public core_test::RunningCore {
 protected:
  void SetUp() override {
    core_test::RunningCore::SetUp();
    EventSocketSettings settings;
    settings.source = "event_socket.conf.xml";
    settings.listen_port = 0;
    settings.password = "secret";
    server_ =
        std::make_unique<EventSocketServer>(settings, [](const std::string&, const std::string&) { return "done\n"; });
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
    client_ = std::make_unique<RawClient>(server_->address());
    ASSERT_TRUE(client_->LogIn("secret"));
  }
  void TearDown() override { server_->Stop(); }

  std::string Ask(const std::string& command) {
    client_->Send(command + "\n\n");
    return client_->Message();
  }

  std::unique_ptr<EventSocketServer> server_;
  std::unique_ptr<RawClient> client_;
};

TEST_F(EventSocketLog, ComesWithItsLevelAndItsPlace) {
  ASSERT_EQ(Ask("log notice"), reply("+OK log level notice [5]"));
  switch_log_printf(SWITCH_CHANNEL_ID_LOG, "/a/file.cpp", "function", 42, nullptr, SWITCH_LOG_INFO, "too fine\n");
  switch_log_printf(SWITCH_CHANNEL_ID_LOG, "/a/file.cpp", "function", 43, "some-uuid", SWITCH_LOG_ERROR, "wrong\n");
  EXPECT_THAT(client_->Message(),
              MatchesRegex("Content-Type: log/data\nContent-Length: [0-9]+\nLog-Level: 3\nText-Channel: [0-9]+\n"
                           "Log-File: file.cpp\nLog-Func: function\nLog-Line: 43\nUser-Data: some-uuid\n\n"
                           "[-0-9]+ [:.0-9]+ \\[ERR\\] file.cpp:43 some-uuid wrong\n"));
}

TEST_F(EventSocketLog, StopsWhenItIsNotWantedAnyMore) {
  ASSERT_EQ(Ask("log debug"), reply("+OK log level debug [7]"));
  ASSERT_EQ(Ask("nolog"), reply("+OK no longer logging"));
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "unheard\n");
  FlushLog();
  EXPECT_THAT(Ask("api x"), Not(HasSubstr("unheard")));
  EXPECT_EQ(Ask("nolog"), reply("-ERR not logging"));
}

TEST_F(EventSocketLog, GoesToEachClientAtItsLevel) {
  RawClient other(server_->address());
  ASSERT_TRUE(other.LogIn("secret"));
  ASSERT_EQ(Ask("log err"), reply("+OK log level err [3]"));
  other.Send("log notice\n\n");
  ASSERT_EQ(other.Message(), reply("+OK log level notice [5]"));
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "a notice\n");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "an error\n");
  EXPECT_THAT(client_->Message(), HasSubstr("an error\n"));
  EXPECT_THAT(other.Message(), HasSubstr("a notice\n"));
  EXPECT_THAT(other.Message(), HasSubstr("an error\n"));
  client_.reset();
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "one client less\n");
  EXPECT_THAT(other.Message(), HasSubstr("one client less\n"));
}

TEST_F(EventSocketLog, AnEventThatAClientSendsReachesThoseWhoWantIt) {
  ASSERT_THAT(Ask("event plain CUSTOM my::own"), HasSubstr("+OK"));
  client_->Send("sendevent CUSTOM\nEvent-Subclass: my::own\nColour: red\nContent-Length: 5\n\nhello");
  const std::string first = client_->Message();
  const std::string second = client_->Message();
  const std::string event = first.find("Reply-Text") == std::string::npos ? first : second;
  EXPECT_EQ(event == first ? second : first, reply("+OK"));
  EXPECT_THAT(event, StartsWith("Content-Length: "));
  EXPECT_THAT(event, HasSubstr("Event-Name: CUSTOM\n"));
  EXPECT_THAT(event, HasSubstr("Event-Subclass: my%3A%3Aown\n"));
  EXPECT_THAT(event, HasSubstr("Colour: red\n"));
  EXPECT_THAT(event, testing::EndsWith("Content-Length: 5\n\nhello"));
}

}  // namespace
}  // namespace kvx_switch
