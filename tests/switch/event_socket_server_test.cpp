#include "console/event_socket_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "event_socket_raw_client.h"
#include "support/free_ports.h"
#include "support/process_child.h"
#include "support/process_inspection.h"

namespace kvx_switch {
namespace {

using event_socket_test::RawClient;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kGoodbye[] = "Content-Type: text/disconnect-notice\nContent-Length: 23\n\nDisconnected, goodbye.\n";
constexpr char kStopping[] =
    "Content-Type: text/disconnect-notice\nContent-Length: 33\n\nThe switch is stopping, goodbye.\n";
constexpr seconds kLimit{10};

std::string reply(const std::string& text) {
  return "Content-Type: command/reply\nReply-Text: " + text + "\n\n";
}

std::string api_response(const std::string& body) {
  return "Content-Type: api/response\nContent-Length: " + std::to_string(body.size()) + "\n\n" + body;
}

class EventSocketServerTest : public testing::Test {
 protected:
  EventSocketServerTest() {
    settings_.source = "event_socket.conf.xml";
    settings_.listen_ip = "127.0.0.1";
    settings_.listen_port = 0;
    settings_.password = "secret";
  }

  void TearDown() override {
    release_.set_value();
    if (server_) server_->Stop();
  }

  /// "hold" waits until the test ends or lets it go, "big" answers 32 MB, everything else answers its own name.
  std::string RunApi(const std::string& command) {
    if (command == "big") return std::string(32 * 1024 * 1024, 'x');
    if (command == "hold") {
      holding_.set_value();
      released_.wait_for(kLimit);
    }
    return command + "\n";
  }

  void Start() {
    server_ = std::make_unique<EventSocketServer>(
        settings_, [this](const std::string& command, const std::string&) { return RunApi(command); });
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
  }

  std::string StartError() {
    EventSocketServer server(settings_, [](auto&, auto&) { return ""; });
    std::string error;
    EXPECT_FALSE(server.Start(error));
    EXPECT_EQ(server.address(), "");
    return error;
  }

  void ExpectServed() {
    RawClient client(server_->address());
    ASSERT_TRUE(client.LogIn("secret"));
    ASSERT_TRUE(client.Send("api ping\n\n"));
    EXPECT_EQ(client.Message(), api_response("ping\n"));
  }

  bool WaitForConnections(size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (server_->connections() != count) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
  }

  EventSocketSettings settings_;
  std::promise<void> holding_;
  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
  std::unique_ptr<EventSocketServer> server_;
};

TEST_F(EventSocketServerTest, TellsThePortThatItReallyTook) {
  Start();
  EXPECT_THAT(server_->address(), StartsWith("127.0.0.1:"));
  EXPECT_NE(server_->address(), "127.0.0.1:0");
  EXPECT_TRUE(RawClient(server_->address()).connected());
}

TEST_F(EventSocketServerTest, LogsInRunsACommandAndLetsGo) {
  Start();
  RawClient client(server_->address());
  EXPECT_EQ(client.Message(), "Content-Type: auth/request\n\n");
  client.Send("auth secret\n\n");
  EXPECT_EQ(client.Message(), reply("+OK accepted"));
  client.Send("api version\n\n");
  EXPECT_EQ(client.Message(), api_response("version\n"));
  client.Send("nonsense\n\n");
  EXPECT_EQ(client.Message(), reply("-ERR command not found"));
  client.Send("exit\n\n");
  EXPECT_EQ(client.Rest(), reply("+OK bye") + kGoodbye);
}

TEST_F(EventSocketServerTest, ClosesAfterThreeWrongPasswords) {
  Start();
  RawClient client(server_->address());
  client.Message();
  client.Send("auth a\n\nauth b\n\nauth c\n\nauth secret\n\n");
  const std::string invalid = reply("-ERR invalid");
  EXPECT_EQ(client.Rest(), invalid + invalid + invalid + kGoodbye);
  ExpectServed();
}

TEST_F(EventSocketServerTest, ClosesWhenNoPasswordComesInTime) {
  settings_.patience.login = milliseconds(50);
  Start();
  RawClient client(server_->address());
  client.Message();
  EXPECT_EQ(client.Rest(),
            "Content-Type: text/disconnect-notice\nContent-Length: 30\n\nNo password in time, goodbye.\n");
}

TEST_F(EventSocketServerTest, LeavesAClientThatLoggedInAllTheTimeItWants) {
  settings_.patience.login = milliseconds(200);
  Start();
  RawClient client(server_->address());
  ASSERT_TRUE(client.LogIn("secret"));
  std::this_thread::sleep_for(milliseconds(400));
  client.Send("api late\n\n");
  EXPECT_EQ(client.Message(), api_response("late\n"));
}

TEST_F(EventSocketServerTest, TakesBytesInAnyPortions) {
  Start();
  RawClient client(server_->address());
  client.Message();
  for (const char byte : std::string("auth secret\r\n\r\napi one\n\n")) ASSERT_TRUE(client.Send({byte}));
  EXPECT_EQ(client.Message(), reply("+OK accepted"));
  EXPECT_EQ(client.Message(), api_response("one\n"));
  client.Send("api two\n\napi three\n\nexit\n\n");
  EXPECT_EQ(client.Rest(), api_response("two\n") + api_response("three\n") + reply("+OK bye") + kGoodbye);
}

TEST_F(EventSocketServerTest, AnswersWhatCameBeforeTheClientStoppedSending) {
  Start();
  RawClient client(server_->address());
  client.Send("auth secret\n\napi last\n\n");
  client.EndSending();
  EXPECT_EQ(client.Rest(), "Content-Type: auth/request\n\n" + reply("+OK accepted") + api_response("last\n"));
}

TEST_F(EventSocketServerTest, GivesStrangersLittleRoom) {
  Start();
  RawClient client(server_->address());
  client.Message();
  client.Send("auth " + std::string(2000, 'a'));
  EXPECT_EQ(client.Rest(), reply("-ERR request too large") + kGoodbye);

  RawClient with_body(server_->address());
  with_body.Message();
  with_body.Send("auth secret\nContent-Length: 1\n\n");
  EXPECT_EQ(with_body.Rest(), reply("-ERR request too large") + kGoodbye);
}

TEST_F(EventSocketServerTest, TakesLongLinesAfterTheLoginAndRefusesEndlessOnes) {
  Start();
  RawClient client(server_->address());
  ASSERT_TRUE(client.LogIn("secret"));
  const std::string name(60000, 'n');
  client.Send("api " + name + "\n\n");
  EXPECT_EQ(client.Message(), api_response(name + "\n"));
  client.Send("api " + std::string(70000, 'n'));
  EXPECT_EQ(client.Rest(), reply("-ERR request too large") + kGoodbye);
}

TEST_F(EventSocketServerTest, OutlivesGarbage) {
  Start();
  std::mt19937 random(20);
  for (int round = 0; round < 50; ++round) {
    RawClient client(server_->address());
    std::string garbage(1 + random() % 3000, '\0');
    for (char& byte : garbage) byte = static_cast<char>(random());
    client.Send(garbage);
    client.EndSending();
    EXPECT_THAT(client.Rest(), testing::Not(HasSubstr("[still open]")));
  }
  ExpectServed();
  EXPECT_TRUE(WaitForConnections(0));
}

TEST_F(EventSocketServerTest, ServesManyClientsAtOnce) {
  Start();
  std::vector<std::future<int>> clients;
  for (int number = 0; number < 40; ++number) {
    clients.push_back(std::async(std::launch::async, [this, number] {
      RawClient client(server_->address());
      int answers = 0;
      if (!client.LogIn("secret")) return answers;
      for (int round = 0; round < 20; ++round) {
        const std::string name = "c" + std::to_string(number) + "-" + std::to_string(round);
        client.Send("api " + name + "\n\n");
        if (client.Message() == api_response(name + "\n")) ++answers;
      }
      return answers;
    }));
  }
  for (auto& client : clients) EXPECT_EQ(client.get(), 20);
  EXPECT_TRUE(WaitForConnections(0));
}

TEST_F(EventSocketServerTest, TurnsClientsAwayAboveTheLimitAndTakesThemAgainBelow) {
  settings_.max_connections = 2;
  Start();
  auto first = std::make_unique<RawClient>(server_->address());
  RawClient second(server_->address());
  ASSERT_TRUE(first->LogIn("secret"));
  ASSERT_TRUE(second.LogIn("secret"));
  RawClient third(server_->address());
  EXPECT_EQ(third.Rest(), "Content-Type: text/rude-rejection\nContent-Length: 22\n\nToo many connections.\n");
  first.reset();
  ASSERT_TRUE(WaitForConnections(1));
  ExpectServed();
}

TEST_F(EventSocketServerTest, ServesOthersWhileACommandTakesLong) {
  Start();
  RawClient slow(server_->address());
  ASSERT_TRUE(slow.LogIn("secret"));
  slow.Send("api hold\n\n");
  ASSERT_EQ(holding_.get_future().wait_for(kLimit), std::future_status::ready);
  ExpectServed();
}

TEST_F(EventSocketServerTest, ServesOthersWhileAClientDoesNotReadAndGivesThatOneUp) {
  settings_.patience.send = milliseconds(200);
  Start();
  RawClient deaf(server_->address(), 4096);
  ASSERT_TRUE(deaf.LogIn("secret"));
  deaf.Send("api big\n\n");
  ExpectServed();
  EXPECT_TRUE(WaitForConnections(0));
  EXPECT_LT(deaf.Rest().size(), 32u * 1024 * 1024);
}

TEST_F(EventSocketServerTest, SendsLargeAnswersWhole) {
  Start();
  RawClient client(server_->address());
  ASSERT_TRUE(client.LogIn("secret"));
  client.Send("api big\n\n");
  EXPECT_EQ(client.Message().size(), api_response(std::string(32 * 1024 * 1024, 'x')).size());
}

TEST_F(EventSocketServerTest, TakesLeaveOfItsClientsWhenItStops) {
  Start();
  RawClient stranger(server_->address());
  RawClient known(server_->address());
  ASSERT_EQ(stranger.Message(), "Content-Type: auth/request\n\n");
  ASSERT_TRUE(known.LogIn("secret"));
  const std::string address = server_->address();
  auto stopped = std::async(std::launch::async, [this] { server_->Stop(); });
  EXPECT_EQ(stranger.Rest(), kStopping);
  EXPECT_EQ(known.Rest(), kStopping);
  ASSERT_EQ(stopped.wait_for(kLimit), std::future_status::ready);
  EXPECT_EQ(server_->connections(), 0u);
  EXPECT_EQ(server_->address(), "");
  EXPECT_FALSE(RawClient(address).connected());
}

TEST_F(EventSocketServerTest, WaitsForACommandThatRunsWhenItStops) {
  Start();
  RawClient client(server_->address());
  ASSERT_TRUE(client.LogIn("secret"));
  client.Send("api hold\n\napi never\n\n");
  ASSERT_EQ(holding_.get_future().wait_for(kLimit), std::future_status::ready);
  auto stopped = std::async(std::launch::async, [this] { server_->Stop(); });
  EXPECT_EQ(stopped.wait_for(milliseconds(100)), std::future_status::timeout);
  release_.set_value();
  release_ = std::promise<void>();
  EXPECT_EQ(client.Rest(), api_response("hold\n") + kStopping);
  EXPECT_EQ(stopped.wait_for(kLimit), std::future_status::ready);
}

TEST_F(EventSocketServerTest, DoesNotWaitLongForADeafClientWhenItStops) {
  Start();
  RawClient deaf(server_->address(), 4096);
  ASSERT_TRUE(deaf.LogIn("secret"));
  deaf.Send("api big\n\n");
  ASSERT_NE(deaf.Message().find("api/response"), std::string::npos);
  deaf.Send("api big\n\n");
  auto stopped = std::async(std::launch::async, [this] { server_->Stop(); });
  EXPECT_EQ(stopped.wait_for(seconds(5)), std::future_status::ready);
}

TEST_F(EventSocketServerTest, LeavesNoDescriptorAndNoThreadBehind) {
  const test_support::ProcessHoldings before = test_support::inspect_process(getpid());
  Start();
  for (int round = 0; round < 20; ++round) ExpectServed();
  {
    RawClient stays(server_->address());
    ASSERT_TRUE(stays.LogIn("secret"));
    auto stopped = std::async(std::launch::async, [this] { server_->Stop(); });
    EXPECT_EQ(stays.Rest(), kStopping);
  }
  server_.reset();
  EXPECT_TRUE(test_support::wait_until(kLimit, [&] { return test_support::inspect_process(getpid()) == before; }))
      << test_support::describe_difference(before, test_support::inspect_process(getpid()));
}

TEST_F(EventSocketServerTest, StopsTwiceAndWithoutAStart) {
  Start();
  server_->Stop();
  server_->Stop();
  EventSocketServer never_started(settings_, [](auto&, auto&) { return ""; });
  never_started.Stop();
  EXPECT_EQ(never_started.address(), "");
}

TEST_F(EventSocketServerTest, NamesFileAddressAndPortWhenThePortIsTaken) {
  const test_support::OccupiedTcpPort taken;
  settings_.listen_port = taken.Port();
  EXPECT_EQ(StartError(), "event_socket.conf.xml: cannot listen on 127.0.0.1:" + std::to_string(taken.Port()) +
                              ": Address already in use");
}

TEST_F(EventSocketServerTest, RefusesAnAddressThatIsNone) {
  settings_.listen_ip = "256.1.1.1";
  settings_.listen_port = 8021;
  EXPECT_EQ(StartError(), "event_socket.conf.xml: cannot listen on 256.1.1.1:8021: \"256.1.1.1\" is not an IP address");
}

TEST_F(EventSocketServerTest, RefusesKnownPasswordsBeyondLoopback) {
  for (const char* password : {"kelvaro", "ClueCon"}) {
    for (const char* address : {"0.0.0.0", "192.0.2.1", "::", "2001:db8::1", "::ffff:192.0.2.1"}) {
      settings_.password = password;
      settings_.listen_ip = address;
      EXPECT_THAT(StartError(), HasSubstr("the password is one that everybody knows")) << address;
    }
  }
}

TEST_F(EventSocketServerTest, AcceptsKnownPasswordsOnLoopback) {
  settings_.password = "kelvaro";
  for (const char* address : {"127.0.0.1", "127.0.0.2", "localhost"}) {
    settings_.listen_ip = address;
    Start();
    RawClient client(server_->address());
    EXPECT_TRUE(client.LogIn("kelvaro")) << address;
  }
}

TEST_F(EventSocketServerTest, AcceptsAnotherPasswordBeyondLoopback) {
  settings_.listen_ip = "0.0.0.0";
  Start();
  EXPECT_THAT(server_->address(), StartsWith("0.0.0.0:"));
}

TEST_F(EventSocketServerTest, ListensOnIpv6WhereTheMachineHasIt) {
  settings_.listen_ip = "::1";
  settings_.password = "kelvaro";
  server_ = std::make_unique<EventSocketServer>(settings_, [](auto&, auto&) { return "x\n"; });
  std::string error;
  if (server_->Start(error)) {
    EXPECT_THAT(server_->address(), StartsWith("[::1]:"));
    RawClient client(server_->address());
    EXPECT_TRUE(client.LogIn("kelvaro"));
  } else {
    EXPECT_THAT(error, StartsWith("event_socket.conf.xml: cannot listen on [::1]:0: "));
  }
}

}  // namespace
}  // namespace kvx_switch
