// The registry over the control library's own sessions and connections, whose media servers do as the test says: what
// they report, what they refuse, and both while a leg is being moved or taken out.

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <future>

#include "kelvaro/jsr309/media_session.h"
#include "module/call_hooks.h"
#include "module/frame_fixture.h"
#include "module/media_callbacks_fixture.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::MediaSessionTable;
using kvx_media_server::NetworkConnectionSharedPtr;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds kPatience(10);

}  // namespace

class MediaServerEvents : public ModuleFrame {
 protected:
  static MediaSessionTable& Table() { return *mod_globals->GetMSTable(); }
  static std::vector<std::string> Legs(const uuid& msuuid) {
    std::vector<std::string> legs;
    Table().ListMediaSessionAllFSUuid(legs, msuuid);
    return legs;
  }
  void ExpectHangUp(const Leg& leg) {
    EXPECT_TRUE(test_support::wait_until(kPatience, [&] { return leg.HungUp(); }));
    EXPECT_EQ(leg.Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  }
};

TEST_F(MediaServerEvents, LostServerHangsUpTheLegsOnIt) {
  ConfigureAndLoad();
  Leg first, second;
  AddCall({&first, &second});
  servers_.Lose();
  ExpectHangUp(first);
  ExpectHangUp(second);
}

TEST_F(MediaServerEvents, SilentLegIsHungUpAndItsPartnerIsNot) {
  ConfigureAndLoad();
  Leg silent, speaking;
  AddCall({&silent, &speaking});
  ASSERT_TRUE(servers_.FireRtpTimeout(1));
  ExpectHangUp(silent);
  EXPECT_FALSE(speaking.HungUp());
}

TEST_F(MediaServerEvents, NothingComesAfterTheLegWasUnregistered) {
  ConfigureAndLoad();
  Leg gone, other;
  const uuid msuuid = AddCall({&gone, &other});
  const NetworkConnectionSharedPtr kept = *Table().GetNetworkConnection(msuuid, gone.Uuid());
  EXPECT_TRUE(Table().UnregisterNetworkConnection(msuuid, gone.Uuid()));
  servers_.FireRtpTimeout(1);
  ASSERT_TRUE(servers_.FireRtpTimeout(2));  // events come one after the other
  ExpectHangUp(other);
  EXPECT_FALSE(gone.HungUp());
}

TEST_F(MediaServerEvents, MigratedLegIsStillWatchedThroughItsNewSession) {
  ConfigureAndLoad();
  Leg moving, there;
  const uuid from = AddCall({&moving});
  const uuid to = AddCall({&there});
  ASSERT_TRUE(Table().MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_EQ(Table().CountMediaSessionAllFSUuid(), 1u);
  ASSERT_TRUE(servers_.FireRtpTimeout(1));
  ExpectHangUp(moving);
}

TEST_F(MediaServerEvents, LostListenerIsDroppedOnceItHasHungUp) {
  ConfigureAndLoad();
  Leg leg;
  const auto record = *Table().GetFSMediaSession(AddCall({&leg}));
  servers_.Lose();
  ExpectHangUp(leg);
  EXPECT_TRUE(test_support::wait_until(kPatience, [&] { return !record->ms_listener->IsListenerEnabled(); }));
  EXPECT_TRUE(test_support::wait_until(kPatience, [&] { return record->ms_listener.use_count() == 1; }));
}

TEST_F(MediaServerEvents, LegIsRegisteredThoughItsConnectionTakesNoListener) {
  ConfigureAndLoad();
  Leg there, late;
  const uuid msuuid = AddCall({&there});
  const auto session = *Table().GetMediaSession(msuuid);
  const NetworkConnectionSharedPtr connection(session->CreateNetworkConnection(nullptr));
  ASSERT_TRUE(connection);
  servers_.Lose();
  ExpectHangUp(there);
  const auto probe = boost::make_shared<MediaSessionTable::NetworkConnectionNode>(connection, "probe");
  ASSERT_FALSE(connection->AddListener(probe));
  EXPECT_TRUE(Table().RegisterNetworkConnection(msuuid, connection, late.Uuid()));
  EXPECT_THAT(Legs(msuuid), ElementsAre(there.Uuid(), late.Uuid()));
  EXPECT_TRUE(Table().UnregisterNetworkConnection(msuuid, late.Uuid()));
  EXPECT_THAT(Legs(msuuid), ElementsAre(there.Uuid()));
}

TEST_F(MediaServerEvents, LegIsUnregisteredWhileItsSilenceIsBeingHandled) {
  ConfigureAndLoad();
  Leg leg;
  const uuid msuuid = AddCall({&leg});
  const boost::weak_ptr<MediaSessionTable::NetworkConnectionNode> node =
      Table().GetNetworkConnectionNode(msuuid, leg.Uuid());
  std::promise<void> handling, go_on;
  std::future<void> may_go_on = go_on.get_future();
  std::future<bool> unregistered;
  {
    const WhileHooked hangup(call_hooks().hangup, [&](switch_channel_t*, switch_call_cause_t) {
      handling.set_value();
      EXPECT_EQ(may_go_on.wait_for(kPatience), std::future_status::ready);
    });
    ASSERT_TRUE(servers_.FireRtpTimeout(1));
    ASSERT_EQ(handling.get_future().wait_for(kPatience), std::future_status::ready);
    unregistered =
        std::async(std::launch::async, [&] { return Table().UnregisterNetworkConnection(msuuid, leg.Uuid()); });
    go_on.set_value();
    ASSERT_EQ(unregistered.wait_for(kPatience), std::future_status::ready);
  }
  EXPECT_TRUE(unregistered.get());
  ExpectHangUp(leg);
  EXPECT_EQ(Table().CountMediaSessionAllFSUuid(), 0u);
  EXPECT_TRUE(test_support::wait_until(kPatience, [&] { return node.expired(); }));
}

TEST_F(MediaServerEvents, SilenceDuringAMigrationHangsTheLegUpAtOnce) {
  ConfigureAndLoad();
  Leg moving, there;
  const uuid from = AddCall({&moving});
  const uuid to = AddCall({&there});
  bool hung_up = false;
  servers_.During(ScriptedOperation::kImportEndpoint, [&] {
    EXPECT_TRUE(servers_.FireRtpTimeout(1));
    hung_up = test_support::wait_until(kPatience, [&] { return moving.HungUp(); });
  });
  EXPECT_TRUE(Table().MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_TRUE(hung_up);
  EXPECT_THAT(Legs(to), ElementsAre(there.Uuid(), moving.Uuid()));
}

TEST_F(MediaServerEvents, LossDuringAMigrationLeavesTheLegsInPlaceAndHangsThemUp) {
  ConfigureAndLoad();
  Leg moving, there;
  const uuid from = AddCall({&moving});
  const uuid to = AddCall({&there});
  servers_.During(ScriptedOperation::kImportEndpoint, [&] { servers_.Lose(); });
  log_.Clear();
  EXPECT_FALSE(Table().MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_TRUE(log_.Has(error_line("ERROR - Unable to import Network Connection.\n")));
  ExpectHangUp(moving);
  ExpectHangUp(there);
  EXPECT_THAT(Legs(from), ElementsAre(moving.Uuid()));
  EXPECT_THAT(Legs(to), ElementsAre(there.Uuid()));
}

TEST_F(MediaServerEvents, RefusedImportLeavesTheLegWatchedWhereItWas) {
  ConfigureAndLoad();
  Leg moving, there;
  const uuid from = AddCall({&moving});
  const uuid to = AddCall({&there});
  const NetworkConnectionSharedPtr connection = *Table().GetNetworkConnection(from, moving.Uuid());
  servers_.Fail(ScriptedOperation::kImportEndpoint);
  log_.Clear();
  EXPECT_FALSE(Table().MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_TRUE(log_.Has(error_line("ERROR - Unable to import Network Connection.\n")));
  EXPECT_EQ(*Table().GetNetworkConnection(from, moving.Uuid()), connection);
  EXPECT_THAT(Legs(to), ElementsAre(there.Uuid()));
  ASSERT_TRUE(servers_.FireRtpTimeout(1));
  ExpectHangUp(moving);
}

TEST_F(MediaServerEvents, ClosedConnectionIsNotMigrated) {
  ConfigureAndLoad();
  Leg moving, there;
  const uuid from = AddCall({&moving});
  const uuid to = AddCall({&there});
  (*Table().GetNetworkConnection(from, moving.Uuid()))->Close();
  EXPECT_FALSE(Table().MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_THAT(servers_.Calls(ScriptedOperation::kImportEndpoint), IsEmpty());
  EXPECT_THAT(Legs(from), ElementsAre(moving.Uuid()));
}

class BridgedLegEvents : public MediaCallbacks {};

// What A's far end sends goes nowhere under "send": its silence is nobody's business.
TEST_F(BridgedLegEvents, SilenceOfTheLegThatOnlyListensDoesNotHangItUp) {
  MediaLeg a, b(SWITCH_CALL_DIRECTION_OUTBOUND);
  a.BondWith(b);
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(a.Bridge(RTPDIR_SEND), SWITCH_STATUS_SUCCESS);
  ASSERT_TRUE(servers_.FireRtpTimeout(1));
  ASSERT_TRUE(servers_.FireRtpTimeout(2));  // events come one after the other
  EXPECT_TRUE(test_support::wait_until(kPatience, [&] { return b.HungUp(); }));
  EXPECT_FALSE(a.HungUp());
  a.Destroy();
  b.Destroy();
}

}  // namespace module_test
