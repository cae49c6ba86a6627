#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "core/session_manager.h"
#include "core_fixture.h"
#include "core_legs.h"
#include "support/log_capture.h"

namespace {

using core_test::hang_up;
using core_test::launch;
using kvx_switch::SessionManager;
using std::chrono::milliseconds;

class QuietSwitch : public core_test::RunningCore {
 protected:
  std::size_t TimesGivenBack() {
    return log().Count(test_support::debug_line("No leg for a while: unused memory given back\n"));
  }
  bool WaitForGivenBack(std::size_t times) {
    const auto deadline = core_test::soon();
    while (TimesGivenBack() < times) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
  }
};

TEST_F(QuietSwitch, GivesMemoryBackOnceAfterTheLastLeg) {
  SessionManager::Get().SetQuiet(milliseconds(5));
  hang_up(launch());
  EXPECT_TRUE(WaitForGivenBack(1));
  hang_up(launch());
  EXPECT_TRUE(WaitForGivenBack(2));
  std::this_thread::sleep_for(milliseconds(50));  // ten times as long as it would take
  EXPECT_EQ(TimesGivenBack(), 2u);
}

TEST_F(QuietSwitch, KeepsMemoryWhileALegIsUp) {
  SessionManager::Get().SetQuiet(milliseconds(5));
  const std::string lasting = launch();
  hang_up(launch());
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(TimesGivenBack(), 0u);
  hang_up(lasting);
  EXPECT_TRUE(WaitForGivenBack(1));
}

}  // namespace
