#include "faults.h"
#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using module_faults::Fault;
using test_support::error_line;
using test_support::ScriptedOperation;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CreationFault : public MediaCallbacks {
 protected:
  std::vector<test_support::LogLine> CreateLines() const { return LinesOf({"channel_create.cpp"}); }

  void ExpectNothingLeft() const {
    EXPECT_EQ(MediaSessions(), 0u);
    EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
    EXPECT_EQ(servers_.OpenSessions(), 0u);
  }

  MediaLeg leg_;
};

// Only a session that has lost its server refuses a listener; it then refuses a connection too.
TEST_F(CreationFault, GoesOnWhenTheMediaSessionTakesNoListener) {
  const Fault lost("AddListener", [this] {
    servers_.Lose();
    return true;
  });
  EXPECT_EQ(leg_.Create(), SWITCH_STATUS_FALSE);
  const auto lines = CreateLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], error_line("Unable to add MediaServerLostListener\n"));
  EXPECT_EQ(lines.back(), error_line("Unable to create new network connection for switch session " + leg_.Uuid()));
  EXPECT_FALSE(leg_.Known());
  ExpectNothingLeft();
}

TEST_F(CreationFault, CleansUpWhenTheSessionVanishesBeforeItsConnectionIsRegistered) {
  const Fault erased("RegisterNetworkConnection", [] { return mod_globals->GetMSTable()->EraseAllMSUuid(); });
  EXPECT_EQ(leg_.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("ERROR - Unable to register Network Connection.\n"));
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}),
              ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(leg_.Known());
  EXPECT_EQ(leg_.Get("media_session_uuid"), "");
  ExpectNothingLeft();
}

TEST_F(CreationFault, CleansUpBothWhenThePartnersSessionVanishesMeanwhile) {
  MediaLeg partner;
  ASSERT_EQ(partner.Create(), SWITCH_STATUS_SUCCESS);
  leg_.BondWith(partner);
  log_.Clear();
  const Fault erased("RegisterNetworkConnection", [] { return mod_globals->GetMSTable()->EraseAllMSUuid(); });
  EXPECT_EQ(leg_.Create(), SWITCH_STATUS_FALSE);
  EXPECT_EQ(CreateLines().back(), error_line("Unable to register new network connection\n"));
  const auto nothing = error_line("Networkconnection not found. Nothing to destroy.\n");
  EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), ElementsAre(nothing, nothing));
  EXPECT_FALSE(leg_.Known());
  EXPECT_FALSE(partner.Known());
  ExpectNothingLeft();
}

// The leg only goes without the RTP timeout.
TEST_F(CreationFault, SucceedsWhenTheConnectionTakesNoListener) {
  const Fault lost("RegisterNetworkConnection", [this] {
    servers_.Lose();
    return true;
  });
  EXPECT_EQ(leg_.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(leg_.Known());
  EXPECT_TRUE(leg_.Node());
  for (const auto& line : CreateLines()) EXPECT_EQ(line.level, SWITCH_LOG_DEBUG);
  EXPECT_EQ(leg_.Destroy(), SWITCH_STATUS_SUCCESS);
  ExpectNothingLeft();
}

TEST_F(CreationFault, GivesALegItsOwnSessionBesideAPartnerWithoutMediaConnection) {
  MediaLeg partner;
  ASSERT_EQ(partner.Create(), SWITCH_STATUS_SUCCESS);
  leg_.BondWith(partner);
  switch_media_connection_t* const own = leg_.Connection();
  {
    const Fault none("switch_core_session_get_media_connection", [] { return false; });
    EXPECT_EQ(channel_create(own, leg_.Session()), SWITCH_STATUS_SUCCESS);
  }
  EXPECT_NE(leg_.MediaSession(), partner.MediaSession());
  EXPECT_EQ(leg_.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(partner.Destroy(), SWITCH_STATUS_SUCCESS);
}

class NullChannelDeathTest : public MediaCallbacks {
 protected:
  NullChannelDeathTest() {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    leg_.Create();
  }

  static Fault NoChannel() {
    return Fault("switch_core_session_get_channel", [] { return false; });
  }

  MediaLeg leg_;
};

TEST_F(NullChannelDeathTest, EndsADestruction) {
  const Fault none = NoChannel();
  EXPECT_DEATH(leg_.Destroy(), "channel_destroy.*chan != __null");
}

TEST_F(NullChannelDeathTest, EndsALocalDescription) {
  const Fault none = NoChannel();
  LocalMedia media;
  EXPECT_DEATH(leg_.GetMedia(media), "channel_get_media.*chan != __null");
}

TEST_F(NullChannelDeathTest, EndsARemoteDescription) {
  const Fault none = NoChannel();
  EXPECT_DEATH(leg_.SetMedia({}), "channel_set_media.*chan != __null");
}

TEST(NoMemoryDeathTest, EndsTheReadingOfAnAmrFormat) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const Fault none("strdup", [] { return false; });
  EXPECT_DEATH(amr_codec_is_octet_align("octet-align=1"), "amr_codec_is_octet_align.*fmtp_dup");
}

}  // namespace
}  // namespace module_test
