#include <boost/uuid/uuid_io.hpp>

#include "module/call_hooks.h"
#include "module/frame_fixture.h"

SWITCH_BEGIN_EXTERN_C
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_END_EXTERN_C

namespace module_test {

namespace {

using test_support::debug_line;
using test_support::notice_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

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

TEST_F(ModuleShutdown, RestsOnceTheLibraryHasStoppedAndBeforeTheSingletonGoes) {
  ConfigureAndLoad();
  Leg leg;
  AddCall({&leg});
  std::vector<switch_interval_time_t> rests;
  const WhileHooked sleep(call_hooks().sleep, [&](switch_interval_time_t microseconds) {
    if (microseconds != 5000) return;  // between two hang-ups
    rests.push_back(microseconds);
    EXPECT_EQ(servers_.Calls(ScriptedOperation::kShutdown).size(), 1u);
    ASSERT_NE(mod_globals, nullptr);
    EXPECT_EQ(mod_globals->GetMSTable()->CountMediaSessionAllFSUuid(), 0u);
    EXPECT_FALSE(mod_globals->GetFSUuidTable()->IsFSUuidAlreadyThere(leg.Uuid()));
  });
  EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(rests, ElementsAre(5000));
  EXPECT_EQ(mod_globals, nullptr);
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

}  // namespace module_test
