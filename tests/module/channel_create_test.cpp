#include <boost/make_shared.hpp>
#include <boost/uuid/string_generator.hpp>
#include <chrono>
#include <thread>

#include "kelvaro/jsr309/media_session.h"
#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using kvx_media_server::ModGlobal;
using kvx_media_server::MyMediaServerLostListener;
using kvx_media_server::NetworkConnectionSharedPtr;
using kvx_media_server::uuid_to_text;
using test_support::debug_line;
using test_support::error_line;
using test_support::ScriptedOperation;
using test_support::warning_line;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const char kUnusedUuid[] = "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30";

class ChannelCreate : public MediaCallbacks {
 protected:
  std::vector<test_support::LogLine> CreateLines() const { return LinesOf({"channel_create.cpp"}); }

  void ExpectNothingLeft() const {
    EXPECT_EQ(MediaSessions(), 0u);
    EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
    EXPECT_EQ(servers_.OpenSessions(), 0u);
  }

  /// A connection of the leg's making, in the tables under another leg's uuid.
  static NetworkConnectionSharedPtr PlantNode(const MediaLeg& owner, const std::string& fs_uuid) {
    const auto session = mod_globals->GetMSTable()->GetMediaSession(owner.MediaSession());
    const NetworkConnectionSharedPtr connection((*session)->CreateNetworkConnection(nullptr));
    mod_globals->GetMSTable()->RegisterNetworkConnection(owner.MediaSession(), connection, fs_uuid);
    return connection;
  }
};

using ChannelCreateDeathTest = ChannelCreate;

TEST_F(ChannelCreateDeathTest, TakesNoNullArgument) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  MediaLeg leg;
  EXPECT_DEATH(channel_create(nullptr, leg.Session()), "\\(__null != mc\\) && \\(__null != sess\\)");
  EXPECT_DEATH(channel_create(leg.Connection(), nullptr), "\\(__null != mc\\) && \\(__null != sess\\)");
}

TEST_F(ChannelCreate, GivesALegWithoutPartnerASessionOfItsOwn) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);

  EXPECT_EQ(leg.Connection()->private_info, leg.Session());
  EXPECT_EQ(MediaSessions(), 1u);
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_FALSE(leg.MediaSession().is_nil());
  EXPECT_EQ(leg.Get("media_session_uuid"), uuid_to_text(leg.MediaSession()));
  EXPECT_THAT(CreateLines(),
              ElementsAre(debug_line("Creating channel without reference leg. Session: " + leg.Uuid() + "\n"),
                          debug_line("Creating leg without a reference leg -> " + leg.Uuid() + "\n"),
                          debug_line("Media session created successfully for switch session " + leg.Uuid() + "\n"),
                          debug_line("Created new network connection successfully\n")));
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  ExpectNothingLeft();
}

TEST_F(ChannelCreate, RegistersTheLegAsListenerOfItsConnection) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_TRUE(leg.Node());
  EXPECT_TRUE(leg.Node()->IsListenerEnabled());
  EXPECT_FALSE(leg.Node()->GetPeer());

  ASSERT_TRUE(servers_.FireRtpTimeout(servers_.LastEndpoint()));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!leg.HungUp() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_TRUE(leg.HungUp());
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, PutsALegIntoTheSessionOfItsPartner) {
  MediaLeg a, b(SWITCH_CALL_DIRECTION_OUTBOUND);
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  log_.Clear();
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);

  EXPECT_EQ(MediaSessions(), 1u);
  EXPECT_EQ(a.MediaSession(), b.MediaSession());
  EXPECT_EQ(a.Get("media_session_uuid"), b.Get("media_session_uuid"));
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(2));
  EXPECT_EQ(servers_.OpenSessions(), 1u);
  EXPECT_THAT(CreateLines(), ElementsAre(debug_line("Creating channel with reference Media Connection. Session: " +
                                                    b.Uuid() + " Reference Session: " + a.Uuid() + "\n"),
                                         debug_line("Creating channel with reference Media Session uuid " +
                                                    uuid_to_text(a.MediaSession()) + ".\n")));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_SUCCESS);
  ExpectNothingLeft();
}

TEST_F(ChannelCreate, AsksThePartnerBeforeTheVariable) {
  MediaLeg a, b, c;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(c.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  b.Set("media_session_uuid", c.Get("media_session_uuid").c_str());
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b.MediaSession(), a.MediaSession());
  for (MediaLeg* leg : {&a, &b, &c}) EXPECT_EQ(leg->Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, GivesALegItsOwnSessionWhileItsPartnerHasNone) {
  MediaLeg a, b;
  b.BondWith(a);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b.Get("media_session_uuid"), uuid_to_text(b.MediaSession()));
  EXPECT_THAT(CreateLines(),
              Contains(debug_line("Creating channel without reference leg. Session: " + b.Uuid() + "\n")));
  a.End();  // would wait for ever if the partner were still locked
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_SUCCESS);
}

// The partner's own thread takes the private info away, at any time.
TEST_F(ChannelCreate, GivesALegItsOwnSessionWhenItsPartnerIsDestroyedMeanwhile) {
  MediaLeg a, b;
  b.Connection()->private_info = b.Session();
  EXPECT_EQ(handle_leg_with_ref_mc_channel_create(b.Connection(), a.Connection()), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(CreateLines(),
              Contains(debug_line("Creating channel without reference leg. Session: " + b.Uuid() + "\n")));
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, PutsALegIntoTheSessionThatItsVariableNames) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.Set("media_session_uuid", a.Get("media_session_uuid").c_str());
  log_.Clear();
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b.MediaSession(), a.MediaSession());
  EXPECT_THAT(CreateLines(), ElementsAre(debug_line("Creating channel with reference Media Session uuid " +
                                                    uuid_to_text(a.MediaSession()) + ".\n")));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, FailsWhenTheVariableNamesASessionThatIsGone) {
  MediaLeg leg;
  leg.Set("media_session_uuid", kUnusedUuid);
  EXPECT_EQ(leg.Create(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(CreateLines(), ElementsAre(debug_line(std::string("Creating channel with reference Media Session uuid ") +
                                                    kUnusedUuid + ".\n"),
                                         error_line("Cannot find Media Session in Media Session Table!\n")));
  EXPECT_FALSE(log_.Has(nothing_to_clean_up(leg.Uuid())));
  EXPECT_THAT(servers_.Operations(), Not(Contains(ScriptedOperation::kCreateEndpoint)));
  EXPECT_FALSE(leg.Known());
}

TEST_F(ChannelCreate, TakesAMalformedVariableForAbsentAndSaysSo) {
  for (const char* text :
       {"not-a-uuid", "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f3", "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30x"}) {
    MediaLeg leg;
    leg.Set("media_session_uuid", text);
    log_.Clear();
    EXPECT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS) << text;
    EXPECT_EQ(log_.Count(warning_line("Ignoring malformed media_session_uuid \"" + std::string(text) +
                                      "\" of switch session " + leg.Uuid() + "\n")),
              1u);
    EXPECT_EQ(leg.Get("media_session_uuid"), uuid_to_text(leg.MediaSession()));
    EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  }
}

TEST_F(ChannelCreate, FailsWhenTheTableDoesNotKnowThePartner) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  Forget(a);
  b.BondWith(a);
  log_.Clear();
  EXPECT_EQ(b.Create(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(CreateLines(), ElementsAre(debug_line("Creating channel with reference Media Connection. Session: " +
                                                    b.Uuid() + " Reference Session: " + a.Uuid() + "\n"),
                                         error_line("FS UUID Table data consistency!\n")));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
  EXPECT_FALSE(b.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
}

TEST_F(ChannelCreate, FailsQuietlyWhenThePartnerHasNoMediaSession) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  Forget(a);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(a.Uuid(), boost::uuids::uuid());
  b.BondWith(a);
  log_.Clear();
  EXPECT_EQ(b.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), debug_line("Cannot find reference leg's record in FS Table!\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
  EXPECT_FALSE(b.Known());
}

TEST_F(ChannelCreate, FailsWithoutAMediaSession) {
  servers_.Fail(ScriptedOperation::kCreateSession);
  MediaLeg leg;
  EXPECT_EQ(leg.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("Unable to create new media session for switch session " + leg.Uuid()));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
  EXPECT_EQ(leg.Get("media_session_uuid"), "");
  ExpectNothingLeft();
}

TEST_F(ChannelCreate, FailsAndCleansUpWithoutAConnection) {
  servers_.Fail(ScriptedOperation::kCreateEndpoint);
  MediaLeg leg;
  EXPECT_EQ(leg.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(),
            error_line("Unable to create new network connection for switch session " + leg.Uuid()));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), ElementsAre(nothing_to_clean_up(leg.Uuid())));
  EXPECT_FALSE(leg.Known());
  ExpectNothingLeft();
}

TEST_F(ChannelCreate, FailsAndCleansUpWhenTheLegIsKnownAlready) {
  MediaLeg leg;
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(leg.Uuid(), boost::uuids::string_generator()(kUnusedUuid));
  EXPECT_EQ(leg.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("ERROR - Unable to fill in FSUUID - MSUUID table.\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}),
              ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(leg.Known());
  ExpectNothingLeft();
}

TEST_F(ChannelCreate, FailsAndCleansUpWhenTheSessionUuidIsTaken) {
  MediaLeg other, leg;
  ASSERT_EQ(other.Create(), SWITCH_STATUS_SUCCESS);
  boost::mt19937 known(17), twin(17);
  mod_globals->GetUuidGen() = ModGlobal::UuidGenerator(&known);
  const auto taken = boost::make_shared<MyMediaServerLostListener>(*mod_globals->GetMSTable());
  taken->SetUuid(ModGlobal::UuidGenerator(&twin)());
  ASSERT_TRUE(mod_globals->GetMSTable()->RegisterMediaSession(
      *mod_globals->GetMSTable()->GetMediaSession(other.MediaSession()), taken));

  EXPECT_EQ(leg.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("ERROR - Unable to register Media Session.\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}),
              ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(leg.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(other.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, TearsDownThePartnerTooWhenAReferencedCreationFails) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  servers_.Fail(ScriptedOperation::kCreateEndpoint);
  log_.Clear();
  EXPECT_EQ(b.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("Unable to create new network connection\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), ElementsAre(nothing_to_clean_up(b.Uuid())));
  EXPECT_FALSE(a.Known());
  EXPECT_FALSE(b.Known());
  ExpectNothingLeft();
  a.End();
}

TEST_F(ChannelCreate, FailsAndCleansUpWhenAReferencingLegIsKnownAlready) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.Set("media_session_uuid", a.Get("media_session_uuid").c_str());
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b.Uuid(), a.MediaSession());
  log_.Clear();
  EXPECT_EQ(b.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("Unable to register media session uuid\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}),
              ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(b.Known());
  EXPECT_TRUE(a.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelCreate, FailsAndCleansUpWhenTheSessionHoldsTheLegAlready) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  const NetworkConnectionSharedPtr planted = PlantNode(a, b.Uuid());
  b.Set("media_session_uuid", a.Get("media_session_uuid").c_str());
  log_.Clear();
  EXPECT_EQ(b.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("Unable to register new network connection\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), IsEmpty());
  EXPECT_FALSE(b.Known());
  EXPECT_TRUE(a.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
  ExpectNothingLeft();
}

}  // namespace
}  // namespace module_test
