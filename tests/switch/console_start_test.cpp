#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>

#include "cli_run.h"
#include "console/console.h"
#include "console_switch.h"
#include "event_socket_raw_client.h"
#include "support/free_ports.h"
#include "support/log_capture.h"

namespace {

using console_test::ConsoleSwitch;
using event_socket_test::RawClient;
using kvx_switch::EventSocketAddress;
using kvx_switch::StartConsole;
using kvx_switch::StopConsole;
using testing::HasSubstr;
using testing::StartsWith;

class ConsoleStart : public ConsoleSwitch {
 protected:
  void TearDown() override {
    StopConsole();
    kvx_switch::SetShutdownHook({});
    ConsoleSwitch::TearDown();
  }

  /// The error with which the console refuses to start, without the directory of the file that it names.
  std::string StartError() {
    std::string error;
    EXPECT_FALSE(StartConsole(error));
    EXPECT_EQ(EventSocketAddress(), "");
    const std::string file = ConfigurationPath("event_socket.conf");
    EXPECT_THAT(error, StartsWith(file));
    return error.substr(std::min(file.size(), error.size()));
  }

  void Start() {
    std::string error;
    ASSERT_TRUE(StartConsole(error)) << error;
  }

  std::string Ask(const std::string& line, const std::string& password = "kelvaro") {
    RawClient client(EventSocketAddress());
    if (!client.LogIn(password)) return "not let in";
    client.Send("api " + line + "\n\n");
    return client.Message();
  }
};

TEST_F(ConsoleStart, ServesTheCommandsOverTheEventSocket) {
  Start();
  EXPECT_THAT(EventSocketAddress(), StartsWith("127.0.0.1:"));
  EXPECT_THAT(Ask("status"), HasSubstr("is ready\n0 session(s) since startup\n"));
  EXPECT_EQ(Ask("show calls"), "Content-Type: api/response\nContent-Length: 10\n\n\n0 total.\n");
  EXPECT_EQ(Ask("show"),
            "Content-Type: api/response\nContent-Length: 69\n\n"
            "-USAGE: show calls|channels|codecs|api|modules [count] [as json|xml]\n");
}

TEST_F(ConsoleStart, AnswersUnknownCommandsByName) {
  Start();
  EXPECT_EQ(Ask("foo bar"), "Content-Type: api/response\nContent-Length: 28\n\n-ERR foo Command not found!\n");
}

TEST_F(ConsoleStart, AnswersForACommandThatFailsWithoutAWord) {
  Start();
  ASSERT_EQ(Run("load", "mod_console_sample"), "+OK module loaded\n");
  EXPECT_EQ(Ask("console_sample_fail"),
            "Content-Type: api/response\nContent-Length: 32\n\n-ERR console_sample_fail failed\n");
  EXPECT_EQ(Ask("console_sample  a  b "), "Content-Type: api/response\nContent-Length: 13\n\nsample a  b \n");
}

TEST_F(ConsoleStart, ServesTheCommandLineProgram) {
  Start();
  const std::map<std::string, std::string> environment = {{"KVX_EVENT_SOCKET", EventSocketAddress()}};
  const auto run = [&environment](const std::string& command) {
    return cli_test::run_cli({"-x", command}, "", environment);
  };
  const cli_test::CliResult status = run("status");
  EXPECT_EQ(status.exit_code, 0) << status.err;
  EXPECT_THAT(status.out, HasSubstr("\n77 session(s) max\n"));
  EXPECT_EQ(run("show calls").out, "\n0 total.\n");
  EXPECT_EQ(run("console_complete nonsense").exit_code, 0);
  EXPECT_EQ(run("uuid_kill").exit_code, 4);
  EXPECT_EQ(run("unload mod_console_sample").exit_code, 4);
  const cli_test::CliResult unknown = run("nonsense");
  EXPECT_EQ(unknown.exit_code, 3);
  EXPECT_EQ(unknown.err, "kvx-cli: unknown command: nonsense\n");
}

TEST_F(ConsoleStart, StopsAndStartsAgain) {
  Start();
  StopConsole();
  EXPECT_EQ(EventSocketAddress(), "");
  StopConsole();
  Start();
  EXPECT_THAT(Ask("version"), HasSubstr("kvx-switch Version"));
}

TEST_F(ConsoleStart, RefusesToStartTwice) {
  Start();
  const std::string address = EventSocketAddress();
  std::string error;
  EXPECT_FALSE(StartConsole(error));
  EXPECT_EQ(error, "the console is running already");
  EXPECT_EQ(EventSocketAddress(), address);
}

TEST_F(ConsoleStart, ShutdownFromAClientLetsTheMainThreadStopTheConsole) {
  std::promise<void> asked;
  kvx_switch::SetShutdownHook([&asked] { asked.set_value(); });
  Start();
  RawClient client(EventSocketAddress());
  ASSERT_TRUE(client.LogIn("kelvaro"));
  client.Send("api shutdown\n\n");
  ASSERT_EQ(asked.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  StopConsole();
  EXPECT_EQ(client.Rest(),
            "Content-Type: api/response\nContent-Length: 13\n\n+OK stopping\n"
            "Content-Type: text/disconnect-notice\nContent-Length: 33\n\nThe switch is stopping, goodbye.\n");
}

TEST_F(ConsoleStart, TellsClientsOfWhatHappenedBeforeItStops) {
  Start();
  RawClient client(EventSocketAddress());
  ASSERT_TRUE(client.LogIn("kelvaro"));
  client.Send("event plain GENERAL\n\n");
  EXPECT_THAT(client.Message(), HasSubstr("+OK event listener enabled plain"));
  for (int i = 0; i < 100; ++i) {
    switch_event_t* event = nullptr;
    switch_event_create(&event, SWITCH_EVENT_GENERAL);
    switch_event_fire(&event);
  }
  StopConsole();
  for (int i = 0; i < 100; ++i) EXPECT_THAT(client.Message(), HasSubstr("\n\nEvent-Name: GENERAL\n"));
  EXPECT_THAT(client.Rest(), HasSubstr("The switch is stopping, goodbye."));
}

TEST_F(ConsoleStart, NamesTheFileWhenThePortIsTaken) {
  const test_support::OccupiedTcpPort taken;
  const std::string port = std::to_string(taken.Port());
  WriteEventSocketConfiguration({{"listen-port", port}, {"password", "kelvaro"}});
  EXPECT_EQ(StartError(), ": cannot listen on 127.0.0.1:" + port + ": Address already in use");
}

TEST_F(ConsoleStart, RefusesTheSamplePasswordBeyondLoopback) {
  WriteEventSocketConfiguration({{"listen-ip", "0.0.0.0"}, {"listen-port", "0"}, {"password", "kelvaro"}});
  EXPECT_EQ(
      StartError(),
      ":3: \"listen-ip\" is 0.0.0.0, which is not loopback, and the password \"kelvaro\" is one that everybody knows: "
      "set one of your own or listen on 127.0.0.1");
}

TEST_F(ConsoleStart, NamesEveryMistakeOfItsFile) {
  WriteEventSocketConfiguration({{"listen-ip", "here"}, {"listen-port", "x"}, {"password", ""}});
  const std::string file = ConfigurationPath("event_socket.conf");
  EXPECT_EQ(StartError(), ":3: \"listen-ip\" is \"here\", not a numeric address or \"localhost\"\n" + file +
                              ":4: \"listen-port\" is \"x\", not a number from 0 to 65535\n" + file +
                              ":5: \"password\" must not be empty or begin with a blank");
}

TEST_F(ConsoleStart, RefusesValuesThatMakeNoSense) {
  const std::vector<std::pair<std::map<std::string, std::string>, std::string>> cases = {
      {{{"listen-port", "65536"}, {"password", "x"}}, ":3: \"listen-port\" is \"65536\", not a number from 0 to 65535"},
      {{{"listen-port", "-1"}, {"password", "x"}}, ":3: \"listen-port\" is \"-1\", not a number from 0 to 65535"},
      {{{"listen-port", "80a"}, {"password", "x"}}, ":3: \"listen-port\" is \"80a\", not a number from 0 to 65535"},
      {{{"listen-port", ""}, {"password", "x"}}, ":3: \"listen-port\" is \"\", not a number from 0 to 65535"},
      {{{"listen-ip", ""}, {"password", "x"}}, ":3: \"listen-ip\" is \"\", not a numeric address or \"localhost\""},
      {{{"max-connections", "0"}, {"password", "x"}}, ":3: \"max-connections\" is \"0\", not a number from 1 to 1000"},
      {{{"max-connections", "1001"}, {"password", "x"}},
       ":3: \"max-connections\" is \"1001\", not a number from 1 to 1000"},
      {{{"password", ""}}, ":3: \"password\" must not be empty or begin with a blank"},
      {{{"password", " x"}}, ":3: \"password\" must not be empty or begin with a blank"},
      {{{"listen-port", "0"}}, ":2: no \"password\" given"},
  };
  for (const auto& [parameters, message] : cases) {
    WriteEventSocketConfiguration(parameters);
    EXPECT_EQ(StartError(), message);
  }
}

TEST_F(ConsoleStart, RefusesAFileThatItCannotReadAndSaysWhy) {
  const test_support::LogCapture log;
  WriteConfiguration("event_socket.conf", "<configuration name=\"event_socket.conf\">\n<settings>\n</configuration>\n");
  EXPECT_THAT(StartError(), StartsWith(":3: "));
  WriteConfiguration("event_socket.conf", "<configuration name=\"other.conf\"/>\n");
  EXPECT_EQ(StartError(), ":1: no <configuration name=\"event_socket.conf\"> in it");
  std::filesystem::remove(ConfigurationPath("event_socket.conf"));
  EXPECT_EQ(StartError(), ": No such file or directory");
  EXPECT_TRUE(log.Lines().empty()) << "whoever starts the console tells it, once";
}

TEST_F(ConsoleStart, LimitsConnectionsAsConfigured) {
  WriteEventSocketConfiguration({{"listen-port", "0"}, {"password", "x"}, {"max-connections", "1"}});
  Start();
  RawClient first(EventSocketAddress());
  ASSERT_TRUE(first.LogIn("x"));
  EXPECT_THAT(RawClient(EventSocketAddress()).Rest(), HasSubstr("Too many connections."));
}

TEST_F(ConsoleStart, PassesOverParametersThatItDoesNotKnowAndSaysSo) {
  const test_support::LogCapture log;
  WriteEventSocketConfiguration({{"listen-port", "0"}, {"password", "x"}, {"nat-map", "false"}});
  Start();
  EXPECT_TRUE(log.Has(test_support::warning_line(ConfigurationPath("event_socket.conf") +
                                                 ":4: unknown parameter \"nat-map\", ignored\n")));
}

TEST_F(ConsoleStart, LogsWrongPasswordsWithTheirSource) {
  const test_support::LogCapture log;
  Start();
  EXPECT_EQ(Ask("status", "guess"), "not let in");
  const auto lines = log.LinesOf({"event_socket_dialogue.cpp"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, SWITCH_LOG_WARNING);
  EXPECT_THAT(lines[0].text,
              testing::MatchesRegex("Event socket: wrong password from 127.0.0.1:[0-9]+ \\(1 of 3\\)\n"));
}

}  // namespace
