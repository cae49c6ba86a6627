#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include <switch_media_server.h>

#include "core/channel_record.h"
#include "core/session.h"
#include "core_fixture.h"
#include "core_legs.h"
#include "support/event_capture.h"

namespace {

using namespace core_test;
using kvx_switch::LaunchSession;
using kvx_switch::ListSessions;
using kvx_switch::PostToSession;
using kvx_switch::RequestSession;
using kvx_switch::WaitForNoSessions;
using test_support::EventCapture;
using testing::ElementsAre;

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

TEST_F(Sessions, AreRefusedWhenTheSecondHasSeenTooMany) {
  int32_t most = 2;
  EXPECT_EQ(switch_core_session_ctl(SCSC_SPS, &most), 2);
  switch_core_session_t* first = request();
  switch_core_session_t* second = request();
  EXPECT_EQ(request(), nullptr);
  EXPECT_TRUE(
      log().Has(test_support::warning_line("No new leg: there were 2 new legs within a second, at most 2 may be\n")));
  EXPECT_EQ(switch_core_session_ctl(SCSC_SPS, nullptr), 2);
  switch_core_session_destroy(&first);
  switch_core_session_destroy(&second);
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
  EXPECT_EQ(complete.All()[0].Header("variable_duration"), "0");
  EXPECT_EQ(complete.All()[0].Header("variable_billsec"), "0");
}

TEST_F(Sessions, SayHowLongTheyWereThereAndTalkedThrough) {
  EventCapture complete(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE);
  launch([](switch_core_session_t* session) {
    switch_channel_t* channel = channel_of(session);
    switch_channel_mark_answered(channel);
    const std::lock_guard<std::mutex> lock(channel->mutex);
    channel->times.created -= 61500000;
    channel->times.answered -= 59999000;
  });
  EXPECT_TRUE(WaitForNoSessions(kPatience));
  ASSERT_EQ(complete.All().size(), 1u);
  EXPECT_EQ(complete.All()[0].Header("variable_duration"), "61");
  EXPECT_THAT(complete.All()[0].Header("variable_billsec"), testing::AnyOf("59", "60"));
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
