#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include "core/session.h"
#include "core_fixture.h"
#include "core_legs.h"

namespace {

using namespace core_test;
using kvx_switch::LaunchSession;
using kvx_switch::PostToSession;
using kvx_switch::ServeUntil;
using kvx_switch::WaitForNoSessions;
using testing::ElementsAre;

using SessionTasks = RunningCore;

TEST_F(SessionTasks, TasksRunInOrderOnTheLegsThread) {
  std::vector<int> order;  // touched on the leg's thread only
  std::thread::id leg, task;
  std::promise<void> done;
  const std::string uuid = launch([&](switch_core_session_t* self) {
    leg = std::this_thread::get_id();
    EXPECT_TRUE(ServeUntil(self, soon(), [&] { return order.size() == 100; }));
    done.set_value();
    wait_for_hangup(self);
  });
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(PostToSession(uuid, [&, i] {
      order.push_back(i);
      task = std::this_thread::get_id();
    }));
  }
  done.get_future().wait();
  EXPECT_EQ(leg, task);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  hang_up(uuid);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
  EXPECT_FALSE(PostToSession(uuid, [] {}));
}

TEST_F(SessionTasks, ServeUntilAsksBeforeItWaitsAndEndsAtTheDeadline) {
  std::promise<std::vector<bool>> results;
  const std::string uuid = launch([&](switch_core_session_t* self) {
    const auto now = std::chrono::steady_clock::now();
    std::vector<bool> all;
    all.push_back(ServeUntil(self, now, [] { return true; }));
    all.push_back(ServeUntil(self, now, [] { return false; }));
    all.push_back(ServeUntil(self, now + std::chrono::milliseconds(5), [] { return false; }));
    results.set_value(all);
    wait_for_hangup(self);
    EXPECT_FALSE(ServeUntil(self, soon(), [] { return false; })) << "hung up: no wait";
    int asked = 0;
    EXPECT_TRUE(kvx_switch::ServeAfterHangup(self, soon(), [&] { return ++asked == 1; }));
    EXPECT_FALSE(kvx_switch::ServeAfterHangup(self, std::chrono::steady_clock::now(), [] { return false; }));
  });
  EXPECT_THAT(results.get_future().get(), ElementsAre(true, false, false));
  hang_up(uuid);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(SessionTasks, TasksPostedToAHungUpLegRunWhenItDrains) {
  std::promise<void> hung_up, posted;
  std::atomic<int> run{0};
  const std::string uuid = launch([&](switch_core_session_t* self) {
    wait_for_hangup(self);
    hung_up.set_value();
    posted.get_future().wait();
    kvx_switch::DrainTasks(self);
    EXPECT_EQ(run, 2);
  });
  hang_up(uuid);
  hung_up.get_future().wait();
  EXPECT_TRUE(PostToSession(uuid, [&] {
    ++run;
    EXPECT_TRUE(PostToSession(uuid, [&] { ++run; }));
  }));
  posted.set_value();
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(SessionTasks, ATaskThatThrowsIsLoggedAndTheLegGoesOn) {
  std::promise<void> after;
  const std::string uuid = launch();
  PostToSession(uuid, [] { throw std::runtime_error("a task's mistake"); });
  PostToSession(uuid, [&] { after.set_value(); });
  EXPECT_EQ(after.get_future().wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(log().Has(test_support::error_line("An exception left a task of a leg: a task's mistake\n")));
  hang_up(uuid);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(SessionTasks, WakingAsksTheConditionAgain) {
  std::atomic<bool> flag{false};
  std::promise<bool> result;
  switch_core_session_t* session = request();
  LaunchSession(session, std::make_shared<Scripted>([&](switch_core_session_t* self) {
                  result.set_value(ServeUntil(self, soon(), [&] { return flag.load(); }));
                  wait_for_hangup(self);
                }));
  flag = true;
  EXPECT_EQ(switch_core_session_wake_session_thread(session), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(result.get_future().get());
  switch_channel_hangup(channel_of(session), SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

}  // namespace
