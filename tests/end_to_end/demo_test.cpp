// kvx-demo itself: what it promises when all is well, and that it says so when it is not.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>

#include "support/process_child.h"
#include "support/switch_process.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class DemoProgram : public testing::Test {
 protected:
  void Start(const std::vector<std::string>& environment = {}) {
    test_support::ChildSettings settings;
    settings.command = {test_support::built_program("kvx-demo").string()};
    settings.output = directory_.Path() / "demo.log";
    settings.environment = environment;
    demo_ = std::make_unique<test_support::ChildProcess>(settings);
  }

  // The switch's process id, as the demo tells it once the call is up.
  pid_t SwitchInCall() {
    const bool up =
        test_support::wait_until(seconds(30), [this] { return demo_->Output().find("3. Talk") != std::string::npos; });
    EXPECT_TRUE(up) << demo_->Output();
    const std::string output = demo_->Output();
    const std::size_t at = output.find("kvx-switch, process ");
    return at == std::string::npos ? 0 : static_cast<pid_t>(std::atoi(output.c_str() + at + 20));
  }

  void ExpectFailure(const std::string& reason) {
    const auto exit = demo_->WaitForExit(seconds(60));
    ASSERT_TRUE(exit.has_value()) << "the demo does not end";
    EXPECT_EQ(exit->code, 1) << exit->ToString();
    const std::string output = demo_->Output();
    EXPECT_NE(output.find("VERDICT: FAILED: "), std::string::npos) << output;
    EXPECT_NE(output.find(reason), std::string::npos) << output;
    EXPECT_EQ(output.find("everything was released"), std::string::npos) << output;
  }

  test_support::TemporaryDirectory directory_;
  std::unique_ptr<test_support::ChildProcess> demo_;
};

TEST_F(DemoProgram, EndsWithItsVerdictWithinAMinute) {
  Start();
  const auto exit = demo_->WaitForExit(seconds(60));
  ASSERT_TRUE(exit.has_value()) << demo_->Output();
  EXPECT_EQ(exit->code, 0) << demo_->Output();
  const std::string output = demo_->Output();
  EXPECT_NE(output.find("VERDICT: the call passed through the module and everything was released\n"),
            std::string::npos);
  EXPECT_EQ(output.find("FAILED"), std::string::npos) << output;
  EXPECT_EQ(output.find('\033'), std::string::npos) << "colours are for terminals";
}

TEST_F(DemoProgram, FailsWithoutPhones) {
  Start({"PATH=" + directory_.Path().string()});
  ExpectFailure("cannot start sipp");
}

TEST_F(DemoProgram, FailsWhenTheSwitchDiesDuringTheCall) {
  Start();
  const pid_t pid = SwitchInCall();
  ASSERT_GT(pid, 0);
  ASSERT_EQ(kill(pid, SIGKILL), 0);
  ExpectFailure("FAILED A to B: all arrived as sent");
}

TEST_F(DemoProgram, FailsWhenTheCallEndsTooEarly) {
  Start();
  const pid_t pid = SwitchInCall();
  ASSERT_GT(pid, 0);
  ASSERT_EQ(kill(pid, SIGINT), 0);
  ExpectFailure("FAILED A to B: all arrived as sent");
}

}  // namespace
}  // namespace end_to_end
