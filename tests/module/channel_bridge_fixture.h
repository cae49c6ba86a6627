#pragma once

#include <string>
#include <vector>

#include "kelvaro/jsr309/joinable.h"
#include "module/media_callbacks_fixture.h"

namespace module_test {

const char kUnusedUuid[] = "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30";

/// Two legs, A and B, on endpoints 1 and 2.
class ChannelBridge : public MediaCallbacks {
 protected:
  /// Both legs in A's session.
  void TogetherFromTheStart() {
    ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
    a_.BondWith(b_);
    ASSERT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS);
    Begin();
  }
  /// Each leg in a session of its own, and partners since.
  void BroughtTogetherByTransfer() {
    ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
    ASSERT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS);
    a_.BondWith(b_);
    ASSERT_NE(a_.MediaSession(), b_.MediaSession());
    Begin();
  }

  std::vector<test_support::LogLine> BridgeLines() const { return LinesOf({"channel_bridge.cpp"}); }
  std::vector<test_support::LogLine> CleanUpLines() const { return LinesOf({"channel_destroy.cpp"}); }

  void ExpectBothCleanedUp() const {
    EXPECT_FALSE(a_.Known());
    EXPECT_FALSE(b_.Known());
    EXPECT_THAT(servers_.OpenEndpoints(), testing::IsEmpty());
    EXPECT_EQ(MediaSessions(), 0u);
  }
  void ExpectBothInPlace() const {
    EXPECT_TRUE(a_.Known());
    EXPECT_TRUE(b_.Known());
    EXPECT_THAT(servers_.OpenEndpoints(), testing::SizeIs(2));
    EXPECT_THAT(CleanUpLines(), testing::IsEmpty());
  }
  static void PointTo(const MediaLeg& leg, const boost::uuids::uuid& ms_uuid) {
    Forget(leg);
    mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(leg.Uuid(), ms_uuid);
  }
  test_support::LogLine Joined() const {
    return test_support::debug_line("Successfully joining uuid(" + a_.Uuid() + ") to uuid(" + b_.Uuid() + ")!\n");
  }

  MediaLeg a_;
  MediaLeg b_{SWITCH_CALL_DIRECTION_OUTBOUND};

 private:
  void Begin() {
    log_.Clear();
    servers_.ForgetCalls();
  }
};

}  // namespace module_test
