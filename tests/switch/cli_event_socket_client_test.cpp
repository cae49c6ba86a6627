#include "cli/event_socket_client.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "support/free_ports.h"
#include "support/process_child.h"

namespace kvx_cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;

constexpr seconds kLimit{10};
constexpr milliseconds kSoon{100};
constexpr char kGreeting[] = "Content-Type: auth/request\n\n";
constexpr char kAccepted[] = "Content-Type: command/reply\nReply-Text: +OK accepted\n\n";

/// Listens on a port of its own and treats the first client as the script says, which gets the connected socket.
class ScriptedSwitch {
 public:
  explicit ScriptedSwitch(std::function<void(int)> script) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(listener_, 4), 0);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, script = std::move(script)] {
      pollfd waiting{listener_, POLLIN, 0};
      if (poll(&waiting, 1, 10000) <= 0) return;
      const int client = accept(listener_, nullptr, nullptr);
      const timeval patience{20, 0};
      setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
      script(client);
      close(client);
    });
  }
  ~ScriptedSwitch() {
    thread_.join();
    close(listener_);
  }

  uint16_t port() const { return port_; }

 private:
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread thread_;
};

void say(int client, const std::string& bytes) {
  send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

/// One request, up to its empty line; what came until then when the client hangs up.
std::string hear(int client) {
  std::string heard;
  char byte;
  while (heard.find("\n\n") == std::string::npos && recv(client, &byte, 1, 0) == 1) heard += byte;
  return heard;
}

void wait_for_hangup(int client) {
  char bytes[256];
  while (recv(client, bytes, sizeof(bytes), 0) > 0) {
  }
}

/// Lets the client in and answers its next request with these bytes.

std::function<void(int)> answering(const std::string& answer, bool hang_up = false) {
  return [answer, hang_up](int client) {
    say(client, kGreeting);
    hear(client);
    say(client, kAccepted);
    hear(client);
    say(client, answer);
    if (!hang_up) wait_for_hangup(client);
  };
}

class EventSocketClientTest : public testing::Test {
 protected:
  Outcome Connect(const ScriptedSwitch& peer, milliseconds limit = kLimit) {
    return client_.Connect("127.0.0.1", peer.port(), "secret", limit);
  }

  EventSocketClient client_;
  std::string output_;
};

TEST_F(EventSocketClientTest, LogsInAndRunsACommand) {
  std::string login, command;
  {
    ScriptedSwitch peer([&](int client) {
      say(client, kGreeting);
      login = hear(client);
      say(client, kAccepted);
      command = hear(client);
      say(client, "Content-Type: api/response\nContent-Length: 4\n\na\n\nb");
    });
    ASSERT_EQ(Connect(peer), Outcome::kDone) << client_.error();
    ASSERT_EQ(client_.Api("show calls", kLimit, output_), Outcome::kDone) << client_.error();
  }
  EXPECT_EQ(login, "auth secret\n\n");
  EXPECT_EQ(command, "api show calls\n\n");
  EXPECT_EQ(output_, "a\n\nb");
}

TEST_F(EventSocketClientTest, HandsOnTheLogThatCameAlongWithAnAnswer) {
  std::string log;
  client_.OnLog([&log](const EventSocketMessage& line) { log += line.body; });
  ScriptedSwitch peer(answering(
      "Content-Type: api/response\nContent-Length: 1\n\nx"
      "Content-Type: log/data\nContent-Length: 4\n\none\nContent-Type: log/data\nContent-Length: 4\n\ntwo\n"));
  ASSERT_EQ(Connect(peer), Outcome::kDone) << client_.error();
  ASSERT_EQ(client_.Api("status", kLimit, output_), Outcome::kDone) << client_.error();
  EXPECT_EQ(log, "") << "the answer comes first";
  EXPECT_TRUE(test_support::wait_until(kLimit, [&] { return client_.Connected() && log == "one\ntwo\n"; })) << log;
  client_.Close();
}

TEST_F(EventSocketClientTest, ReadsAnswersThatComeByteByByte) {
  ScriptedSwitch peer([](int client) {
    for (const char byte : std::string(kGreeting)) say(client, {byte});
    hear(client);
    for (const char byte : std::string(kAccepted)) say(client, {byte});
    hear(client);
    for (const char byte : std::string("Content-Type: api/response\r\nContent-Length: 3\r\n\r\nabc"))
      say(client, {byte});
  });
  ASSERT_EQ(Connect(peer), Outcome::kDone) << client_.error();
  ASSERT_EQ(client_.Api("x", kLimit, output_), Outcome::kDone) << client_.error();
  EXPECT_EQ(output_, "abc");
}

TEST_F(EventSocketClientTest, PassesOverEventsBeforeTheAnswer) {
  ScriptedSwitch peer(
      answering("Content-Type: text/event-plain\nContent-Length: 3\n\na\n\n"
                "Content-Type: api/response\nContent-Length: 2\n\nok"));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  ASSERT_EQ(client_.Api("x", kLimit, output_), Outcome::kDone) << client_.error();
  EXPECT_EQ(output_, "ok");
  client_.Close();
}

TEST_F(EventSocketClientTest, ReturnsTheReplyToALineOfTheProtocol) {
  ScriptedSwitch peer(answering("Content-Type: command/reply\nReply-Text: +OK\nJob-UUID: 7\n\n"));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EventSocketMessage reply;
  ASSERT_EQ(client_.Command("bgapi x", kLimit, reply), Outcome::kDone) << client_.error();
  EXPECT_EQ(reply.Header("reply-text"), "+OK");
  EXPECT_EQ(reply.Header("Job-UUID"), "7");
  EXPECT_EQ(reply.Header("Content-Length"), "");
  client_.Close();
}

TEST_F(EventSocketClientTest, TellsAWrongPassword) {
  ScriptedSwitch peer([](int client) {
    say(client, kGreeting);
    hear(client);
    say(client, "Content-Type: command/reply\nReply-Text: -ERR invalid\n\n");
    wait_for_hangup(client);
  });
  EXPECT_EQ(Connect(peer), Outcome::kWrongPassword);
  EXPECT_EQ(client_.error(), "-ERR invalid");
  EXPECT_FALSE(client_.Connected());
}

TEST_F(EventSocketClientTest, TellsThatNobodyListens) {
  uint16_t port = 0;
  {
    const test_support::OccupiedTcpPort closed_at_once;
    port = closed_at_once.Port();
  }
  EXPECT_EQ(client_.Connect("127.0.0.1", port, "secret", kLimit), Outcome::kUnreachable);
  EXPECT_EQ(client_.error(), "Connection refused");
}

TEST_F(EventSocketClientTest, TellsAPeerOfAnotherKind) {
  ScriptedSwitch peer([](int client) {
    say(client, "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\n\r\n");
    wait_for_hangup(client);
  });
  EXPECT_EQ(Connect(peer), Outcome::kProtocolError);
  EXPECT_THAT(client_.error(), HasSubstr("does not speak the event-socket protocol"));
}

TEST_F(EventSocketClientTest, TellsAPeerThatSaysNothing) {
  ScriptedSwitch peer(&wait_for_hangup);
  EXPECT_EQ(Connect(peer, kSoon), Outcome::kTimedOut);
}

TEST_F(EventSocketClientTest, TellsThatItWasTurnedAway) {
  ScriptedSwitch peer(
      [](int client) { say(client, "Content-Type: text/rude-rejection\nContent-Length: 10\n\nToo many.\n"); });
  EXPECT_EQ(Connect(peer), Outcome::kDisconnected);
  EXPECT_EQ(client_.error(), "Too many.");
}

TEST_F(EventSocketClientTest, ClosesAfterAnAnswerThatCameTooLate) {
  ScriptedSwitch peer(answering(""));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x", kSoon, output_), Outcome::kTimedOut);
  EXPECT_FALSE(client_.Connected());
  EXPECT_EQ(client_.Api("x", kSoon, output_), Outcome::kDisconnected);
}

TEST_F(EventSocketClientTest, TellsAConnectionThatEndsInTheMiddleOfAnAnswer) {
  ScriptedSwitch peer(answering("Content-Type: api/response\nContent-Length: 100\n\nhalf", true));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kDisconnected);
  EXPECT_EQ(client_.error(), "the switch closed the connection");
  EXPECT_EQ(output_, "");
}

TEST_F(EventSocketClientTest, PassesOnWhatTheSwitchSaysAtItsEnd) {
  ScriptedSwitch peer(answering("Content-Type: text/disconnect-notice\nContent-Length: 5\n\nBye.\n"));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kDisconnected);
  EXPECT_EQ(client_.error(), "Bye.");
}

TEST_F(EventSocketClientTest, TellsARefusedLine) {
  ScriptedSwitch peer(answering("Content-Type: command/reply\nReply-Text: -ERR request too large\n\n"));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kProtocolError);
  EXPECT_EQ(client_.error(), "-ERR request too large");
}

TEST_F(EventSocketClientTest, RefusesLengthsThatAreNone) {
  for (const char* length : {"-1", "x", "12x", "999999999", "99999999999999999999"}) {
    ScriptedSwitch peer(answering(std::string("Content-Type: api/response\nContent-Length: ") + length + "\n\n"));
    ASSERT_EQ(Connect(peer), Outcome::kDone);
    EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kProtocolError) << length;
    EXPECT_EQ(client_.error(), std::string("a body of \"") + length + "\" bytes");
  }
}

TEST_F(EventSocketClientTest, RefusesHeadersWithoutEnd) {
  ScriptedSwitch peer(answering(std::string(70000, 'h')));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kProtocolError);
}

TEST_F(EventSocketClientTest, SendsNoLineWithALineBreak) {
  ScriptedSwitch peer(answering("Content-Type: api/response\nContent-Length: 2\n\nok"));
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_EQ(client_.Api("x\n\nexit", kLimit, output_), Outcome::kProtocolError);
  EXPECT_EQ(client_.Api("x", kLimit, output_), Outcome::kDone);
  EXPECT_EQ(output_, "ok");
  client_.Close();
}

TEST_F(EventSocketClientTest, NoticesBetweenCommandsThatTheSwitchIsGone) {
  ScriptedSwitch peer(answering("Content-Type: api/response\nContent-Length: 2\n\nok", true));
  EXPECT_FALSE(client_.Connected());
  ASSERT_EQ(Connect(peer), Outcome::kDone);
  EXPECT_TRUE(client_.Connected());
  ASSERT_EQ(client_.Api("x", kLimit, output_), Outcome::kDone);
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  while (client_.Connected() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_FALSE(client_.Connected());
}

}  // namespace
}  // namespace kvx_cli
