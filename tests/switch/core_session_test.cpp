#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include <switch_media_server.h>

#include "core/session.h"
#include "core_fixture.h"
#include "support/event_capture.h"

namespace {

using core_test::RunningCore;
using kvx_switch::LaunchSession;
using kvx_switch::LegProgram;
using kvx_switch::ListSessions;
using kvx_switch::PostToSession;
using kvx_switch::RequestSession;
using kvx_switch::ServeUntil;
using kvx_switch::WaitForNoSessions;
using test_support::EventCapture;
using testing::ElementsAre;

constexpr std::chrono::seconds kPatience{10};

std::chrono::steady_clock::time_point soon() {
  return std::chrono::steady_clock::now() + kPatience;
}

/// A leg that runs what the test gives it.
class Scripted : public LegProgram {
 public:
  explicit Scripted(std::function<void(switch_core_session_t*)> script) : script_(std::move(script)) {}
  void Run(switch_core_session_t* session) override { script_(session); }

 private:
  const std::function<void(switch_core_session_t*)> script_;
};

/// Up until it is hung up.
void wait_for_hangup(switch_core_session_t* session) {
  ServeUntil(session, std::chrono::steady_clock::time_point::max(), [] { return false; });
}

switch_core_session_t* request(const std::string& name = "test/leg") {
  return RequestSession(SWITCH_CALL_DIRECTION_INBOUND, name);
}

switch_channel_t* channel_of(switch_core_session_t* session) {
  return switch_core_session_get_channel(session);
}

/// Launches a leg; its uuid.
std::string launch(std::function<void(switch_core_session_t*)> script = wait_for_hangup) {
  switch_core_session_t* session = request();
  const std::string uuid = switch_core_session_get_uuid(session);
  EXPECT_EQ(LaunchSession(session, std::make_shared<Scripted>(std::move(script))), SWITCH_STATUS_SUCCESS);
  return uuid;
}

void hang_up(const std::string& uuid, switch_call_cause_t cause = SWITCH_CAUSE_NORMAL_CLEARING) {
  switch_core_session_t* session = switch_core_session_force_locate(uuid.c_str());
  ASSERT_NE(session, nullptr);
  switch_channel_hangup(channel_of(session), cause);
  switch_core_session_rwunlock(session);
}

using Sessions = RunningCore;

TEST_F(Sessions, ARequestedOneIsFoundUnderAFreshUuid) {
  switch_core_session_t* session = request("test/name");
  ASSERT_NE(session, nullptr);
  const char* uuid = switch_core_session_get_uuid(session);
  EXPECT_EQ(strlen(uuid), 36u);
  EXPECT_EQ(switch_core_session_count(), 1u);
  EXPECT_STREQ(switch_channel_get_name(channel_of(session)), "test/name");
  EXPECT_EQ(switch_channel_direction(channel_of(session)), SWITCH_CALL_DIRECTION_INBOUND);
  EXPECT_EQ(switch_channel_get_session(channel_of(session)), session);
  EXPECT_FALSE(switch_core_session_started(session));
  switch_core_session_t* found = switch_core_session_locate(uuid);
  EXPECT_EQ(found, session);
  switch_core_session_rwunlock(found);
  EXPECT_EQ(switch_core_session_locate("nobody"), nullptr);
  EXPECT_EQ(switch_core_session_locate(nullptr), nullptr);
  switch_core_session_destroy(&session);
  EXPECT_EQ(session, nullptr);
  EXPECT_EQ(switch_core_session_count(), 0u);
}

TEST_F(Sessions, RequestTakesThePoolOverOnlyWhenItSucceeds) {
  switch_memory_pool_t* pool = nullptr;
  switch_core_new_memory_pool(&pool);
  auto* session = switch_core_session_request_uuid(nullptr, SWITCH_CALL_DIRECTION_OUTBOUND, SOF_NONE, &pool, "mine");
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(pool, nullptr);
  EXPECT_STREQ(switch_core_session_get_uuid(session), "mine");
  switch_core_new_memory_pool(&pool);
  EXPECT_EQ(switch_core_session_request_uuid(nullptr, SWITCH_CALL_DIRECTION_OUTBOUND, SOF_NONE, &pool, "mine"),
            nullptr);
  EXPECT_NE(pool, nullptr);
  EXPECT_TRUE(log().Has(test_support::warning_line("No new leg: the uuid mine is in use\n")));
  switch_core_destroy_memory_pool(&pool);
  switch_core_session_destroy(&session);
}

TEST_F(Sessions, AreRefusedWhenTheSwitchIsFullPausedOrEnding) {
  int32_t most = 2;
  switch_core_session_ctl(SCSC_MAX_SESSIONS, &most);
  switch_core_session_t* first = request();
  switch_core_session_t* second = request();
  EXPECT_EQ(request(), nullptr);
  EXPECT_TRUE(log().Has(test_support::warning_line("No new leg: there are 2 of at most 2 legs\n")));
  switch_core_session_destroy(&first);
  int32_t pause = 1;
  EXPECT_EQ(switch_core_session_ctl(SCSC_PAUSE_ALL, &pause), 1);
  EXPECT_EQ(request(), nullptr);
  pause = 0;
  switch_core_session_ctl(SCSC_PAUSE_ALL, &pause);
  first = request();
  EXPECT_NE(first, nullptr);
  switch_core_session_destroy(&first);
  EXPECT_EQ(switch_core_session_ctl(SCSC_CHECK_RUNNING, nullptr), 1);
  switch_core_session_ctl(SCSC_SHUTDOWN, nullptr);
  EXPECT_EQ(switch_core_session_ctl(SCSC_CHECK_RUNNING, nullptr), 0);
  EXPECT_EQ(request(), nullptr);
  EXPECT_TRUE(log().Has(test_support::warning_line("No new leg: the switch is shutting down\n")));
  switch_core_session_destroy(&second);
}

TEST_F(Sessions, RunTheirProgramOnceOnAThreadOfTheirOwn) {
  std::promise<std::thread::id> ran;
  switch_core_session_t* session = request();
  const auto program = std::make_shared<Scripted>([&](switch_core_session_t* self) {
    ran.set_value(std::this_thread::get_id());
    wait_for_hangup(self);
  });
  EXPECT_EQ(LaunchSession(session, program), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(LaunchSession(session, program), SWITCH_STATUS_FALSE);
  EXPECT_TRUE(switch_core_session_started(session));
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
  switch_channel_hangup(channel_of(session), SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, ALaunchedOneIsNotDestroyedFromOutside) {
  const std::string uuid = launch();
  switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
  switch_core_session_t* copy = session;
  switch_core_session_destroy(&copy);
  EXPECT_EQ(copy, session);
  EXPECT_EQ(switch_core_session_count(), 1u);
  switch_core_session_rwunlock(session);
  hang_up(uuid);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, WithoutSignallingTheyLastUntilTheHangup) {
  switch_core_session_t* session = request();
  EXPECT_EQ(switch_core_session_thread_launch(session), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(WaitForNoSessions(std::chrono::milliseconds(20)));
  switch_core_session_hupall(SWITCH_CAUSE_MANAGER_REQUEST);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, LocateSkipsThoseThatHangUpForceDoesNot) {
  std::promise<void> release;
  const std::string uuid = launch([&](switch_core_session_t* self) {
    wait_for_hangup(self);
    release.get_future().wait();
  });
  hang_up(uuid);
  EXPECT_EQ(switch_core_session_locate(uuid.c_str()), nullptr);
  switch_core_session_t* session = switch_core_session_force_locate(uuid.c_str());
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(switch_core_session_read_lock(session), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_session_read_lock_hangup(session), SWITCH_STATUS_SUCCESS);
  switch_core_session_rwunlock(session);
  switch_core_session_rwunlock(session);
  release.set_value();
  EXPECT_TRUE(WaitForNoSessions(kPatience));
  EXPECT_EQ(switch_core_session_force_locate(uuid.c_str()), nullptr);
}

TEST_F(Sessions, AReaderKeepsAnEndedOneAliveAndMayUnlockElsewhere) {
  const std::string uuid = launch();
  switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
  switch_channel_set_variable(channel_of(session), "name", "value");
  switch_channel_hangup(channel_of(session), SWITCH_CAUSE_USER_BUSY);
  EXPECT_FALSE(WaitForNoSessions(std::chrono::milliseconds(50)));
  EXPECT_STREQ(switch_channel_get_variable(channel_of(session), "name"), "value");
  std::thread([session] { switch_core_session_rwunlock(session); }).join();
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, AnExceptionEndsTheLeg) {
  EventCapture complete(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE);
  launch([](switch_core_session_t*) { throw std::runtime_error("a leg's mistake"); });
  EXPECT_TRUE(WaitForNoSessions(kPatience));
  EXPECT_TRUE(log().Has(test_support::error_line("An exception ended the leg test/leg: a leg's mistake\n")));
  const auto events = complete.All();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].Header("Hangup-Cause"), "DESTINATION_OUT_OF_ORDER");
}

TEST_F(Sessions, ALegThatJustEndsWasClearedNormally) {
  EventCapture complete(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE);
  launch([](switch_core_session_t*) {});
  EXPECT_TRUE(WaitForNoSessions(kPatience));
  ASSERT_EQ(complete.All().size(), 1u);
  EXPECT_EQ(complete.All()[0].Header("Hangup-Cause"), "NORMAL_CLEARING");
}

TEST_F(Sessions, FireTheEventsOfALegsLifeInOrder) {
  EventCapture all(SWITCH_EVENT_ALL);
  const std::string uuid = launch();
  hang_up(uuid, SWITCH_CAUSE_USER_BUSY);
  ASSERT_TRUE(WaitForNoSessions(kPatience));
  std::vector<std::string> seen;
  for (const auto& event : all.All()) {
    if (event.Header("Unique-ID") != uuid) continue;
    const std::string name = event.Header("Event-Name");
    seen.push_back(name == "CHANNEL_STATE" ? event.Header("Channel-State") : name);
  }
  // Whether the leg's thread reaches CS_INIT before the hang-up is a race that both may win.
  seen.erase(std::remove(seen.begin(), seen.end(), "CS_INIT"), seen.end());
  EXPECT_THAT(seen, ElementsAre("CHANNEL_CREATE", "CS_HANGUP", "CHANNEL_CALLSTATE", "CHANNEL_HANGUP",
                                "CHANNEL_HANGUP_COMPLETE", "CS_REPORTING", "CS_DESTROY", "CHANNEL_DESTROY"));
}

TEST_F(Sessions, TheEndIsToldAfterTheHangupWhoeverIsFaster) {
  EventCapture all(SWITCH_EVENT_ALL);
  constexpr int kMany = 200;
  for (int i = 0; i < kMany; ++i) {
    switch_core_session_t* session = request();
    LaunchSession(session, std::make_shared<Scripted>(wait_for_hangup));
    // Without a read lock: that the leg waits for the hang-up is all that keeps it here.
    switch_channel_hangup(channel_of(session), SWITCH_CAUSE_NORMAL_CLEARING);
  }
  ASSERT_TRUE(WaitForNoSessions(kPatience));
  std::map<std::string, std::vector<std::string>> told;
  for (const auto& event : all.All()) {
    const std::string name = event.Header("Event-Name");
    if (name.find("HANGUP") != std::string::npos || name == "CHANNEL_DESTROY") {
      told[event.Header("Unique-ID")].push_back(name);
    }
  }
  EXPECT_EQ(told.size(), static_cast<size_t>(kMany));
  for (const auto& leg : told) {
    EXPECT_THAT(leg.second, ElementsAre("CHANNEL_HANGUP", "CHANNEL_HANGUP_COMPLETE", "CHANNEL_DESTROY"));
  }
}

TEST_F(Sessions, TasksRunInOrderOnTheLegsThread) {
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

TEST_F(Sessions, ServeUntilAsksBeforeItWaitsAndEndsAtTheDeadline) {
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

TEST_F(Sessions, TasksPostedToAHungUpLegRunWhenItDrains) {
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

TEST_F(Sessions, ATaskThatThrowsIsLoggedAndTheLegGoesOn) {
  std::promise<void> after;
  const std::string uuid = launch();
  PostToSession(uuid, [] { throw std::runtime_error("a task's mistake"); });
  PostToSession(uuid, [&] { after.set_value(); });
  EXPECT_EQ(after.get_future().wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(log().Has(test_support::error_line("An exception left a task of a leg: a task's mistake\n")));
  hang_up(uuid);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, WakingAsksTheConditionAgain) {
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

class Partners : public Sessions {
 protected:
  void SetUp() override {
    Sessions::SetUp();
    first_ = request("test/first");
    second_ = request("test/second");
  }
  void TearDown() override {
    switch_core_session_destroy(&first_);
    switch_core_session_destroy(&second_);
    Sessions::TearDown();
  }
  void Bond(const char* variable, const char* uuid) { switch_channel_set_variable(channel_of(first_), variable, uuid); }
  switch_core_session_t* first_ = nullptr;
  switch_core_session_t* second_ = nullptr;
};

TEST_F(Partners, AreFoundByTheBondReadLocked) {
  switch_core_session_t* partner = first_;
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  EXPECT_EQ(partner, nullptr);
  Bond("signal_bond", switch_core_session_get_uuid(second_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(partner, second_);
  EXPECT_STREQ(switch_channel_get_partner_uuid(channel_of(first_)), switch_core_session_get_uuid(second_));
  switch_core_session_rwunlock(partner);
}

TEST_F(Partners, TheOriginatorsBondComesSecond) {
  switch_core_session_t* partner = nullptr;
  Bond("originate_signal_bond", switch_core_session_get_uuid(second_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_SUCCESS);
  switch_core_session_rwunlock(partner);
  Bond("signal_bond", "somebody-else");
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
}

TEST_F(Partners, OneselfOrSomebodyWhoHangsUpIsNone) {
  switch_core_session_t* partner = nullptr;
  Bond("signal_bond", switch_core_session_get_uuid(first_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  Bond("signal_bond", switch_core_session_get_uuid(second_));
  switch_channel_hangup(channel_of(second_), SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_channel_get_partner_uuid(channel_of(second_)), nullptr);
}

TEST_F(Partners, AGlobalVariableIsNoBond) {
  switch_core_set_variable("signal_bond", switch_core_session_get_uuid(second_));
  switch_core_session_t* partner = nullptr;
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
}

TEST_F(Sessions, AreRenamedUnlessTheNameIsTaken) {
  EventCapture renamed(SWITCH_EVENT_CHANNEL_UUID);
  switch_core_session_t* first = request();
  switch_core_session_t* second = request();
  const std::string old = switch_core_session_get_uuid(first);
  EXPECT_EQ(switch_core_session_set_uuid(first, switch_core_session_get_uuid(second)), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_session_set_uuid(first, ""), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_session_set_uuid(first, std::string(257, 'x').c_str()), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_core_session_set_uuid(first, "new"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_core_session_locate(old.c_str()), nullptr);
  EXPECT_EQ(switch_core_session_locate("new"), first);
  switch_core_session_rwunlock(first);
  const auto events = renamed.All();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].Header("Old-Unique-ID"), old);
  EXPECT_EQ(events[0].Header("Unique-ID"), "new");
  switch_core_session_destroy(&first);
  switch_core_session_destroy(&second);
}

TEST_F(Sessions, KeepWhatTheEndpointLeavesWithThem) {
  switch_core_session_t* session = request();
  int own = 0;
  switch_codec_t codec{};
  switch_core_session_set_private(session, &own);
  EXPECT_EQ(switch_core_session_get_private(session), &own);
  EXPECT_EQ(switch_core_session_get_private_class(session, SWITCH_PVT_SECONDARY), nullptr);
  switch_core_session_set_read_codec(session, &codec);
  EXPECT_EQ(switch_core_session_get_read_codec(session), &codec);
  EXPECT_EQ(switch_core_session_get_write_codec(session), nullptr);
  switch_media_connection_t* media = switch_core_session_get_media_connection(session);
  ASSERT_NE(media, nullptr);
  EXPECT_EQ(media->media_server_interface, nullptr);
  EXPECT_EQ(media->private_info, nullptr);
  EXPECT_EQ(switch_core_session_get_media_connection(session), media);
  EXPECT_STREQ(switch_core_session_strdup(session, "text"), "text");
  EXPECT_STREQ(switch_core_session_sprintf(session, "%d", 1), "1");
  switch_core_session_destroy(&session);
}

TEST_F(Sessions, ListsSayWhatEachLegIs) {
  switch_core_session_t* session = request("test/one");
  kvx_switch::CallerData caller;
  caller.caller_id_name = "Anna";
  caller.caller_id_number = "1000";
  caller.destination_number = "2000";
  kvx_switch::SetCallerData(session, caller);
  EXPECT_EQ(kvx_switch::GetCallerData(session).destination_number, "2000");
  switch_channel_set_variable(channel_of(session), "signal_bond", "other");
  switch_core_session_t* other = RequestSession(SWITCH_CALL_DIRECTION_OUTBOUND, "test/two");
  const auto list = ListSessions();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].uuid, switch_core_session_get_uuid(session));
  EXPECT_EQ(list[0].name, "test/one");
  EXPECT_EQ(list[0].direction, "inbound");
  EXPECT_EQ(list[0].state, "CS_NEW");
  EXPECT_EQ(list[0].callstate, "DOWN");
  EXPECT_EQ(list[0].cid_name, "Anna");
  EXPECT_EQ(list[0].cid_number, "1000");
  EXPECT_EQ(list[0].destination, "2000");
  EXPECT_EQ(list[0].context, "default");
  EXPECT_EQ(list[0].partner_uuid, "other");
  EXPECT_GT(list[0].created_time, 0);
  EXPECT_EQ(list[0].answered_time, 0);
  EXPECT_THAT(list[0].created, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"));
  EXPECT_EQ(list[1].direction, "outbound");
  switch_core_session_destroy(&session);
  switch_core_session_destroy(&other);
}

TEST_F(Sessions, AThousandComeAndGoAndLeaveNothing) {
  constexpr int kMany = 1000;
  EventCapture created(SWITCH_EVENT_CHANNEL_CREATE);
  EventCapture destroyed(SWITCH_EVENT_CHANNEL_DESTROY);
  std::atomic<int> run{0};
  for (int i = 0; i < kMany; ++i) {
    const std::string uuid = launch([&](switch_core_session_t* self) {
      ++run;
      switch_channel_set_variable(channel_of(self), "text", switch_core_session_strdup(self, "x"));
      wait_for_hangup(self);
    });
    hang_up(uuid);
    // A hundred at a time, so that a sanitizer's limit of threads is not the test.
    if (i % 100 == 99) {
      ASSERT_TRUE(WaitForNoSessions(kPatience));
    }
  }
  ASSERT_TRUE(WaitForNoSessions(kPatience));
  EXPECT_EQ(run, kMany);
  EXPECT_EQ(switch_core_session_count(), 0u);
  EXPECT_THAT(ListSessions(), testing::IsEmpty());
  EXPECT_EQ(created.All().size(), static_cast<size_t>(kMany));
  EXPECT_EQ(destroyed.All().size(), static_cast<size_t>(kMany));
}

TEST_F(Sessions, ManyThreadsMayLocateHangUpAndPostAtOnce) {
  std::vector<std::string> uuids;
  for (int i = 0; i < 20; ++i) uuids.push_back(launch());
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&uuids, t] {
      for (int i = 0; i < 200; ++i) {
        const std::string& uuid = uuids[static_cast<size_t>(i + t) % uuids.size()];
        PostToSession(uuid, [] {});
        ListSessions();
        switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
        if (!session) continue;
        switch_channel_set_variable(channel_of(session), "i", std::to_string(i).c_str());
        if (i > 150) switch_channel_hangup(channel_of(session), SWITCH_CAUSE_NORMAL_CLEARING);
        switch_core_session_rwunlock(session);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_TRUE(WaitForNoSessions(kPatience));
}

TEST_F(Sessions, TheCoresEndHangsUpWhatIsLeft) {
  EventCapture complete(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE);
  std::atomic<int> cause{0};
  launch([&](switch_core_session_t* self) {
    wait_for_hangup(self);
    cause = switch_channel_get_cause(channel_of(self));
  });
  request("test/forgotten");
  Stop();
  EXPECT_EQ(cause, SWITCH_CAUSE_SYSTEM_SHUTDOWN);
  EXPECT_EQ(switch_core_session_count(), 0u);
}

}  // namespace
