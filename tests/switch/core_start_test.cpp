#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <switch.h>

#include "core/interface_list.h"
#include "core_fixture.h"
#include "support/process_child.h"

namespace {

using core_test::CoreSwitch;

int count_threads() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  if (!tasks) return -1;
  while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.';
  closedir(tasks);
  return count;
}

using Core = CoreSwitch;

TEST_F(Core, StartsAndEndsAgainAndAgain) {
  const int threads = count_threads();
  std::string last_uuid;
  for (int i = 0; i < 3; ++i) {
    Start();
    EXPECT_GT(count_threads(), threads);
    EXPECT_NE(switch_core_get_uuid(), last_uuid);
    last_uuid = switch_core_get_uuid();
    Stop();
    // A thread that was joined may show for a moment more.
    EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(5), [&] { return count_threads() == threads; }));
  }
}

TEST_F(Core, StartsOnce) {
  Start();
  const char* error = nullptr;
  EXPECT_EQ(switch_core_init(SCF_NONE, SWITCH_FALSE, &error), SWITCH_STATUS_GENERR);
  EXPECT_STREQ(error, "the core is running already");
}

TEST_F(Core, DoesNotStartOnMalformedConfiguration) {
  testing::internal::CaptureStderr();
  const std::string path = Write("vars.xml", "<include>\n<X-PRE-PROCESS cmd='set'\n</include>");
  SWITCH_GLOBAL_dirs.conf_dir = strdup(PathOf("").c_str());
  const char* error = nullptr;
  EXPECT_EQ(switch_core_init(SCF_NONE, SWITCH_FALSE, &error), SWITCH_STATUS_GENERR);
  EXPECT_THAT(error, testing::HasSubstr("vars.xml:3: not well-formed (invalid token)"));
  EXPECT_EQ(switch_core_destroy(), SWITCH_STATUS_FALSE) << "nothing was left running";
  testing::internal::GetCapturedStderr();
}

TEST_F(Core, DoesNotStartWithoutItsModules) {
  SWITCH_GLOBAL_dirs.conf_dir = strdup(PathOf("").c_str());
  const char* error = nullptr;
  EXPECT_EQ(switch_core_init_and_modload(SCF_NONE, SWITCH_FALSE, &error), SWITCH_STATUS_GENERR);
  EXPECT_STREQ(error, "the modules of modules.conf could not be loaded");
  EXPECT_EQ(switch_core_destroy(), SWITCH_STATUS_FALSE);
}

TEST_F(Core, DirectoriesDefaultToThoseBelowTheBase) {
  SWITCH_GLOBAL_dirs.base_dir = strdup("/base");
  SWITCH_GLOBAL_dirs.conf_dir = strdup("/elsewhere");
  switch_core_set_globals();
  EXPECT_STREQ(SWITCH_GLOBAL_dirs.mod_dir, "/base/mod");
  EXPECT_STREQ(SWITCH_GLOBAL_dirs.conf_dir, "/elsewhere");
  EXPECT_STREQ(SWITCH_GLOBAL_dirs.log_dir, "/base/log");
  // As the core's end does: a start that fails is an end.
  const char* error = nullptr;
  ASSERT_EQ(switch_core_init(SCF_NONE, SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS) << error;
  switch_core_destroy();
  EXPECT_EQ(SWITCH_GLOBAL_dirs.mod_dir, nullptr);
}

TEST_F(Core, CountsSinceItsStart) {
  const switch_time_t before = switch_micro_time_now();
  Start();
  const kvx_switch::SwitchTotals at_start = kvx_switch::GetSwitchTotals();
  EXPECT_GE(at_start.started, before);
  EXPECT_EQ(at_start.sessions, 0u);
  for (int i = 0; i < 3; ++i) {
    auto* session = switch_core_session_request(nullptr, SWITCH_CALL_DIRECTION_INBOUND, SOF_NONE, nullptr);
    switch_core_session_destroy(&session);
  }
  EXPECT_EQ(kvx_switch::GetSwitchTotals().sessions, 3u);
  EXPECT_EQ(kvx_switch::GetSwitchTotals().peak_sessions, 1u);
}

TEST_F(Core, ControlsThatAreNotServedSayMinusOne) {
  Start();
  EXPECT_EQ(switch_core_session_ctl(static_cast<switch_session_ctl_t>(9), nullptr), -1);
}

}  // namespace
