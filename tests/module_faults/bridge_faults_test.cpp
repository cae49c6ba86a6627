#include <chrono>
#include <functional>
#include <future>

#include "faults.h"
#include "module/channel_bridge_fixture.h"

namespace module_test {
namespace {

using module_faults::Fault;
using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

class BridgeFault : public ChannelBridge {
 protected:
  /// Bridges A with the transferred B, and lets another thread work in the moment in which the tables do not agree
  /// where B is: it has to wait until they do.
  switch_status_t WhileThePartnerIsMoved(const std::function<switch_status_t()>& work) {
    std::future<switch_status_t> done;
    const Fault moment("RegisterMediaSessionUuid", [&] {
      if (done.valid()) return true;  // the other thread's own
      EXPECT_FALSE(b_.Known());
      done = std::async(std::launch::async, work);
      EXPECT_EQ(done.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
      return true;
    });
    EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
    return done.get();
  }
};

TEST_F(BridgeFault, CleansUpThePartnerWhenItsSessionVanishesBeforeTheMigration) {
  BroughtTogetherByTransfer();
  const boost::uuids::uuid former = b_.MediaSession();
  const Fault vanished("GetFSMediaSession", [&] {
    EXPECT_TRUE(mod_globals->GetMSTable()->UnregisterNetworkConnection(former, b_.Uuid()));
    return true;
  });
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDuplex.\n"),
                                         error_line("Could not find media session uuid from fs uuid " + b_.Uuid() +
                                                    " from FS table. Channel bridge failed")));
  // B's clean-up finds no connection and goes on with A, its partner.
  EXPECT_THAT(CleanUpLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  ExpectBothCleanedUp();
  EXPECT_TRUE(servers_.Calls(ScriptedOperation::kImportEndpoint).empty());
}

TEST_F(BridgeFault, CleansUpBothWhenTheMigratedLegTurnsUpElsewhere) {
  BroughtTogetherByTransfer();
  const Fault taken("RegisterMediaSessionUuid", [&] {
    EXPECT_FALSE(b_.Known());
    EXPECT_TRUE(mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b_.Uuid(), a_.MediaSession()));
    return true;
  });
  EXPECT_EQ(a_.Bridge(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(BridgeLines(), ElementsAre(debug_line("Join now, join mode is kDuplex.\n"),
                                         error_line("ERROR - Unable to fill in FSUUID - MSUUID table.\n")));
  EXPECT_THAT(servers_.Calls(ScriptedOperation::kImportEndpoint), testing::SizeIs(1));
  EXPECT_THAT(servers_.Calls(ScriptedOperation::kJoin), IsEmpty());
  EXPECT_THAT(CleanUpLines(), IsEmpty());
  ExpectBothCleanedUp();
}

TEST_F(BridgeFault, APartnerThatIsBeingMovedIsKnownToItsOwnBridge) {
  BroughtTogetherByTransfer();
  EXPECT_EQ(WhileThePartnerIsMoved([&] { return b_.Bridge(); }), SWITCH_STATUS_SUCCESS);
  for (const auto& line : BridgeLines()) EXPECT_EQ(line.level, SWITCH_LOG_DEBUG) << testing::PrintToString(line);
  EXPECT_EQ(b_.MediaSession(), a_.MediaSession());
}

TEST_F(BridgeFault, APartnerThatIsBeingMovedIsKnownToItsUnbridge) {
  BroughtTogetherByTransfer();
  EXPECT_EQ(WhileThePartnerIsMoved([&] { return b_.Unbridge(); }), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(log_.Has(debug_line("FS UUID was no longer found in FS UUID table, nothing to unbridge\n")));
}

TEST_F(BridgeFault, APartnerThatIsBeingMovedIsKnownToALegThatIsCreatedBesideIt) {
  BroughtTogetherByTransfer();
  MediaLeg third;
  EXPECT_EQ(WhileThePartnerIsMoved([&] {
              third.BondWith(b_);
              return third.Create();
            }),
            SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(third.MediaSession(), a_.MediaSession());
}

TEST_F(BridgeFault, APartnerThatIsBeingMovedIsKnownToItsDescriptions) {
  BroughtTogetherByTransfer();
  LocalMedia media;
  EXPECT_EQ(WhileThePartnerIsMoved([&] { return b_.GetMedia(media); }), SWITCH_STATUS_SUCCESS);
}

TEST_F(BridgeFault, APartnerThatIsBeingMovedIsKnownToItsDestruction) {
  BroughtTogetherByTransfer();
  EXPECT_EQ(WhileThePartnerIsMoved([&] { return b_.Destroy(); }), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(b_.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), testing::SizeIs(1));
}

}  // namespace
}  // namespace module_test
