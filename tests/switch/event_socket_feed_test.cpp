// Events on their way to the clients of the event socket: the server, real connections, and the core's event thread.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "console/event_socket_server.h"
#include "core/event.h"
#include "core_fixture.h"
#include "event_socket_event.h"
#include "event_socket_raw_client.h"
#include "support/event_capture.h"

namespace kvx_switch {
namespace {

using event_socket_test::EventHeaders;
using event_socket_test::fire;
using event_socket_test::make_event;
using event_socket_test::RawClient;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string reply(const std::string& text) {
  return "Content-Type: command/reply\nReply-Text: " + text + "\n\n";
}

void fire(switch_event_types_t kind, const EventHeaders& headers = {}, const char* subclass = nullptr) {
  fire(make_event(kind, headers, subclass));
}

class EventFeedTest : public core_test::RunningCore {
 protected:
  void SetUp() override {
    core_test::RunningCore::SetUp();
    settings_.source = "event_socket.conf.xml";
    settings_.listen_port = 0;
    settings_.password = "secret";
  }
  void TearDown() override {
    if (server_) server_->Stop();
    server_.reset();
  }

  void StartServer() {
    server_ = std::make_unique<EventSocketServer>(
        settings_, [](const std::string& command, const std::string&) { return command + " done\n"; });
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
  }

  std::unique_ptr<RawClient> LoggedIn(int receive_buffer = 0) {
    auto client = std::make_unique<RawClient>(server_->address(), receive_buffer);
    EXPECT_TRUE(client->LogIn("secret"));
    return client;
  }

  static std::string Ask(RawClient& client, const std::string& command) {
    EXPECT_TRUE(client.Send(command + "\n\n"));
    return client.Message();
  }

  bool WaitForNoConnection() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (server_->connections() != 0) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

  std::size_t LogLinesLike(const std::string& part) {
    std::size_t count = 0;
    for (const auto& line : log().Lines()) count += line.text.find(part) != std::string::npos ? 1 : 0;
    return count;
  }

  EventSocketSettings settings_;
  std::unique_ptr<EventSocketServer> server_;
};

TEST_F(EventFeedTest, SendsTheEventsThatAClientAskedForAndNoOthers) {
  StartServer();
  const auto client = LoggedIn();
  fire(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "too early"}});
  FlushEvents();
  EXPECT_EQ(Ask(*client, "event plain CHANNEL_CREATE CUSTOM fax::start"), reply("+OK event listener enabled plain"));
  fire(SWITCH_EVENT_CHANNEL_HANGUP, {{"Unique-ID", "1"}});
  fire(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg 2"}});
  fire(SWITCH_EVENT_CUSTOM, {{"Unique-ID", "3"}}, "fax::stop");
  fire(SWITCH_EVENT_CUSTOM, {{"Unique-ID", "4"}}, "fax::start");
  const std::string first = client->Message();
  EXPECT_THAT(first, StartsWith("Content-Length: "));
  EXPECT_THAT(first, HasSubstr("\nContent-Type: text/event-plain\n\nEvent-Name: CHANNEL_CREATE\nCore-UUID: "));
  EXPECT_THAT(first, HasSubstr("\nUnique-ID: leg%202\n\n"));
  EXPECT_THAT(client->Message(), HasSubstr("\nEvent-Subclass: fax%3A%3Astart\nUnique-ID: 4\n\n"));
  EXPECT_EQ(Ask(*client, "api status"), "Content-Type: api/response\nContent-Length: 12\n\nstatus done\n")
      << "nothing else came";
}

TEST_F(EventFeedTest, SendsEachClientItsOwnForm) {
  StartServer();
  const auto plain = LoggedIn();
  const auto json = LoggedIn();
  const auto xml = LoggedIn();
  Ask(*plain, "event HEARTBEAT");
  Ask(*json, "event json HEARTBEAT");
  Ask(*xml, "event xml HEARTBEAT");
  fire(SWITCH_EVENT_HEARTBEAT, {{"Note", "a b"}});
  EXPECT_THAT(plain->Message(), HasSubstr("\nNote: a%20b\n"));
  EXPECT_THAT(json->Message(),
              testing::AllOf(HasSubstr("Content-Type: text/event-json\n\n{\"Event-Name\":\"HEARTBEAT\""),
                             HasSubstr(",\"Note\":\"a b\"}")));
  EXPECT_THAT(xml->Message(), HasSubstr("<Note>a%20b</Note>"));
}

TEST_F(EventFeedTest, HeedsFiltersAndTheirEnd) {
  StartServer();
  const auto client = LoggedIn();
  Ask(*client, "event plain ALL");
  EXPECT_EQ(Ask(*client, "filter Unique-ID leg-2"), reply("+OK filter added. [Unique-ID]=[leg-2]"));
  for (const char* leg : {"leg-1", "leg-2", "leg-3"}) fire(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", leg}});
  FlushEvents();
  EXPECT_THAT(client->Message(), HasSubstr("\nUnique-ID: leg-2\n"));
  EXPECT_EQ(Ask(*client, "filter delete Unique-ID leg-2"), reply("+OK filter deleted. [Unique-ID][leg-2]"));
  fire(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-1"}});
  EXPECT_THAT(client->Message(), HasSubstr("\nUnique-ID: leg-1\n"));
}

TEST_F(EventFeedTest, SendsNothingMoreAfterNoEvents) {
  StartServer();
  const auto client = LoggedIn();
  Ask(*client, "event plain ALL");
  EXPECT_EQ(Ask(*client, "noevents"), reply("+OK no longer listening for events"));
  fire(SWITCH_EVENT_HEARTBEAT);
  FlushEvents();
  EXPECT_EQ(Ask(*client, "nonsense"), reply("-ERR command not found"));
  Ask(*client, "event plain HEARTBEAT");
  fire(SWITCH_EVENT_HEARTBEAT, {{"Note", "second"}});
  EXPECT_THAT(client->Message(), HasSubstr("\nNote: second\n"));
}

TEST_F(EventFeedTest, AnswersABackgroundCommandAtOnceAndSendsItsResultAsAnEvent) {
  StartServer();
  const auto client = LoggedIn();
  Ask(*client, "event plain BACKGROUND_JOB");
  ASSERT_TRUE(client->Send("bgapi originate a b\nJob-UUID: my-job\n\n"));
  EXPECT_EQ(client->Message(), "Content-Type: command/reply\nReply-Text: +OK Job-UUID: my-job\nJob-UUID: my-job\n\n");
  EXPECT_THAT(client->Message(), HasSubstr("\nJob-UUID: my-job\nJob-Command: originate\nJob-Command-Arg: a%20b\n"
                                           "Content-Length: 15\n\noriginate done\n"));
}

TEST_F(EventFeedTest, ASlowReaderLosesEventsAndHoldsUpNobody) {
  settings_.outbox.messages = 50;
  settings_.patience.send = std::chrono::minutes(1);
  StartServer();
  const auto slow = LoggedIn(4096);
  ASSERT_EQ(Ask(*slow, "event plain MESSAGE"), reply("+OK event listener enabled plain"));
  test_support::EventCapture all(SWITCH_EVENT_MESSAGE);
  constexpr std::size_t kEvents = 2000;
  const std::string long_note(16 * 1024, 'x');  // more in all than the kernel keeps for the two sides
  for (std::size_t i = 0; i < kEvents; ++i) {
    fire(SWITCH_EVENT_MESSAGE, {{"Number", std::to_string(i)}, {"Note", long_note}});
  }
  EXPECT_EQ(all.WaitFor(kEvents, std::chrono::seconds(60)).size(), kEvents) << "the event thread waited";
  EXPECT_EQ(LogLinesLike("reads too slowly, events for it are dropped from MESSAGE on"), 1u);

  // It reads again: the rest that was kept, in order, then what is new.
  std::size_t received = 0;
  std::size_t fired = kEvents + 1;
  long last = -1;
  fire(SWITCH_EVENT_MESSAGE, {{"Number", "1000000"}, {"Last", "perhaps"}});
  std::string message;
  do {
    message = slow->Message();
    const std::size_t at = message.find("\nNumber: ");
    ASSERT_NE(at, std::string::npos) << message.substr(0, 200);
    const long number = std::strtol(message.c_str() + at + 9, nullptr, 10);
    EXPECT_GT(number, last);
    last = number;
    ++received;
    if (received < 30) continue;
    fire(SWITCH_EVENT_MESSAGE, {{"Number", "2000000"}, {"Last", "sure"}});  // until one finds room
    ++fired;
  } while (last < 2000000);
  EXPECT_LT(received, kEvents);

  FlushEvents();
  slow->Send("exit\n\n");
  const std::string rest = slow->Rest();
  EXPECT_THAT(rest, HasSubstr("+OK bye"));
  ASSERT_TRUE(WaitForNoConnection());
  for (std::size_t at = rest.find("\nNumber: "); at != std::string::npos; at = rest.find("\nNumber: ", at + 1)) {
    ++received;
  }
  const std::size_t dropped = fired - received;
  EXPECT_EQ(LogLinesLike("Event socket: " + std::to_string(dropped) + " events were dropped for 127.0.0.1:"), 1u);
  EXPECT_EQ(LogLinesLike("reads too slowly, events for it are dropped"), 1u) << "told once, however many there are";
}

TEST_F(EventFeedTest, GivesUpAClientThatReadsNothingAtAllWhileEventsWait) {
  settings_.outbox.messages = 10;
  settings_.patience.send = std::chrono::milliseconds(100);
  settings_.patience.farewell = std::chrono::milliseconds(50);
  StartServer();
  const auto deaf = LoggedIn(4096);
  Ask(*deaf, "event plain GENERAL");
  const std::string long_note(64 * 1024, 'x');
  for (int i = 0; i < 400; ++i) fire(SWITCH_EVENT_GENERAL, {{"Note", long_note}});
  EXPECT_TRUE(WaitForNoConnection());
}

TEST_F(EventFeedTest, EventsOfAClientThatLeftHarmNobody) {
  StartServer();
  auto leaver = LoggedIn();
  const auto stayer = LoggedIn();
  Ask(*leaver, "event plain ALL");
  Ask(*stayer, "event plain GENERAL");
  leaver.reset();
  for (int i = 0; i < 100; ++i) fire(SWITCH_EVENT_GENERAL, {{"Number", std::to_string(i)}});
  for (int i = 0; i < 100; ++i) EXPECT_THAT(stayer->Message(), HasSubstr("\nNumber: " + std::to_string(i) + "\n"));
}

TEST_F(EventFeedTest, ClientsComeAskAndGoWhileEventsAreFired) {
  StartServer();
  std::vector<std::thread> firing;
  for (int thread = 0; thread < 2; ++thread) {
    firing.emplace_back([] {
      for (int i = 0; i < 500; ++i) fire(SWITCH_EVENT_GENERAL, {{"Number", std::to_string(i)}});
    });
  }
  std::vector<std::thread> asking;
  for (int thread = 0; thread < 4; ++thread) {
    asking.emplace_back([this] {
      for (int round = 0; round < 10; ++round) {
        RawClient client(server_->address());
        EXPECT_TRUE(client.LogIn("secret"));
        client.Send("event json GENERAL\n\nfilter Number 7\n\nnoevents\n\nevent plain ALL\n\nexit\n\n");
        EXPECT_THAT(client.Rest(), testing::AllOf(HasSubstr("+OK bye"), Not(HasSubstr("-ERR"))));
      }
    });
  }
  for (std::thread& thread : firing) thread.join();
  for (std::thread& thread : asking) thread.join();
  EXPECT_TRUE(WaitForNoConnection());
}

TEST_F(EventFeedTest, SendsWhatWaitsBeforeItSaysGoodbye) {
  StartServer();
  const auto client = LoggedIn();
  Ask(*client, "event plain GENERAL");
  for (int i = 0; i < 50; ++i) fire(SWITCH_EVENT_GENERAL, {{"Number", std::to_string(i)}});
  FlushEvents();
  server_->Stop();
  for (int i = 0; i < 50; ++i) EXPECT_THAT(client->Message(), HasSubstr("\nNumber: " + std::to_string(i) + "\n"));
  EXPECT_THAT(client->Rest(), HasSubstr("The switch is stopping, goodbye."));
}

}  // namespace
}  // namespace kvx_switch
