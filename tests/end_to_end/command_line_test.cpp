// kvx-cli as scripts and people use it.

#include <gtest/gtest.h>

#include "support/free_ports.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;

class CommandLine : public SwitchCall {};

TEST_F(CommandLine, RunsACommandAndEndsWithZero) {
  StartSwitch();
  const CliRun status = Cli({"-x", "status"});
  EXPECT_EQ(status.code, 0) << status.output;
  EXPECT_EQ(status.output.rfind("UP ", 0), 0u) << status.output;
  EXPECT_NE(status.output.find("media server available"), std::string::npos) << status.output;
  const CliRun calls = Cli({"-x", "show calls"});
  EXPECT_EQ(calls.code, 0);
  EXPECT_NE(calls.output.find("0 total."), std::string::npos) << calls.output;
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(CommandLine, RunsCommandsOfTheModule) {
  StartSwitch();
  const CliRun count = Cli({"-x", "ms_count_show"});
  EXPECT_EQ(count.code, 0);
  EXPECT_EQ(count.output, "Totally 0 MSs now!\n");
  ExpectCleanStop();
}

TEST_F(CommandLine, SaysThatACommandIsUnknown) {
  StartSwitch();
  const CliRun run = Cli({"-x", "make_coffee now"});
  EXPECT_EQ(run.code, 3);
  EXPECT_EQ(run.output, "kvx-cli: unknown command: make_coffee\n");
  ExpectCleanStop();
}

TEST_F(CommandLine, SaysThatThereIsNoSwitch) {
  std::uint16_t port = 0;
  { port = test_support::OccupiedTcpPort().Port(); }
  const CliRun run = Cli({"-x", "status"}, port);
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.output.find("no switch at 127.0.0.1:" + std::to_string(port)), std::string::npos) << run.output;
}

TEST_F(CommandLine, SaysThatThePasswordIsWrong) {
  StartSwitch();
  const CliRun run = Cli({"-p", "guess", "-x", "status"});
  EXPECT_EQ(run.code, 2);
  EXPECT_NE(run.output.find("wrong password"), std::string::npos) << run.output;
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

TEST_F(CommandLine, ShowsACallAndHangsItUp) {
  test_support::CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const CliRun calls = Cli({"-x", "show calls"});
  EXPECT_EQ(calls.code, 0);
  EXPECT_NE(calls.output.find("1 total."), std::string::npos) << calls.output;
  EXPECT_NE(calls.output.find("3000"), std::string::npos) << "the caller's number: " << calls.output;
  EXPECT_NE(calls.output.find("2000"), std::string::npos) << "the number called: " << calls.output;
  EXPECT_EQ(Cli({"-x", "ms_count_show"}).output, "Totally 1 MSs now!\n");
  const CliRun hangup = Cli({"-x", "hupall"});
  EXPECT_EQ(hangup.code, 0) << hangup.output;
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
