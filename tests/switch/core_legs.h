#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <switch.h>

#include "core/session.h"

/// Legs for tests: what they do is the test's, and they are hung up from outside.
namespace core_test {

inline constexpr std::chrono::seconds kPatience{10};

inline std::chrono::steady_clock::time_point soon() {
  return std::chrono::steady_clock::now() + kPatience;
}

/// A leg that runs what the test gives it.
class Scripted : public kvx_switch::LegProgram {
 public:
  explicit Scripted(std::function<void(switch_core_session_t*)> script) : script_(std::move(script)) {}
  void Run(switch_core_session_t* session) override { script_(session); }

 private:
  const std::function<void(switch_core_session_t*)> script_;
};

/// Up until it is hung up.
inline void wait_for_hangup(switch_core_session_t* session) {
  kvx_switch::ServeUntil(session, std::chrono::steady_clock::time_point::max(), [] { return false; });
}

inline switch_core_session_t* request(const std::string& name = "test/leg") {
  return kvx_switch::RequestSession(SWITCH_CALL_DIRECTION_INBOUND, name);
}

inline switch_channel_t* channel_of(switch_core_session_t* session) {
  return switch_core_session_get_channel(session);
}

/// Launches a leg; its uuid.
inline std::string launch(std::function<void(switch_core_session_t*)> script = wait_for_hangup) {
  switch_core_session_t* session = request();
  const std::string uuid = switch_core_session_get_uuid(session);
  EXPECT_EQ(kvx_switch::LaunchSession(session, std::make_shared<Scripted>(std::move(script))), SWITCH_STATUS_SUCCESS);
  return uuid;
}

inline void hang_up(const std::string& uuid, switch_call_cause_t cause = SWITCH_CAUSE_NORMAL_CLEARING) {
  switch_core_session_t* session = switch_core_session_force_locate(uuid.c_str());
  ASSERT_NE(session, nullptr);
  switch_channel_hangup(channel_of(session), cause);
  switch_core_session_rwunlock(session);
}

}  // namespace core_test
