#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "cli/options.h"
#include "cli_run.h"
#include "console/event_socket_server.h"
#include "console/version.h"
#include "support/free_ports.h"
#include "support/process_child.h"

namespace {

using cli_test::CliOnTerminal;
using cli_test::CliResult;
using cli_test::run_cli;
using kvx_switch::EventSocketServer;
using kvx_switch::EventSocketSettings;
using testing::HasSubstr;
using testing::StartsWith;

class CliProgram : public testing::Test {
 protected:
  void SetUp() override { StartServer("secret"); }
  void TearDown() override {
    release_.set_value();
    server_->Stop();
  }

  void StartServer(const std::string& password) {
    EventSocketSettings settings;
    settings.source = "event_socket.conf.xml";
    settings.listen_port = 0;
    settings.password = password;
    server_ = std::make_unique<EventSocketServer>(
        settings, [this](const std::string& name, const std::string& arguments) { return Answer(name, arguments); });
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
    address_ = server_->address();
    port_ = address_.substr(address_.rfind(':') + 1);
  }

  std::string Answer(const std::string& name, const std::string& arguments) {
    if (name == "echo") return arguments + "\n";
    if (name == "bare") return "no line end";
    if (name == "silent") return "";
    if (name == "fail") return "-ERR no such thing\n";
    if (name == "misuse") return "-USAGE: misuse <more>\n";
    if (name == "mention") return "a line\n-ERR mentioned only\n";
    if (name == "console_complete" && arguments == "ec") return "echo\nwrite=2:echo \n";
    if (name == "console_complete" && arguments == "echo ") return "north\nnorthwest\nwrite=0:north\n";
    if (name == "hold") released_.wait_for(std::chrono::seconds(30));
    return "-ERR " + name + " Command not found!\n";
  }

  CliResult Run(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), {"-H", "127.0.0.1", "-P", port_, "-p", "secret"});
    return run_cli(arguments, input);
  }

  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
  std::unique_ptr<EventSocketServer> server_;
  std::string address_;
  std::string port_;
};

TEST_F(CliProgram, PrintsWhatACommandWrites) {
  const CliResult result = Run({"-x", "echo one  two"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "one  two\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(CliProgram, EndsTheLastLineOfAnOutput) {
  const CliResult result = Run({"-x", "bare"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "no line end\n");
}

TEST_F(CliProgram, PrintsNothingForACommandThatWritesNothing) {
  const CliResult result = Run({"-x", "silent"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
}

TEST_F(CliProgram, RunsSeveralCommandsInOrder) {
  const CliResult result = Run({"-x", "echo 1", "--execute", "  echo 2", "-x", "echo 3"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "1\n2\n3\n");
}

TEST_F(CliProgram, StopsAtTheFirstCommandThatFails) {
  const CliResult result = Run({"-x", "echo 1", "-x", "fail", "-x", "echo 3"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_EQ(result.out, "1\n-ERR no such thing\n");
}

TEST_F(CliProgram, SaysThatACommandIsUnknown) {
  const CliResult result = Run({"-x", "foo bar"});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kvx-cli: unknown command: foo\n");
}

TEST_F(CliProgram, PrintsFailuresAndWrongUseAndSaysSoByItsExitCode) {
  const CliResult failed = Run({"-x", "fail"});
  EXPECT_EQ(failed.exit_code, 4);
  EXPECT_EQ(failed.out, "-ERR no such thing\n");
  const CliResult misused = Run({"-x", "misuse"});
  EXPECT_EQ(misused.exit_code, 4);
  EXPECT_EQ(misused.out, "-USAGE: misuse <more>\n");
}

TEST_F(CliProgram, DoesNotTakeALaterLineForAFailure) {
  EXPECT_EQ(Run({"-x", "mention"}).exit_code, 0);
}

TEST_F(CliProgram, SaysThatNoSwitchIsThere) {
  server_->Stop();
  const CliResult result = Run({"-x", "echo"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kvx-cli: no switch at " + address_ +
                            ": Connection refused; start one, or say with -H and -P where it listens\n");
}

TEST_F(CliProgram, SaysThatThePasswordIsWrong) {
  const CliResult result = run_cli({"-P", port_, "-p", "guess", "-x", "echo"});
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kvx-cli: wrong password for " + address_ +
                            "; give the one that its configuration sets (event_socket_password in vars.xml) with -p or "
                            "KVX_EVENT_SOCKET_PASSWORD\n");
}

TEST_F(CliProgram, WaitsNoLongerThanItWasTold) {
  const CliResult result = Run({"-t", "1", "-x", "hold"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.err, "kvx-cli: no answer from " + address_ + " within 1 s\n");
}

TEST(CliPatience, IsLongWhileAPhoneRings) {
  kvx_cli::Options options;
  EXPECT_EQ(kvx_cli::patience_for("status", options), std::chrono::seconds(10));
  EXPECT_EQ(kvx_cli::patience_for("originate sip:1000@127.0.0.1 &park()", options), std::chrono::hours(1));
  EXPECT_EQ(kvx_cli::patience_for("originates", options), std::chrono::seconds(10));
  options.timeout_given = true;
  EXPECT_EQ(kvx_cli::patience_for("originate sip:1000@127.0.0.1 &park()", options), std::chrono::seconds(10));
}

TEST_F(CliProgram, SaysThatAPeerDoesNotAnswer) {
  const test_support::OccupiedTcpPort deaf;
  const std::string port = std::to_string(deaf.Port());
  const CliResult result = run_cli({"-P", port, "-t", "1", "-x", "echo"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.err, "kvx-cli: no answer from 127.0.0.1:" + port + " within 1 s\n");
}

TEST_F(CliProgram, TakesAddressAndPasswordFromTheEnvironment) {
  const CliResult result =
      run_cli({"-x", "echo hello"}, "", {{"KVX_EVENT_SOCKET", address_}, {"KVX_EVENT_SOCKET_PASSWORD", "secret"}});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out, "hello\n");
}

TEST_F(CliProgram, PrefersTheCommandLineToTheEnvironment) {
  const CliResult result = run_cli({"-H", "127.0.0.1", "-P", port_, "-p", "secret", "-x", "echo hello"}, "",
                                   {{"KVX_EVENT_SOCKET", "127.0.0.2:1"}, {"KVX_EVENT_SOCKET_PASSWORD", "other"}});
  EXPECT_EQ(result.exit_code, 0) << result.err;
}

TEST_F(CliProgram, KnowsThePasswordOfTheSampleConfiguration) {
  server_->Stop();
  StartServer("kelvaro");
  EXPECT_EQ(run_cli({"-P", port_, "-x", "echo"}).exit_code, 0);
}

TEST_F(CliProgram, ExplainsItself) {
  const CliResult result = run_cli({"--help"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.out, StartsWith("usage: kvx-cli "));
  for (const char* option : {"-H", "-P", "-p", "-x", "-t", "KVX_EVENT_SOCKET=host:port", "KVX_EVENT_SOCKET_PASSWORD"}) {
    EXPECT_THAT(result.out, HasSubstr(option));
  }
}

TEST_F(CliProgram, SaysWhichVersionItIs) {
  const CliResult result = run_cli({"--version"});
  EXPECT_EQ(result.out, std::string("kvx-cli ") + kvx_switch::kSwitchVersion + "\n");
  EXPECT_EQ(result.exit_code, 0);
}

TEST_F(CliProgram, RefusesWrongUseAndNamesIt) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"-z"}, "unknown option -z"},
      {{"--nonsense"}, "unknown option --nonsense"},
      {{"-x"}, "-x needs a value"},
      {{"--port"}, "--port needs a value"},
      {{"-P", "0", "-x", "echo"}, "-P: \"0\" is not a port (1 to 65535)"},
      {{"-P", "65536", "-x", "echo"}, "-P: \"65536\" is not a port (1 to 65535)"},
      {{"-P", "80x", "-x", "echo"}, "-P: \"80x\" is not a port (1 to 65535)"},
      {{"-t", "0", "-x", "echo"}, "-t: \"0\" is not a number of seconds (1 to 86400)"},
      {{"-x", " "}, "-x: no command given"},
      {{"-x", "a\nb"}, "-x: a command is one line"},
      {{"-p", "a\nb", "-x", "echo"}, "-p: a password is one line"},
      {{"status"}, "unexpected argument \"status\"; commands are given with -x \"command\""},
  };
  for (const auto& [arguments, message] : cases) {
    const CliResult result = run_cli(arguments);
    EXPECT_EQ(result.exit_code, 64) << message;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("kvx-cli: " + message + "\nkvx-cli --help shows the options\n"));
  }
}

TEST_F(CliProgram, RefusesAnEnvironmentThatMakesNoSense) {
  for (const char* value : {"localhost", ":8021", ""}) {
    const CliResult result = run_cli({"-x", "echo"}, "", {{"KVX_EVENT_SOCKET", value}});
    EXPECT_EQ(result.exit_code, 64);
    EXPECT_THAT(result.err, StartsWith("kvx-cli: KVX_EVENT_SOCKET: \"" + std::string(value) + "\" is not host:port\n"));
  }
  const CliResult result = run_cli({"-x", "echo"}, "", {{"KVX_EVENT_SOCKET", "localhost:x"}});
  EXPECT_THAT(result.err, StartsWith("kvx-cli: KVX_EVENT_SOCKET: \"x\" is not a port (1 to 65535)\n"));
}

TEST_F(CliProgram, RunsTheLinesOfAPipe) {
  const CliResult result = Run({}, "echo 1\n\n  echo 2\nfoo\nexit\necho 3\n");
  EXPECT_EQ(result.out, "1\n2\n");
  EXPECT_EQ(result.err, "kvx-cli: unknown command: foo\n");
  EXPECT_EQ(result.exit_code, 3);
}

TEST_F(CliProgram, EndsWithAPipeThatIsEmpty) {
  const CliResult result = Run({});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(CliProgram, EndsABatchAtTheFirstFailure) {
  const CliResult result = Run({"-b"}, "# a script\necho 1\n  # and more\nfail\necho 2\n");
  EXPECT_EQ(result.out, "1\n-ERR no such thing\n");
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_EQ(Run({"--batch"}, "echo 1\necho 2").exit_code, 0);
}

TEST_F(CliProgram, TakesLinesWithASlashAsCommands) {
  const CliResult result = Run({}, "/echo 1\n/exit\necho 2\n");
  EXPECT_EQ(result.out, "1\n");
  EXPECT_EQ(result.exit_code, 0);
}

class CliConsole : public CliProgram {
 protected:
  std::map<std::string, std::string> Environment() const { return {{"XDG_STATE_HOME", state_.Path().string()}}; }
  std::vector<std::string> Arguments() const { return {"-P", port_, "-p", "secret"}; }

  test_support::TemporaryDirectory state_;
};

TEST_F(CliConsole, PromptsRunsAndEnds) {
  CliOnTerminal cli(Arguments(), Environment());
  EXPECT_THAT(cli.ReadUntil("kvx@127.0.0.1> "),
              HasSubstr("Connected to " + address_ +
                        ". \"help\" lists the commands, Tab completes, \"/log\" shows the log, \"exit\" leaves.\r\n"));
  cli.Type("echo typed\n");
  EXPECT_THAT(cli.ReadUntil("\ntyped\r\n"), HasSubstr("\ntyped\r\n"));
  EXPECT_THAT(cli.ReadUntil("kvx@127.0.0.1> "), HasSubstr("kvx@127.0.0.1> "));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

TEST_F(CliConsole, CompletesWordsWithTheSwitch) {
  CliOnTerminal cli(Arguments(), Environment());
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("ec\t");
  EXPECT_THAT(cli.ReadUntil("echo "), HasSubstr("echo "));
  cli.Type("\t");
  EXPECT_THAT(cli.ReadUntil("northwest\r\n"), HasSubstr("north\r\nnorthwest\r\n"));
  EXPECT_THAT(cli.ReadUntil("> echo north"), HasSubstr("kvx@127.0.0.1> echo north"));
  cli.Type("east\n");
  EXPECT_THAT(cli.ReadUntil("\nnortheast\r\n"), HasSubstr("\nnortheast\r\n"));
  cli.Type("nothing like it\t\n");
  EXPECT_THAT(cli.ReadUntil("unknown command: nothing"), HasSubstr("unknown command: nothing"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 3);
}

TEST_F(CliConsole, EndsAtControlD) {
  CliOnTerminal cli(Arguments(), Environment());
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("\x04");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

TEST_F(CliConsole, RemembersLinesForTheNextTimeAndForTheUserAlone) {
  {
    CliOnTerminal cli(Arguments(), Environment());
    cli.ReadUntil("kvx@127.0.0.1> ");
    cli.Type("echo remembered\n");
    cli.ReadUntil("\nremembered\r\n");
    cli.Type("exit\n");
    ASSERT_EQ(cli.WaitForEnd(), 0);
  }
  struct stat file {};
  ASSERT_EQ(stat((state_.Path() / "kvx" / "cli_history").c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
  ASSERT_EQ(stat((state_.Path() / "kvx").c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0700u);

  CliOnTerminal cli(Arguments(), Environment());
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("\x10\x10\n");  // Control-P twice: behind "exit" stands the line before it.
  EXPECT_THAT(cli.ReadUntil("\nremembered\r\n"), HasSubstr("\nremembered\r\n"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

TEST_F(CliConsole, WorksWithoutAPlaceForItsHistory) {
  CliOnTerminal cli(Arguments(), {});
  cli.ReadUntil("kvx@127.0.0.1> ");
  cli.Type("echo typed\n");
  EXPECT_THAT(cli.ReadUntil("\ntyped\r\n"), HasSubstr("\ntyped\r\n"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

TEST_F(CliConsole, ConnectsAgainWhenTheSwitchWasRestarted) {
  CliOnTerminal cli({"-p", "secret", "-P", port_}, Environment());
  cli.ReadUntil("kvx@127.0.0.1> ");
  server_->Stop();
  cli.Type("echo nobody\n");
  EXPECT_THAT(cli.ReadUntil("Connection refused"), HasSubstr("no switch at " + address_ + ": Connection refused"));
  cli.ReadUntil("kvx@127.0.0.1> ");

  EventSocketSettings settings;
  settings.source = "event_socket.conf.xml";
  settings.listen_port = static_cast<uint16_t>(std::stoi(port_));
  settings.password = "secret";
  EventSocketServer again(settings, [](auto&, const std::string& arguments) { return arguments + "\n"; });
  std::string error;
  ASSERT_TRUE(again.Start(error)) << error;
  cli.Type("echo again\n");
  EXPECT_THAT(cli.ReadUntil("\nagain\r\n"), HasSubstr("\nagain\r\n"));
  cli.Type("exit\n");
  EXPECT_EQ(cli.WaitForEnd(), 0);
}

}  // namespace
