// What `cmake --install` leaves works from where it lies, and a second time keeps what the operator has changed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>

#include "build_paths.h"
#include "support/process_child.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using testing::HasSubstr;

class Installation : public testing::Test {
 protected:
  struct Run {
    int code = -1;
    std::string output;
  };
  Run RunToEnd(std::vector<std::string> command) {
    test_support::ChildSettings settings;
    settings.command = std::move(command);
    settings.output = directory_.Path() / "output";
    test_support::ChildProcess process(settings);
    const auto exit = process.WaitForExit(seconds(60));
    return {exit.value_or(test_support::ChildExit{}).code, process.Output()};
  }
  Run Install() { return RunToEnd({"cmake", "--install", KVX_BUILD_DIR, "--prefix", prefix_.string()}); }

  test_support::TemporaryDirectory directory_;
  const std::filesystem::path prefix_ = directory_.Path() / "prefix";
};

TEST_F(Installation, RunsFromWhereItLies) {
  const Run install = Install();
  ASSERT_EQ(install.code, 0) << install.output;
  const std::string program = (prefix_ / "bin/kvx-switch").string();
  const std::string conf = (prefix_ / "etc/kelvaro").string();
  const Run check = RunToEnd({program, "--conf", conf, "--check"});
  EXPECT_EQ(check.code, 0) << check.output;

  test_support::ChildSettings settings;
  const std::filesystem::path ready = directory_.Path() / "ready";
  settings.command = {program,        "--conf",      conf, "--set", "sip_port=0", "--set", "event_socket_port=0",
                      "--ready-file", ready.string()};
  settings.output = directory_.Path() / "log";
  test_support::ChildProcess process(settings);
  EXPECT_TRUE(test_support::wait_until(seconds(20), [&] { return std::filesystem::exists(ready); }))
      << process.Output();
  EXPECT_THAT(process.Output(), HasSubstr("Module mod_kelvaro_media_server is loaded"));
  process.Signal(SIGTERM);
  const auto exit = process.WaitForExit(seconds(30));
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->code, 0);
  EXPECT_EQ(RunToEnd({(prefix_ / "bin/kvx-cli").string(), "--help"}).code, 0);
}

TEST_F(Installation, HasAUnitThatNamesItsPaths) {
  ASSERT_EQ(Install().code, 0);
  const std::string unit = test_support::read_text_file(prefix_ / "lib/systemd/system/kvx-switch.service");
  EXPECT_THAT(unit, HasSubstr("\nExecStart=" + prefix_.string() + "/bin/kvx-switch --conf " + prefix_.string() +
                              "/etc/kelvaro\n"));
  EXPECT_THAT(unit, testing::Not(HasSubstr("@KVX")));
}

TEST_F(Installation, KeepsTheOperatorsConfiguration) {
  ASSERT_EQ(Install().code, 0);
  const std::filesystem::path vars = prefix_ / "etc/kelvaro/vars.xml";
  std::ofstream(vars) << "<include/>\n";
  std::filesystem::remove(prefix_ / "etc/kelvaro/statsconfig.xml");
  ASSERT_EQ(Install().code, 0);
  EXPECT_EQ(test_support::read_text_file(vars), "<include/>\n");
  EXPECT_TRUE(std::filesystem::exists(prefix_ / "etc/kelvaro/statsconfig.xml"));
}

}  // namespace
}  // namespace end_to_end
