#include <boost/uuid/uuid_io.hpp>

#include "module/frame_fixture.h"

SWITCH_BEGIN_EXTERN_C
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_END_EXTERN_C

namespace module_test {

namespace {

using test_support::debug_line;
using test_support::LogLine;
using test_support::notice_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

}  // namespace

class ModuleShutdown : public ModuleFrame {};

TEST_F(ModuleShutdown, WithoutCallsHangsUpNothingAndStopsTheLibrary) {
  ConfigureAndLoad();
  log_.Clear();
  EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
  EXPECT_EQ(servers_.Calls(ScriptedOperation::kShutdown).size(), 1u);
  EXPECT_EQ(mod_globals, nullptr);
}

TEST_F(ModuleShutdown, HangsUpWhatIsLeftAndEmptiesTheTables) {
  ConfigureAndLoad();
  Leg leg;
  const std::string msuuid = boost::uuids::to_string(AddCall({&leg}));
  log_.Clear();
  EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(leg.HungUp());
  EXPECT_EQ(leg.Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  EXPECT_THAT(log_.ModuleLines(),
              ElementsAre(notice_line("Hanging up all calls\n"), debug_line("Looking for Media Session...\n"),
                          debug_line("********* Begin of switch_channel_hangup() *********\n"),
                          debug_line("********** End of switch_channel_hangup() **********\n"),
                          debug_line("Erasing Media Session " + msuuid + " from media sessions Table\n"),
                          debug_line("MyMediaServerLostListener::~MyMediaServerLostListener\n")));
  EXPECT_EQ(servers_.OpenSessions(), 0u);
  EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
}

TEST_F(ModuleShutdown, MediaSessionWithoutLegsIsErasedToo) {
  ConfigureAndLoad();
  AddCall({});
  log_.Clear();
  EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(log_.Has(notice_line("Hanging up all calls\n")));
  EXPECT_FALSE(log_.Has(debug_line("********* Begin of switch_channel_hangup() *********\n")));
  EXPECT_EQ(servers_.OpenSessions(), 0u);
}

TEST_F(ModuleShutdown, WithoutALoadDoesNothing) {
  EXPECT_EQ(mod_kelvaro_media_server_shutdown(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ModuleShutdown, LoadUnloadLoadWorks) {
  for (int round = 0; round < 3; ++round) {
    ConfigureAndLoad();
    EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
    Leg leg;
    AddCall({&leg});
    EXPECT_EQ(mod_globals->GetMSTable()->CountMediaSessionAllFSUuid(), 1u);
    EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
    module_.reset();
  }
}

class Availability : public ModuleFrame {
 protected:
  Availability() : ModuleFrame(Options()) {}
  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.capacity = 1;
    return options;
  }
};

TEST_F(Availability, IsFalseBeforeALoad) {
  EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
}

TEST_F(Availability, FollowsTheControlLibrary) {
  ConfigureAndLoad();
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus(servers_.Address().c_str(), false);
  EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus(servers_.Address().c_str(), true);
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
  AddCall({});  // the only place is taken
  EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
}

class MediaServerEvents : public ModuleFrame {
 protected:
  void ExpectHangUp(const Leg& leg) {
    EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(10), [&] { return leg.HungUp(); }));
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
  const boost::uuids::uuid msuuid = AddCall({&gone, &other});
  const auto connection = *mod_globals->GetMSTable()->GetNetworkConnection(msuuid, gone.Uuid());
  EXPECT_TRUE(mod_globals->GetMSTable()->UnregisterNetworkConnection(msuuid, gone.Uuid()));
  servers_.FireRtpTimeout(1);
  ASSERT_TRUE(servers_.FireRtpTimeout(2));  // events come one after the other
  ExpectHangUp(other);
  EXPECT_FALSE(gone.HungUp());
}

TEST_F(MediaServerEvents, MigratedLegIsStillWatchedThroughItsNewSession) {
  ConfigureAndLoad();
  Leg moving, there;
  const boost::uuids::uuid from = AddCall({&moving});
  const boost::uuids::uuid to = AddCall({&there});
  ASSERT_TRUE(mod_globals->GetMSTable()->MigrateNetworkConnection(from, to, moving.Uuid()));
  EXPECT_EQ(mod_globals->GetMSTable()->CountMediaSessionAllFSUuid(), 1u);
  ASSERT_TRUE(servers_.FireRtpTimeout(1));
  ExpectHangUp(moving);
}

}  // namespace module_test
