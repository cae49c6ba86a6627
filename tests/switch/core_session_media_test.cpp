// What a media server keeps on a leg, and others look at.

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include <switch.h>

#include <switch_media_server.h>

#include "core/session.h"
#include "core_fixture.h"
#include "core_legs.h"

namespace {

using namespace core_test;
using kvx_switch::ForgetMediaServersInfo;

using SessionMedia = RunningCore;

// The race that this guards against is for a thread sanitizer to see; here is the order.
TEST_F(SessionMedia, GoesWhenNobodyLooksAtTheLegAnyMore) {
  switch_core_session_t* session = request("test/leg");
  const char* uuid = switch_core_session_get_uuid(session);
  switch_media_connection_t* connection = switch_core_session_get_media_connection(session);
  connection->private_info = session;
  switch_core_session_t* reader = switch_core_session_locate(uuid);
  std::future<void> forgotten = std::async(std::launch::async, [session] { ForgetMediaServersInfo(session); });
  EXPECT_EQ(forgotten.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_EQ(connection->private_info, session);
  switch_core_session_t* second = switch_core_session_locate(uuid);
  EXPECT_EQ(second, session) << "who comes meanwhile is not turned away";
  switch_core_session_rwunlock(second);
  switch_core_session_rwunlock(reader);
  forgotten.get();
  EXPECT_EQ(connection->private_info, nullptr);
  switch_core_session_destroy(&session);
}

}  // namespace
