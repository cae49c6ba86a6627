#include <boost/uuid/string_generator.hpp>

#include "module/channel_bridge_fixture.h"

namespace module_test {
namespace {

using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

class ChannelUnbridge : public ChannelBridge {
 protected:
  void Bridged() {
    TogetherFromTheStart();
    ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
    log_.Clear();
    servers_.ForgetCalls();
  }
};

TEST_F(ChannelUnbridge, SeparatesTheLegsAndListensToNeither) {
  Bridged();
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kUnjoin));
  EXPECT_FALSE(servers_.JoinOf(1, 2));
  EXPECT_EQ(a_.MediaSession(), b_.MediaSession());
  for (const MediaLeg* leg : {&a_, &b_}) {
    EXPECT_FALSE(leg->Node()->GetPeer());
    EXPECT_FALSE(leg->Node()->IsListenerEnabled());
  }
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Successfully unjoined uuid(" + a_.Uuid() + ")!\n")));
}

TEST_F(ChannelUnbridge, SeparatesAMigratedPairFromTheSideThatBridged) {
  BroughtTogetherByTransfer();
  ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(servers_.JoinOf(1, 2));
  EXPECT_FALSE(a_.Node()->GetPeer());
  EXPECT_EQ(MediaSessions(), 1u);
}

TEST_F(ChannelUnbridge, GoesOnWhenTheMediaServerDoesNotUnjoin) {
  Bridged();
  servers_.Fail(ScriptedOperation::kUnjoin);
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(error_line("ERROR - Unable to unjoin Network Connection A to Network Connection B.\n"),
                          debug_line("Successfully unjoined uuid(" + a_.Uuid() + ")!\n")));
  EXPECT_FALSE(a_.Node()->GetPeer());
  EXPECT_FALSE(b_.Node()->GetPeer());
  EXPECT_FALSE(a_.Node()->IsListenerEnabled());
}

TEST_F(ChannelUnbridge, FailsWithoutASession) {
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(error_line("Cannot get session pointer in channel_unbridge()!\n")));
}

TEST_F(ChannelUnbridge, SucceedsForALegThatIsNoLongerKnown) {
  Bridged();
  Forget(a_);
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(debug_line("FS UUID was no longer found in FS UUID table, nothing to unbridge\n")));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
}

TEST_F(ChannelUnbridge, FailsWithoutAMediaSessionUuid) {
  Bridged();
  PointTo(a_, boost::uuids::uuid());
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(error_line("Could not find media session uuid from fs uuid " + a_.Uuid() +
                                                    " from FS table. Channel unbridge failed!")));
}

TEST_F(ChannelUnbridge, SucceedsWhenTheMediaSessionIsGone) {
  Bridged();
  PointTo(a_, boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(BridgeLines(), ElementsAre(error_line("Could not find media session uuid from fs uuid " + a_.Uuid() +
                                                    " from FS table. Channel unbridge failed")));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
  EXPECT_TRUE(a_.Known());
}

TEST_F(ChannelUnbridge, FailsWithoutAConnection) {
  BroughtTogetherByTransfer();
  PointTo(a_, b_.MediaSession());
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(test_support::notice_line("Cannot find NetworkConnection with uuid=" + a_.Uuid() + "\n")));
  EXPECT_TRUE(a_.Known());
}

TEST_F(ChannelUnbridge, SucceedsWithoutAPeerAndLeavesTheListener) {
  TogetherFromTheStart();
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(debug_line("Cannot find peer for NetworkConnection with uuid=" + a_.Uuid() + "\n")));
  EXPECT_TRUE(a_.Node()->IsListenerEnabled());
  EXPECT_THAT(servers_.Operations(), IsEmpty());
}

TEST_F(ChannelUnbridge, SucceedsWhenThePeerHasBeenDestroyed) {
  Bridged();
  ASSERT_EQ(b_.Destroy(), SWITCH_STATUS_SUCCESS);
  log_.Clear();
  EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(debug_line("Cannot find peer for NetworkConnection with uuid=" + a_.Uuid() + "\n")));
  EXPECT_EQ(a_.Destroy(), SWITCH_STATUS_SUCCESS);
}

}  // namespace
}  // namespace module_test
