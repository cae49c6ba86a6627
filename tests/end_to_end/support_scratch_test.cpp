// What tests leave behind when they are killed does not stay.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/process_child.h"
#include "support/process_scratch.h"

namespace {

TEST(ScratchDirectory, BearsTheNameOfItsProcess) {
  const std::filesystem::path directory = test_support::make_scratch_directory();
  EXPECT_TRUE(std::filesystem::is_directory(directory));
  EXPECT_EQ(directory.filename().string().rfind(std::to_string(getpid()) + "_", 0), 0u) << directory;
  std::filesystem::remove(directory);
}

TEST(ScratchDirectory, OfAProcessThatIsGoneIsRemovedByTheNextProgram) {
  const test_support::TemporaryDirectory mine;
  const std::filesystem::path left_over = mine.Path().parent_path() / "999999999_killed";  // beyond any process id
  std::filesystem::create_directories(left_over / "conf");
  test_support::ChildSettings settings;
  settings.command = {std::filesystem::read_symlink("/proc/self/exe").string(),
                      "--gtest_filter=ScratchDirectory.BearsTheNameOfItsProcess"};
  settings.output = mine.Path() / "output";
  test_support::ChildProcess next(settings);
  const auto exit = next.WaitForExit(std::chrono::seconds(30));
  ASSERT_TRUE(exit.has_value());
  EXPECT_TRUE(exit->Succeeded()) << next.Output();
  EXPECT_FALSE(std::filesystem::exists(left_over));
  EXPECT_TRUE(std::filesystem::exists(mine.Path())) << "the directory of a process that runs";
}

}  // namespace
