#include <boost/thread/lock_types.hpp>
#include <chrono>
#include <functional>
#include <future>

#include "module/channel_bridge_fixture.h"

namespace module_test {
namespace {

using kvx_media_server::FSMediaSessionSharedPtr;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// What others can and cannot do while a callback waits for the media server: which locks it holds, and what becomes of
/// it when the tables change under its hands.
class ChannelMeanwhile : public ChannelBridge {
 protected:
  static FSMediaSessionSharedPtr RecordOf(const MediaLeg& leg) {
    return *mod_globals->GetMSTable()->GetFSMediaSession(leg.MediaSession());
  }
  /// Whether another thread gets the record's mutex.
  static bool Free(const FSMediaSessionSharedPtr& record) {
    return std::async(
               std::launch::async,
               [&record] {
                 return boost::unique_lock<boost::recursive_mutex>(record->mutex_, boost::try_to_lock).owns_lock();
               })
        .get();
  }
  /// Runs check in the middle of the operation, and fails the test when it was not come to.
  template <typename Callback>
  void Meanwhile(ScriptedOperation operation, std::function<void()> check, Callback callback) {
    bool reached = false;
    servers_.During(operation, [&] {
      reached = true;
      check();
    });
    callback();
    EXPECT_TRUE(reached) << operation;
  }
  static RemoteMedia Fax() {
    RemoteMedia media;
    media.state = SWITCH_SDP_ANSWER_RECEIVED;
    media.enable_udp_passthru = SWITCH_TRUE;
    media.enable_remote_address_detect = SWITCH_TRUE;
    return media;
  }
};

TEST_F(ChannelMeanwhile, ABridgeHoldsItsOwnSession) {
  TogetherFromTheStart();
  const auto record = RecordOf(a_);
  Meanwhile(
      ScriptedOperation::kJoin, [&] { EXPECT_FALSE(Free(record)); },
      [&] { EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS); });
  EXPECT_TRUE(Free(record));
}

TEST_F(ChannelMeanwhile, ABridgeHoldsThePartnersSessionNoLongerThanTheMigration) {
  BroughtTogetherByTransfer();
  const auto own = RecordOf(a_), partners = RecordOf(b_);
  servers_.During(ScriptedOperation::kImportEndpoint, [&] {
    EXPECT_FALSE(Free(own));
    EXPECT_FALSE(Free(partners));
  });
  Meanwhile(
      ScriptedOperation::kJoin,
      [&] {
        EXPECT_FALSE(Free(own));
        EXPECT_TRUE(Free(partners));
      },
      [&] { EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS); });
}

TEST_F(ChannelMeanwhile, ABridgeLetsThePartnersSessionEnd) {
  TogetherFromTheStart();
  Meanwhile(
      ScriptedOperation::kJoin, [&] { b_.End(); },  // would wait for ever if the partner were still locked
      [&] { EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS); });
}

// The operator's command that erases everything comes at any time.
TEST_F(ChannelMeanwhile, ABridgeSucceedsThoughTheTablesAreEmptiedUnderIt) {
  TogetherFromTheStart();
  const auto node = a_.Node();
  Meanwhile(
      ScriptedOperation::kJoin,
      [] {
        mod_globals->GetMSTable()->EraseAllMSUuid();
        mod_globals->GetFSUuidTable()->EraseAllItems();
      },
      [&] { EXPECT_EQ(a_.Bridge(RTPDIR_SEND), SWITCH_STATUS_SUCCESS); });
  EXPECT_FALSE(node->IsListenerEnabled());
  EXPECT_FALSE(node->GetPeer());
  EXPECT_EQ(BridgeLines().back(), Joined());
}

TEST_F(ChannelMeanwhile, AFailedBridgeCleansUpWithNoSessionHeld) {
  BroughtTogetherByTransfer();
  const auto own = RecordOf(a_), partners = RecordOf(b_);
  servers_.Fail(ScriptedOperation::kImportEndpoint);
  Meanwhile(
      ScriptedOperation::kClose,
      [&] {
        EXPECT_FALSE(Free(own));  // the clean-up's, of the leg that it closes
        EXPECT_TRUE(Free(partners));
        servers_.During(ScriptedOperation::kClose, [&] {
          EXPECT_TRUE(Free(own));
          EXPECT_FALSE(Free(partners));
        });
      },
      [&] { EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE); });
  ExpectBothCleanedUp();
}

TEST_F(ChannelMeanwhile, AnUnbridgeHoldsTheSession) {
  TogetherFromTheStart();
  ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  const auto record = RecordOf(a_);
  Meanwhile(
      ScriptedOperation::kUnjoin,
      [&] {
        EXPECT_FALSE(Free(record));
        EXPECT_FALSE(a_.Node()->IsListenerEnabled());
        EXPECT_FALSE(b_.Node()->IsListenerEnabled());
        EXPECT_EQ(a_.Node()->GetPeer(), b_.Node());
      },
      [&] { EXPECT_EQ(a_.Unbridge(), SWITCH_STATUS_SUCCESS); });
  EXPECT_TRUE(Free(record));
}

TEST_F(ChannelMeanwhile, ADestructionHoldsTheSessionAndHasForgottenTheLeg) {
  TogetherFromTheStart();
  const auto record = RecordOf(a_);
  a_.Set("generate_rtcp_report", "true");
  servers_.During(ScriptedOperation::kGetRtcpStatsReport, [&] {
    EXPECT_FALSE(Free(record));
    EXPECT_FALSE(a_.Known());
    EXPECT_TRUE(mod_globals->GetMSTable()->GetNetworkConnectionNode(b_.MediaSession(), a_.Uuid()));
  });
  Meanwhile(
      ScriptedOperation::kClose,
      [&] {
        EXPECT_FALSE(Free(record));
        EXPECT_FALSE(mod_globals->GetMSTable()->GetNetworkConnectionNode(b_.MediaSession(), a_.Uuid()));
      },
      [&] { EXPECT_EQ(a_.Destroy(), SWITCH_STATUS_SUCCESS); });
}

TEST_F(ChannelMeanwhile, DescriptionsLeaveEveryoneElseAlone) {
  TogetherFromTheStart();
  const auto record = RecordOf(a_);
  const auto others_work = [&] {
    EXPECT_TRUE(Free(record));
    std::async(std::launch::async, [&] {
      LocalMedia media;
      EXPECT_EQ(b_.GetMedia(media), SWITCH_STATUS_SUCCESS);
      EXPECT_EQ(b_.SetMedia({}), SWITCH_STATUS_SUCCESS);
    }).get();
  };
  LocalMedia local;
  Meanwhile(ScriptedOperation::kGetLocalOffer, others_work,
            [&] { EXPECT_EQ(a_.GetMedia(local), SWITCH_STATUS_SUCCESS); });
  local.state = SWITCH_SDP_OFFER_RECEIVED;
  Meanwhile(ScriptedOperation::kGetLocalAnswer, others_work,
            [&] { EXPECT_EQ(a_.GetMedia(local), SWITCH_STATUS_SUCCESS); });
  RemoteMedia remote;
  Meanwhile(ScriptedOperation::kSetRemoteOffer, others_work,
            [&] { EXPECT_EQ(a_.SetMedia(remote), SWITCH_STATUS_SUCCESS); });
  remote.state = SWITCH_SDP_ANSWER_RECEIVED;
  Meanwhile(ScriptedOperation::kSetRemoteAnswer, others_work,
            [&] { EXPECT_EQ(a_.SetMedia(remote), SWITCH_STATUS_SUCCESS); });
}

TEST_F(ChannelMeanwhile, ALegIsDestroyedWhileItsOfferIsMade) {
  TogetherFromTheStart();
  LocalMedia media;
  Meanwhile(
      ScriptedOperation::kGetLocalOffer,
      [&] {
        std::async(std::launch::async, [&] {
          EXPECT_EQ(channel_destroy(a_.Connection()), SWITCH_STATUS_SUCCESS);
        }).get();
      },
      [&] { EXPECT_EQ(a_.GetMedia(media), SWITCH_STATUS_FALSE); });
  EXPECT_EQ(media.out_port, 0);
  EXPECT_STREQ(media.ip_addr, "untouched");
  EXPECT_EQ(CleanUpLines(), std::vector{nothing_to_clean_up(a_.Uuid())});
  EXPECT_FALSE(b_.Known());
}

TEST_F(ChannelMeanwhile, AnOfferIsReturnedThoughTheSessionLeavesTheTable) {
  TogetherFromTheStart();
  const auto keep_alive = RecordOf(a_);
  LocalMedia media;
  Meanwhile(
      ScriptedOperation::kGetLocalOffer, [] { mod_globals->GetMSTable()->EraseAllMSUuid(); },
      [&] { EXPECT_EQ(a_.GetMedia(media), SWITCH_STATUS_SUCCESS); });
  EXPECT_STREQ(media.ip_addr, servers_.Address().c_str());
}

TEST_F(ChannelMeanwhile, APartnerStaysWhileItsMateIsCreated) {
  ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
  a_.BondWith(b_);
  std::future<void> ended;
  Meanwhile(
      ScriptedOperation::kCreateEndpoint,
      [&] {
        ended = std::async(std::launch::async, [&] { a_.End(); });
        EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
      },
      [&] { EXPECT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS); });
  ended.get();
}

TEST_F(ChannelMeanwhile, APartnerWithoutMediaIsLetGoBeforeItsMateGetsASession) {
  a_.BondWith(b_);
  Meanwhile(
      ScriptedOperation::kCreateSession, [&] { a_.End(); },  // would wait for ever if it were still locked
      [&] { EXPECT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS); });
}

TEST_F(ChannelMeanwhile, AFaxLetsThePeersSessionEnd) {
  TogetherFromTheStart();
  Meanwhile(
      ScriptedOperation::kGetRemoteImageConfig, [&] { b_.End(); },  // would wait for ever if the peer were still locked
      [&] { EXPECT_EQ(a_.SetMedia(Fax()), SWITCH_STATUS_SUCCESS); });
}

TEST_F(ChannelMeanwhile, AFaxIsRefusedWhenThePeerIsDestroyedBeforeItsImageStreamIsAskedFor) {
  TogetherFromTheStart();
  ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  log_.Clear();
  servers_.ForgetCalls();
  // On this thread, which holds the session's mutex for the unbridging, as the mutex is recursive.
  Meanwhile(
      ScriptedOperation::kUnjoin, [&] { EXPECT_EQ(channel_destroy(b_.Connection()), SWITCH_STATUS_SUCCESS); },
      [&] { EXPECT_EQ(a_.SetMedia(Fax()), SWITCH_STATUS_FALSE); });
  EXPECT_THAT(LinesOf({"channel_set_media.cpp"}),
              ElementsAre(error_line("Failed to locate reference leg for T38 passthrough!\n")));
  EXPECT_THAT(servers_.Operations(), Not(Contains(ScriptedOperation::kSetRemoteAnswer)));
  EXPECT_TRUE(a_.Known());
  EXPECT_TRUE(a_.Node());
  EXPECT_THAT(CleanUpLines(), IsEmpty());
}

TEST_F(ChannelMeanwhile, AFaxGoesOnThoughTheUnbridgingFails) {
  TogetherFromTheStart();
  Meanwhile(
      ScriptedOperation::kSetRemoteAddressDetection, [&] { PointTo(a_, boost::uuids::uuid()); },
      [&] { EXPECT_EQ(a_.SetMedia(Fax()), SWITCH_STATUS_SUCCESS); });
  EXPECT_THAT(BridgeLines(), ElementsAre(error_line("Could not find media session uuid from fs uuid " + a_.Uuid() +
                                                    " from FS table. Channel unbridge failed!")));
  EXPECT_THAT(servers_.Operations(), Contains(ScriptedOperation::kSetRemoteAnswer));
}

}  // namespace
}  // namespace module_test
