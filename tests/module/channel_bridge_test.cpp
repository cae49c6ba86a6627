#include <boost/thread/lock_types.hpp>
#include <boost/uuid/string_generator.hpp>
#include <chrono>
#include <future>
#include <thread>

#include "module/channel_bridge_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::Direction;
using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

using ChannelBridgeDeathTest = ChannelBridge;

TEST_F(ChannelBridgeDeathTest, TakesNoNullConnection) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(channel_bridge(nullptr, RTPDIR_DUPLEX), "mc != __null");
  EXPECT_DEATH(channel_unbridge(nullptr), "mc != __null");
}

TEST_F(ChannelBridge, JoinsTwoLegsOfOneSession) {
  TogetherFromTheStart();
  const boost::uuids::uuid session = a_.MediaSession();
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);

  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kJoin));
  EXPECT_EQ(servers_.JoinOf(1, 2), kelvaro::jsr309::kDuplex);
  EXPECT_EQ(a_.MediaSession(), session);
  EXPECT_EQ(b_.MediaSession(), session);
  EXPECT_EQ(a_.Node()->GetPeer(), b_.Node());
  EXPECT_EQ(b_.Node()->GetPeer(), a_.Node());
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDuplex.\n"), Joined()));
}

TEST_F(ChannelBridge, TakesTheDirectionOverByNumberAndListensToWhoIsHeard) {
  struct Case {
    RTPDirection direction;
    Direction joined;
    bool hears_a, hears_b;
    const char* mode;
  };
  TogetherFromTheStart();
  for (const Case& expected : {Case{RTPDIR_RECEIVE, kelvaro::jsr309::kReceive, true, false, "kReceive"},
                               Case{RTPDIR_SEND, kelvaro::jsr309::kSend, false, true, "kSend"},
                               Case{RTPDIR_DUPLEX, kelvaro::jsr309::kDuplex, true, true, "kDuplex"}}) {
    log_.Clear();
    EXPECT_EQ(a_.Bridge(expected.direction), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(servers_.Calls(ScriptedOperation::kJoin).back().direction, expected.joined);
    EXPECT_EQ(a_.Node()->IsListenerEnabled(), expected.hears_a) << expected.mode;
    EXPECT_EQ(b_.Node()->IsListenerEnabled(), expected.hears_b) << expected.mode;
    EXPECT_THAT(BridgeLines(),
                ElementsAre(debug_line(std::string("Join now, join mode is ") + expected.mode + ".\n"), Joined()));
  }
}

TEST_F(ChannelBridge, JoinsAudioWithoutVideoWhenInactiveAndListensToNobody) {
  TogetherFromTheStart();
  EXPECT_EQ(a_.Bridge(RTPDIR_INACTIVE), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(servers_.Calls(ScriptedOperation::kJoin).back().direction, kelvaro::jsr309::kAudioNoVideo);
  EXPECT_FALSE(a_.Node()->IsListenerEnabled());
  EXPECT_FALSE(b_.Node()->IsListenerEnabled());
  EXPECT_THAT(BridgeLines(), ElementsAre(Joined()));
}

// The switch is written in C, where a direction may be any number.
TEST_F(ChannelBridge, PassesADirectionThatOnlyTheMediaServerHas) {
  TogetherFromTheStart();
  volatile int direction = kelvaro::jsr309::kDisable;
  EXPECT_EQ(a_.Bridge(static_cast<RTPDirection>(direction)), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(servers_.Calls(ScriptedOperation::kJoin).back().direction, kelvaro::jsr309::kDisable);
  EXPECT_FALSE(a_.Node()->IsListenerEnabled());
  EXPECT_FALSE(b_.Node()->IsListenerEnabled());
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDisable.\n"), Joined()));
}

TEST_F(ChannelBridge, MigratesTransferredLegIntoOwnSession) {
  BroughtTogetherByTransfer();
  const boost::uuids::uuid own = a_.MediaSession(), former = b_.MediaSession();
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);

  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kImportEndpoint, ScriptedOperation::kReleaseSession,
                                                 ScriptedOperation::kJoin));
  EXPECT_EQ(servers_.JoinOf(1, 2), kelvaro::jsr309::kDuplex);
  EXPECT_EQ(a_.MediaSession(), own);
  EXPECT_EQ(b_.MediaSession(), own);
  EXPECT_FALSE(mod_globals->GetMSTable()->GetFSMediaSession(former));
  EXPECT_EQ(MediaSessions(), 1u);
  EXPECT_EQ(a_.Node()->GetPeer(), b_.Node());
  EXPECT_FALSE(b_.Node()->GetPeer());
  EXPECT_TRUE(a_.Node()->IsListenerEnabled());
  EXPECT_TRUE(b_.Node()->IsListenerEnabled());
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDuplex.\n"),
                                         debug_line("Network Connection migration completed\n"), Joined()));
  EXPECT_EQ(a_.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b_.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
}

TEST_F(ChannelBridge, LeavesTheOtherLegsOfTheFormerSession) {
  MediaLeg third;
  ASSERT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS);
  third.Set("media_session_uuid", b_.Get("media_session_uuid").c_str());
  ASSERT_EQ(third.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
  a_.BondWith(b_);
  const boost::uuids::uuid former = b_.MediaSession();
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b_.MediaSession(), a_.MediaSession());
  EXPECT_EQ(third.MediaSession(), former);
  EXPECT_TRUE(third.Node());
  EXPECT_EQ(MediaSessions(), 2u);
  EXPECT_FALSE(b_.Node()->GetPeer());
}

TEST_F(ChannelBridge, FailsWithoutAPartnerAndLeavesTheLeg) {
  ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(error_line("Cannot find the session to bridge with!\n")));
  EXPECT_TRUE(a_.Known());
}

TEST_F(ChannelBridge, FailsAndCleansUpWhenTheOwnLegIsUnknown) {
  TogetherFromTheStart();
  Forget(a_);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(error_line("Unexpected session fsuuid. It does't exist. " + a_.Uuid() + "\n")));
  EXPECT_THAT(CleanUpLines(), ElementsAre(nothing_to_clean_up(a_.Uuid())));
  EXPECT_FALSE(b_.Known());
}

TEST_F(ChannelBridge, FailsAndCleansUpWhenThePartnerIsUnknown) {
  TogetherFromTheStart();
  Forget(b_);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(error_line("Unexpected session reffsuuid. It does't exist. " + b_.Uuid() + "\n")));
  EXPECT_FALSE(a_.Known());
  EXPECT_THAT(CleanUpLines(), ElementsAre(nothing_to_clean_up(b_.Uuid())));
}

TEST_F(ChannelBridge, ChecksBothLegsEvenWhenTheFirstIsUnknown) {
  TogetherFromTheStart();
  Forget(a_);
  Forget(b_);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(),
              ElementsAre(error_line("Unexpected session fsuuid. It does't exist. " + a_.Uuid() + "\n"),
                          error_line("Unexpected session reffsuuid. It does't exist. " + b_.Uuid() + "\n")));
}

TEST_F(ChannelBridge, FailsAndCleansUpWhenTheOwnSessionIsGone) {
  TogetherFromTheStart();
  PointTo(a_, boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDuplex.\n"),
                                         error_line("Could not find media session uuid from fs uuid " + a_.Uuid() +
                                                    " from FS table. Channel bridge failed")));
  EXPECT_THAT(CleanUpLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(a_.Known());
  EXPECT_FALSE(b_.Known());
}

TEST_F(ChannelBridge, FailsWithoutCleaningUpWhenThePartnersSessionIsGone) {
  TogetherFromTheStart();
  PointTo(b_, boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(BridgeLines().back(), error_line("Cannot find Media Session in (fsuuid=" + a_.Uuid() +
                                             "; msuuid=" + kUnusedUuid + ") in media sessions Table\n"));
  ExpectBothInPlace();
}

TEST_F(ChannelBridge, FailsAndCleansUpWithoutAConnectionOnEitherSide) {
  for (const bool own_side : {true, false}) {
    MediaLeg a, b;
    ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
    ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
    a.BondWith(b);
    log_.Clear();
    PointTo(own_side ? a : b, own_side ? b.MediaSession() : a.MediaSession());
    EXPECT_EQ(a.Bridge(), SWITCH_STATUS_FALSE);
    EXPECT_EQ(BridgeLines().back(), error_line("Failed to find network connections!\n"));
    EXPECT_THAT(CleanUpLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
    EXPECT_FALSE(a.Known());
    EXPECT_FALSE(b.Known());
  }
}

TEST_F(ChannelBridge, FailsWithoutCleaningUpWhileThePartnersSessionIsBusy) {
  BroughtTogetherByTransfer();
  const auto record = *mod_globals->GetMSTable()->GetFSMediaSession(b_.MediaSession());
  std::promise<void> locked, finished;
  std::thread busy([&] {
    const boost::unique_lock<boost::recursive_mutex> lock(record->mutex_);
    locked.set_value();
    finished.get_future().wait();
  });
  locked.get_future().wait();
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  finished.set_value();
  busy.join();

  EXPECT_EQ(BridgeLines().back(), error_line("Transfer migration failed, tranferee is busy\n"));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
  EXPECT_NE(a_.MediaSession(), b_.MediaSession());
  ExpectBothInPlace();
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelBridge, FailsAndCleansUpWhenTheMediaServerDoesNotImport) {
  BroughtTogetherByTransfer();
  servers_.Fail(ScriptedOperation::kImportEndpoint);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(BridgeLines().back(), error_line("ERROR - Unable to migrate Network Connection.\n"));
  EXPECT_TRUE(log_.Has(error_line("ERROR - Unable to import Network Connection.\n")));
  ExpectBothCleanedUp();
}

TEST_F(ChannelBridge, FailsAndCleansUpWhenTheMediaServerDoesNotJoin) {
  TogetherFromTheStart();
  servers_.Fail(ScriptedOperation::kJoin);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(BridgeLines().back(), error_line("Unable to join Network Connection A to Network Connection B\n"));
  ExpectBothCleanedUp();
}

TEST_F(ChannelBridge, CleansUpTheMigratedLegWhenTheJoinFails) {
  BroughtTogetherByTransfer();
  servers_.Fail(ScriptedOperation::kJoin);
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(BridgeLines().back(), error_line("Unable to join Network Connection A to Network Connection B\n"));
  ExpectBothCleanedUp();
}

TEST_F(ChannelBridge, HoldsNoPartnerAndNoMutexAfterwards) {
  BroughtTogetherByTransfer();
  const auto own = *mod_globals->GetMSTable()->GetFSMediaSession(a_.MediaSession());
  const auto former = *mod_globals->GetMSTable()->GetFSMediaSession(b_.MediaSession());
  ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  auto both_free = std::async(std::launch::async, [&] {
    const boost::unique_lock<boost::recursive_mutex> first(own->mutex_, boost::try_to_lock);
    const boost::unique_lock<boost::recursive_mutex> second(former->mutex_, boost::try_to_lock);
    return first.owns_lock() && second.owns_lock();
  });
  EXPECT_TRUE(both_free.get());
  b_.Destroy();
  b_.End();  // would wait for ever if it were still locked
  a_.Destroy();
}

}  // namespace
}  // namespace module_test
