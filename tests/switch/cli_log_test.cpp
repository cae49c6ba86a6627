#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "cli_run.h"
#include "console/event_socket_server.h"
#include "core/log.h"
#include "core_fixture.h"

namespace {

using cli_test::CliOnTerminal;
using cli_test::CliResult;
using cli_test::run_cli;
using kvx_switch::EventSocketServer;
using kvx_switch::EventSocketSettings;
using testing::HasSubstr;

/// With a log to show: "say" writes a line of it.
class CliLog : public core_test::RunningCore {
 protected:
  void SetUp() override {
    core_test::RunningCore::SetUp();
    EventSocketSettings settings;
    settings.source = "event_socket.conf.xml";
    settings.listen_port = 0;
    settings.password = "secret";
    server_ =
        std::make_unique<EventSocketServer>(settings, [](const std::string& command, const std::string& arguments) {
          if (command == "loglevel") return "+OK log level: INFO\n";
          switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "warned of %s\n", arguments.c_str());
          switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "noticed %s\n", arguments.c_str());
          kvx_switch::FlushLog();
          return "said\n";
        });
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
    port_ = server_->address().substr(server_->address().rfind(':') + 1);
  }
  void TearDown() override { server_->Stop(); }

  CliResult Run(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), {"-P", port_, "-p", "secret"});
    return run_cli(arguments, input);
  }

  std::unique_ptr<EventSocketServer> server_;
  std::string port_;
};

TEST_F(CliLog, IsShownDownToTheLevelWithoutColoursInAPipe) {
  const CliResult result = Run({"-l", "warning", "-x", "say one", "-x", "say two"});
  EXPECT_THAT(result.out, testing::ContainsRegex("\\[WARNING\\] cli_log_test.cpp:[0-9]+ warned of one\n"));
  EXPECT_THAT(result.out, testing::Not(HasSubstr("noticed")));
  EXPECT_THAT(result.out, testing::Not(HasSubstr("\033")));
  EXPECT_EQ(result.exit_code, 0) << result.err;
}

TEST_F(CliLog, IsColouredByItsLevelWhenToldSo) {
  const CliResult result = Run({"--color", "on", "-l", "warning", "-x", "say one", "-x", "say two"});
  EXPECT_THAT(result.out, testing::ContainsRegex("\033\\[35m[^\n]*warned of one\033\\[0m\n"));
  EXPECT_THAT(Run({"--color", "on", "-b", "-l", "warning", "-x", "say one", "-x", "say two"}).out,
              testing::Not(HasSubstr("\033")));
}

TEST_F(CliLog, IsTurnedOnAndOffInTheConsole) {
  const CliResult result = Run({}, "say one\n/log warning\nsay two\nsay three\n/nolog\nsay four\nsay five\n");
  EXPECT_THAT(result.out, testing::Not(HasSubstr("of one")));
  EXPECT_THAT(result.out, HasSubstr("warned of two\n"));
  EXPECT_THAT(result.out, testing::Not(HasSubstr("of four")));
  EXPECT_EQ(result.exit_code, 0) << result.err;
}

TEST_F(CliLog, RefusesALevelThatIsNone) {
  const CliResult result = Run({"-l", "loud", "-x", "say one"});
  EXPECT_EQ(result.exit_code, 64);
  EXPECT_EQ(result.err,
            "kvx-cli: \"loud\" is no log level: console, alert, crit, err, warning, notice, info or debug\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(CliLog, ThatIsNotWrittenIsToldOf) {
  CliOnTerminal cli({"-P", port_, "-p", "secret", "-l", "err"}, {{"TERM", "xterm"}});
  EXPECT_THAT(cli.ReadUntil("ends that.\r\n"), HasSubstr("The log is shown down to err; \"/nolog\" ends that.\r\n"));
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("/log\n");
  EXPECT_THAT(
      cli.ReadUntil("changes that.\r\n"),
      HasSubstr("The log is shown down to info; \"/nolog\" ends that. The switch writes no more: \"loglevel debug\" "
                "changes that.\r\n"));
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("/nolog\n");
  EXPECT_THAT(cli.ReadUntil("no longer shown.\r\n"), HasSubstr("The log is no longer shown.\r\n"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

TEST_F(CliLog, AppearsWhileALineIsBeingTyped) {
  CliOnTerminal cli({"-P", port_, "-p", "secret", "-l", "notice"}, {{"TERM", "xterm"}});
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("sa");
  cli.ReadUntil("sa");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "in between\n");
  EXPECT_THAT(cli.ReadUntil("in between\033[0m\r\n"), HasSubstr("\033[36m"));
  EXPECT_THAT(cli.ReadUntil("> sa"), HasSubstr("kvx@127.0.0.1> sa"));
  cli.Type("y it\n");
  EXPECT_THAT(cli.ReadUntil("said"), HasSubstr("said"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

}  // namespace
