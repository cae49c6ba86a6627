// kvx-switch as a program, where it does not come as far as serving.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "sip_temporary_directory.h"
#include "support/process_child.h"
#include "support/switch_process.h"

namespace kvx_switch {
namespace {

TEST(SwitchProgram, AStartThatFailsLeavesNoFilesOfARunThatCrashed) {
  const TemporaryDirectory directory;
  directory.Write("conf/vars.xml", "<include>");
  const std::string ready = directory.Write("ready", "sip=127.0.0.1:5060\n");
  const std::string pid = directory.Write("pid", "1\n");
  test_support::ChildSettings settings;
  settings.command = {test_support::built_program("kvx-switch").string(),
                      "--conf",
                      directory.Path() + "/conf",
                      "--ready-file",
                      ready,
                      "--pid-file",
                      pid};
  settings.output = directory.Path() + "/output";
  test_support::ChildProcess process(settings);
  const auto exit = process.WaitForExit(std::chrono::seconds(30));
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->code, 1);
  EXPECT_THAT(process.Output(), testing::HasSubstr("vars.xml:1: "));
  EXPECT_FALSE(std::filesystem::exists(ready));
  EXPECT_FALSE(std::filesystem::exists(pid));
}

TEST(SwitchProgram, ACheckOfADirectoryThatIsMissingEndsLikeOneThatFindsMistakes) {
  const TemporaryDirectory directory;
  test_support::ChildSettings settings;
  settings.command = {test_support::built_program("kvx-switch").string(), "--conf", directory.Path() + "/conf",
                      "--check"};
  settings.output = directory.Path() + "/output";
  test_support::ChildProcess process(settings);
  const auto exit = process.WaitForExit(std::chrono::seconds(30));
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->code, 2);
}

}  // namespace
}  // namespace kvx_switch
