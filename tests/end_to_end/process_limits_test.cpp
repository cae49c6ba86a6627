// What a call costs of the process's limits, which the check at the start reckons with, and a start under low ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/process_child.h"
#include "support/process_inspection.h"
#include "support/udp_socket.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

class ProcessLimits : public SwitchCall {};

TEST_F(ProcessLimits, ACallOfTwoLegsHoldsTwoSocketsForEachAndAThirdWhileSpeechFlows) {
  test_support::CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const test_support::ProcessHoldings during = test_support::inspect_process(switch_->Pid());
  EXPECT_GE(during.descriptors, before_.descriptors + 4) << during.ToString() << "; before: " << before_.ToString();
  EXPECT_LE(during.descriptors, before_.descriptors + 6) << during.ToString() << "; before: " << before_.ToString();
  EXPECT_EQ(Cli({"-x", "hupall"}).code, 0);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

class StartUnderLimits : public testing::Test {
 protected:
  /// The switch, started by a shell that sets a limit before.
  test_support::ChildSettings Switch(const std::string& limit, std::uint16_t sip_port = 0) const {
    test_support::ChildSettings settings;
    settings.command = {"/bin/sh",
                        "-c",
                        limit + " && exec \"$@\"",
                        "sh",
                        test_support::built_program("kvx-switch").string(),
                        "--conf",
                        conf_.Path().string(),
                        "--mod",
                        KVX_BUILD_DIR "/mod",
                        "--set",
                        "sip_port=" + std::to_string(sip_port),
                        "--set",
                        "event_socket_port=0",
                        "--ready-file",
                        Ready().string()};
    settings.output = directory_.Path() / "output";
    return settings;
  }
  std::filesystem::path Ready() const { return directory_.Path() / "ready"; }

  test_support::ConfigurationCopy conf_;
  test_support::TemporaryDirectory directory_;
};

TEST_F(StartUnderLimits, ALowLimitThatMayBeRaisedIsRaisedBeforeAnythingListens) {
  test_support::ChildProcess process(Switch("ulimit -S -n 16"));
  EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(60), [&] { return std::filesystem::exists(Ready()); }))
      << process.Output();
  process.Signal(SIGTERM);
  const auto exit = process.WaitForExit(std::chrono::seconds(60));
  EXPECT_EQ(exit.value_or(test_support::ChildExit{}).code, 0) << process.Output();
}

TEST_F(StartUnderLimits, AStartThatFailsTellsOfTheLimitThatMayBeWhy) {
  // Fails for another reason than its limit: without any file left, sanitizers take every object for an invalid one.
  const test_support::UdpSocket taken;
  test_support::ChildProcess process(Switch("ulimit -n 64", taken.Port()));
  const auto exit = process.WaitForExit(std::chrono::seconds(60));
  EXPECT_EQ(exit.value_or(test_support::ChildExit{}).code, 1) << process.Output();
  EXPECT_THAT(process.Output(), testing::HasSubstr("No more than 64 files may be open at once, and 1000 sessions and"));
}

}  // namespace
}  // namespace end_to_end
