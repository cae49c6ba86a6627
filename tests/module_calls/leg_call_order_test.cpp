#include <switch.h>

#include "call_order_fixture.h"

namespace module_calls {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What a clean-up asks of both legs' connections.
const Calls kBothCleanedUp = {"RemoveListener(leg)", "Close(leg)", "RemoveListener(peer)", "Close(peer)"};

class LegCallOrder : public CallOrder {
 protected:
  LegCallOrder() {
    mod_globals->GetMSCtrlFtry()->make = [] { return new RecordingSession; };
  }
  ~LegCallOrder() override { mod_globals->GetMSCtrlFtry()->make = nullptr; }

  switch_status_t Create(BareLeg& leg) { return channel_create(leg.Mc(), leg.Session()); }
  switch_status_t GetMedia(switch_sdp_negotiation_state_t state) {
    char address[64];
    switch_port_t port = 0;
    calls().clear();
    const switch_status_t status =
        channel_get_media(leg_.Mc(), nullptr, 0, nullptr, SWITCH_FALSE, 0, 101, 0, address, sizeof(address), &port,
                          nullptr, SWITCH_FALSE, state, 0, 0, 64, 0, SWITCH_FALSE, SWITCH_FALSE, 0, SWITCH_FALSE, 0);
    KeepFrom("GetLocal");
    return status;
  }
  switch_status_t SetMedia(switch_sdp_negotiation_state_t state, switch_bool_t passthru) {
    calls().clear();
    const switch_status_t status =
        channel_set_media(leg_.Mc(), "192.0.2.5", 4000, 0, "call", nullptr, 0, 101, 0, nullptr, passthru, state,
                          SWITCH_FALSE, SWITCH_FALSE, SWITCH_FALSE);
    KeepFrom("SetRemote");
    return status;
  }
  /// What was asked before the call of that name is another test's concern.
  static void KeepFrom(const std::string& name) {
    Calls& made = calls();
    while (!made.empty() && made.front().compare(0, name.size(), name) != 0) made.erase(made.begin());
  }
};

TEST_F(LegCallOrder, OfCreationWithoutReference) {
  BareLeg leg;
  EXPECT_EQ(Create(leg), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("CreateMediaSession()", "AddListener(session)", "CreateNetworkConnection(null)",
                                   "AddListener(new)"));
}

TEST_F(LegCallOrder, OfCreationInANamedSession) {
  BareLeg leg;
  leg.Set("media_session_uuid", kvx_media_server::uuid_to_text(media_session_).c_str());
  EXPECT_EQ(Create(leg), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("CreateNetworkConnection(null)", "AddListener(new)"));
}

TEST_F(LegCallOrder, OfCreationBesideThePartner) {
  BareLeg leg;
  leg.BondWith(leg_);
  EXPECT_EQ(Create(leg), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("CreateNetworkConnection(null)", "AddListener(new)"));
}

TEST_F(LegCallOrder, OfCreationWithoutSession) {
  mod_globals->GetMSCtrlFtry()->make = nullptr;
  BareLeg leg;
  EXPECT_EQ(Create(leg), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("CreateMediaSession()"));
}

TEST_F(LegCallOrder, OfCreationWithoutConnection) {
  mod_globals->GetMSCtrlFtry()->make = [] {
    auto* session = new RecordingSession;
    session->refuses = "CreateNetworkConnection";
    return session;
  };
  BareLeg leg;
  EXPECT_EQ(Create(leg), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("CreateMediaSession()", "AddListener(session)", "CreateNetworkConnection(null)"));
}

TEST_F(LegCallOrder, OfCreationBesideThePartnerWithoutConnection) {
  session_->refuses = "CreateNetworkConnection";
  BareLeg leg;
  leg.BondWith(leg_);
  EXPECT_EQ(Create(leg), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("CreateNetworkConnection(null)", "RemoveListener(leg)", "Close(leg)"));
}

TEST_F(LegCallOrder, OfBridgeInEachDirection) {
  for (const int direction : {RTPDIR_DUPLEX, RTPDIR_RECEIVE, RTPDIR_SEND, RTPDIR_INACTIVE}) {
    calls().clear();
    EXPECT_EQ(channel_bridge(leg_.Mc(), static_cast<RTPDirection>(direction)), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(calls(), Calls{"Join(" + std::to_string(direction) + ", peer)"});
  }
}

TEST_F(LegCallOrder, OfBridgeThatIsRefused) {
  leg_.Connection().refuses = "Join";
  EXPECT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_FALSE);
  EXPECT_EQ(calls(), Calls{"Join(0, peer)"} + kBothCleanedUp);
}

TEST_F(LegCallOrder, OfUnbridge) {
  ASSERT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_SUCCESS);
  for (const char* refused : {"Unjoin", ""}) {
    leg_.Connection().refuses = refused;
    calls().clear();
    EXPECT_EQ(channel_unbridge(leg_.Mc()), SWITCH_STATUS_SUCCESS);
    EXPECT_THAT(calls(), ElementsAre("Unjoin(peer)"));
    ASSERT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_SUCCESS);
  }
}

// The join goes through the handle that the partner had, its end through the one that it has since.
TEST_F(LegCallOrder, OfBridgeAndUnbridgeAfterATransfer) {
  RecordedLeg transferred(Register(boost::make_shared<RecordingSession>()), "transferred");
  leg_.BondWith(transferred);
  calls().clear();
  EXPECT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("ImportNetworkConnection(transferred)", "Join(0, transferred)"));
  calls().clear();
  EXPECT_EQ(channel_unbridge(leg_.Mc()), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("Unjoin(transferred imported)"));
}

TEST_F(LegCallOrder, OfMigrationThatIsRefused) {
  RecordedLeg transferred(Register(boost::make_shared<RecordingSession>()), "transferred");
  leg_.BondWith(transferred);
  session_->refuses = "ImportNetworkConnection";
  calls().clear();
  EXPECT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("ImportNetworkConnection(transferred)", "RemoveListener(leg)", "Close(leg)",
                                   "RemoveListener(transferred)", "Close(transferred)"));
}

TEST_F(LegCallOrder, OfBridgeAfterATransferThatIsRefused) {
  RecordedLeg transferred(Register(boost::make_shared<RecordingSession>()), "transferred");
  leg_.BondWith(transferred);
  leg_.Connection().refuses = "Join";
  calls().clear();
  EXPECT_EQ(channel_bridge(leg_.Mc(), RTPDIR_DUPLEX), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(),
              ElementsAre("ImportNetworkConnection(transferred)", "Join(0, transferred)", "RemoveListener(leg)",
                          "Close(leg)", "RemoveListener(transferred imported)", "Close(transferred imported)"));
}

TEST_F(LegCallOrder, OfLocalOfferThatIsRefused) {
  leg_.Connection().refuses = "GetLocalOffer";
  EXPECT_EQ(GetMedia(SWITCH_SDP_STATE_UNKNOWN), SWITCH_STATUS_FALSE);
  EXPECT_EQ(calls(), Calls{"GetLocalOffer()"} + kBothCleanedUp);
}

TEST_F(LegCallOrder, OfLocalAnswerThatIsRefused) {
  leg_.Connection().refuses = "GetLocalAnswer";
  EXPECT_EQ(GetMedia(SWITCH_SDP_OFFER_RECEIVED), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("GetLocalAnswer()"));
}

TEST_F(LegCallOrder, OfRemoteOfferThatIsRefused) {
  leg_.Connection().refuses = "SetRemoteOffer";
  EXPECT_EQ(SetMedia(SWITCH_SDP_OFFER_RECEIVED, SWITCH_FALSE), SWITCH_STATUS_FALSE);
  EXPECT_EQ(calls(), Calls{"SetRemoteOffer()"} + kBothCleanedUp);
}

TEST_F(LegCallOrder, OfRemoteAnswerThatIsRefused) {
  leg_.Connection().refuses = "SetRemoteAnswer";
  EXPECT_EQ(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, SWITCH_FALSE), SWITCH_STATUS_FALSE);
  EXPECT_EQ(calls(), Calls{"SetRemoteAnswer()"} + kBothCleanedUp);
}

TEST_F(LegCallOrder, OfImageAnswerThatIsRefused) {
  leg_.Connection().refuses = "SetRemoteAnswer";
  EXPECT_EQ(SetMedia(SWITCH_SDP_ANSWER_RECEIVED, SWITCH_TRUE), SWITCH_STATUS_FALSE);
  EXPECT_THAT(calls(), ElementsAre("SetRemoteAnswer()"));
}

TEST_F(LegCallOrder, OfDestruction) {
  EXPECT_EQ(channel_destroy(leg_.Mc()), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("RemoveListener(leg)", "Close(leg)"));
}

TEST_F(LegCallOrder, OfDestructionWithReports) {
  leg_.Set("generate_rtcp_report", "true");
  EXPECT_EQ(channel_destroy(leg_.Mc()), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("GetRtcpStatsReport()", "RemoveListener(leg)", "Close(leg)"));
}

TEST_F(LegCallOrder, OfCleanUp) {
  objects_cleanup(leg_.Uuid().c_str());
  EXPECT_EQ(calls(), kBothCleanedUp);
  calls().clear();
  objects_cleanup(leg_.Uuid().c_str());
  EXPECT_THAT(calls(), IsEmpty());
}

}  // namespace
}  // namespace module_calls
