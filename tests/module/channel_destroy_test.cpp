#include <boost/thread/lock_types.hpp>
#include <boost/uuid/string_generator.hpp>
#include <chrono>
#include <future>

#include "kelvaro/jsr309/network_connection.h"
#include "module/media_callbacks_fixture.h"
#include "support/event_capture.h"

namespace module_test {
namespace {

using test_support::error_line;
using test_support::EventCapture;
using test_support::LogLine;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const char kUnusedUuid[] = "0b2c6a3e-43f5-4f0c-9b1d-5e8a7c1d2f30";
const char* const kNeededVariables[] = {"sip_use_codec_rate", "advertised_media_ip", "remote_media_ip",
                                        "sip_use_codec_name"};

class ChannelDestroy : public MediaCallbacks {
 protected:
  std::vector<LogLine> DestroyLines() const { return LinesOf({"channel_destroy.cpp"}); }

  static void AskForReports(MediaLeg& leg) {
    leg.Set("generate_rtcp_report", "true");
    leg.Set("sip_use_codec_rate", "8000");
    leg.Set("advertised_media_ip", "192.0.2.1");
    leg.Set("remote_media_ip", "192.0.2.2");
    leg.Set("sip_use_codec_name", "PCMU");
    leg.Set("rtcpmon_start_time", "2024-01-31 23:59:58");
  }

  /// The record of the leg's media session.
  static kvx_media_server::FSMediaSessionSharedPtr RecordOf(const MediaLeg& leg) {
    return *mod_globals->GetMSTable()->GetFSMediaSession(leg.MediaSession());
  }

  void ExpectNothingLeft() const {
    EXPECT_EQ(MediaSessions(), 0u);
    EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
    EXPECT_EQ(servers_.OpenSessions(), 0u);
  }
};

using ChannelDestroyDeathTest = ChannelDestroy;

TEST_F(ChannelDestroyDeathTest, TakesNoNullArgument) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(channel_destroy(nullptr), "__null != mc");
}

TEST_F(ChannelDestroy, ClosesTheConnectionAndForgetsTheLeg) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  servers_.ForgetCalls();
  EXPECT_EQ(channel_destroy(leg.Connection()), SWITCH_STATUS_SUCCESS);

  EXPECT_EQ(leg.Connection()->private_info, leg.Session());
  EXPECT_FALSE(leg.Known());
  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kClose, ScriptedOperation::kReleaseSession));
  EXPECT_THAT(DestroyLines(), IsEmpty());
  ExpectNothingLeft();
}

TEST_F(ChannelDestroy, LeavesTheOtherLegOfTheSession) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(b.Known());
  EXPECT_TRUE(b.Node());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_SUCCESS);
  ExpectNothingLeft();
}

TEST_F(ChannelDestroy, FailsForALegThatWasDestroyedBefore) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  char expected[64];
  std::snprintf(expected, sizeof(expected), "Session already destroyed for mc %p\n",
                static_cast<void*>(leg.Connection()));
  log_.Clear();
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line(expected)));
}

TEST_F(ChannelDestroy, FailsForAnUnknownLeg) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  Forget(leg);
  log_.Clear();
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Could not find media session uuid from fs uuid " + leg.Uuid() +
                                                     " from FS table")));
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
}

TEST_F(ChannelDestroy, SucceedsWhenTheMediaSessionIsGoneAndKeepsTheMapping) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  mod_globals->GetMSTable()->EraseAllMSUuid();
  log_.Clear();
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(DestroyLines(), ElementsAre(nothing_to_clean_up(leg.Uuid())));
  EXPECT_TRUE(leg.Known());
}

TEST_F(ChannelDestroy, FailsWithoutAConnectionAndForgetsTheLegAllTheSame) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.Connection()->private_info = b.Session();
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b.Uuid(), a.MediaSession());
  log_.Clear();
  EXPECT_EQ(b.Destroy(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(b.Known());
  EXPECT_TRUE(a.Known());
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(ChannelDestroy, FailsWhenTheLegsPlaceHoldsNoConnection) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  leg.Node()->SetNetworkConnection({});
  log_.Clear();
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_FALSE(leg.Known());
}

TEST_F(ChannelDestroy, FetchesAndSendsNothingUnlessAskedTo) {
  for (const char* value : {"", "false", "perhaps"}) {
    EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
    MediaLeg leg;
    AskForReports(leg);
    leg.Set("generate_rtcp_report", value);
    ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
    EXPECT_THAT(servers_.Calls(ScriptedOperation::kGetRtcpStatsReport), IsEmpty()) << value;
    EXPECT_THAT(events.All(), IsEmpty()) << value;
  }
}

TEST_F(ChannelDestroy, SendsEachReportWithTheVariablesOfTheLeg) {
  EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
  kelvaro::jsr309::RtcpStatsReport first, second;
  first.rssRTPPacketsSent = 100;
  first.lssRTPPacketsSent = 101;
  second.rssRTPPacketsSent = 200;
  second.lssRTPPacketsSent = 201;
  servers_.AnswerReports({first, second});
  MediaLeg leg;
  AskForReports(leg);
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  servers_.ForgetCalls();
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);

  EXPECT_THAT(servers_.Operations(), ElementsAre(ScriptedOperation::kGetRtcpStatsReport, ScriptedOperation::kClose,
                                                 ScriptedOperation::kReleaseSession));
  const auto sent = events.All();
  ASSERT_THAT(sent, SizeIs(4));
  const char* const counts[] = {"100", "101", "200", "201"};
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(sent[i].Header("Sender-Packet-Count"), counts[i]);
    EXPECT_EQ(sent[i].Header("Unique-ID"), leg.Uuid());
    EXPECT_EQ(sent[i].Header("Local-Member-IP"), "192.0.2.1");
    EXPECT_EQ(sent[i].Header("Remote-Member-IP"), "192.0.2.2");
    EXPECT_EQ(sent[i].Header("Session-Start-Time"), "2024-01-31 23:59:58");
    EXPECT_EQ(sent[i].Header("Sip-Use-Codec"), "PCMU");
    EXPECT_EQ(sent[i].Header("Sip-Use-Codec-Rate"), "8000");
  }
  ExpectNothingLeft();
}

TEST_F(ChannelDestroy, ReadsTheCodecRateAsFarAsItIsANumber) {
  servers_.AnswerReports({kelvaro::jsr309::RtcpStatsReport()});
  const std::pair<const char*, const char*> rates[] = {{"16000Hz", "16000"}, {"fast", "0"}};
  for (const auto& [text, read] : rates) {
    EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
    MediaLeg leg;
    AskForReports(leg);
    leg.Set("generate_rtcp_report", "yes");
    leg.Set("sip_use_codec_rate", text);
    ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
    const auto sent = events.All();
    ASSERT_THAT(sent, SizeIs(2));
    EXPECT_EQ(sent[0].Header("Sip-Use-Codec-Rate"), read);
  }
}

TEST_F(ChannelDestroy, ClosesTheConnectionThoughTheReportsCannotBeFetched) {
  EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
  servers_.Fail(ScriptedOperation::kGetRtcpStatsReport);
  MediaLeg leg;
  AskForReports(leg);
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Failed to fetch RTCP statistics report\n")));
  EXPECT_THAT(events.All(), IsEmpty());
  ExpectNothingLeft();
}

TEST_F(ChannelDestroy, SendsNothingWhenOneOfFourVariablesIsMissing) {
  servers_.AnswerReports({kelvaro::jsr309::RtcpStatsReport()});
  for (const char* missing : kNeededVariables) {
    EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
    MediaLeg leg;
    AskForReports(leg);
    leg.Set(missing, nullptr);
    ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
    log_.Clear();
    EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS) << missing;
    EXPECT_THAT(DestroyLines(), ElementsAre(error_line(std::string(missing) + " variable is gone!\n")));
    EXPECT_THAT(events.All(), IsEmpty()) << missing;
    ExpectNothingLeft();
  }
}

TEST_F(ChannelDestroy, NamesOnlyTheFirstMissingVariable) {
  servers_.AnswerReports({kelvaro::jsr309::RtcpStatsReport()});
  for (size_t present = 0; present < std::size(kNeededVariables); ++present) {
    MediaLeg leg;
    AskForReports(leg);
    for (size_t i = present; i < std::size(kNeededVariables); ++i) leg.Set(kNeededVariables[i], nullptr);
    ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
    log_.Clear();
    EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
    EXPECT_THAT(DestroyLines(),
                ElementsAre(error_line(std::string(kNeededVariables[present]) + " variable is gone!\n")));
  }
}

TEST_F(ChannelDestroy, LeavesOutAStartTimeThatIsNotSet) {
  EventCapture events(SWITCH_EVENT_RECV_RTCP_MESSAGE);
  servers_.AnswerReports({kelvaro::jsr309::RtcpStatsReport()});
  MediaLeg leg;
  AskForReports(leg);
  leg.Set("rtcpmon_start_time", nullptr);
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(leg.Destroy(), SWITCH_STATUS_SUCCESS);
  const auto sent = events.All();
  ASSERT_THAT(sent, SizeIs(2));
  for (const auto& event : sent) {
    for (const auto& header : event.headers) EXPECT_NE(header.first, "Session-Start-Time");
  }
}

TEST_F(ChannelDestroy, WaitsForWhoeverWorksOnTheMediaSession) {
  MediaLeg leg;
  ASSERT_EQ(leg.Create(), SWITCH_STATUS_SUCCESS);
  const auto record = RecordOf(leg);
  boost::unique_lock<boost::recursive_mutex> busy(record->mutex_);
  auto destroyed = std::async(std::launch::async, [&] { return leg.Destroy(); });
  EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_TRUE(leg.Known());
  busy.unlock();
  EXPECT_EQ(destroyed.get(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(leg.Known());
}

// A bridge of the partner may move the leg into another session while its destruction waits.
TEST_F(ChannelDestroy, FollowsALegThatIsMovedMeanwhile) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  const auto record = RecordOf(b);
  boost::unique_lock<boost::recursive_mutex> busy(record->mutex_);
  auto destroyed = std::async(std::launch::async, [&] { return b.Destroy(); });
  EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  ASSERT_TRUE(mod_globals->GetMSTable()->MigrateNetworkConnection(b.MediaSession(), a.MediaSession(), b.Uuid()));
  Forget(b);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b.Uuid(), a.MediaSession());
  busy.unlock();

  EXPECT_EQ(destroyed.get(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(b.Known());
  EXPECT_THAT(servers_.OpenEndpoints(), SizeIs(1));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
}

class ObjectsCleanup : public ChannelDestroy {};

TEST_F(ObjectsCleanup, DoesNothingForNull) {
  objects_cleanup(nullptr);
  EXPECT_THAT(DestroyLines(), IsEmpty());
}

TEST_F(ObjectsCleanup, SaysThatAnUnknownLegCannotBeDestroyed) {
  objects_cleanup("no-such-leg");
  EXPECT_THAT(DestroyLines(), ElementsAre(nothing_to_clean_up("no-such-leg")));
}

TEST_F(ObjectsCleanup, TakesUuidsOfAnyLength) {
  const std::string uuid(200, 'x');
  objects_cleanup(uuid.c_str());
  EXPECT_THAT(DestroyLines(), ElementsAre(nothing_to_clean_up(uuid)));
}

TEST_F(ObjectsCleanup, ClosesTheLegAndItsPartner) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  const std::vector<unsigned> endpoints = servers_.OpenEndpoints();
  servers_.ForgetCalls();
  objects_cleanup(b.Uuid().c_str());

  EXPECT_FALSE(a.Known());
  EXPECT_FALSE(b.Known());
  const auto closed = servers_.Calls(ScriptedOperation::kClose);
  ASSERT_THAT(closed, SizeIs(2));
  EXPECT_EQ(closed[0].endpoint, endpoints[1]);
  EXPECT_EQ(closed[1].endpoint, endpoints[0]);
  EXPECT_THAT(DestroyLines(), IsEmpty());
  ExpectNothingLeft();
  a.End();  // would wait for ever if one of the two were still locked
  b.End();
}

TEST_F(ObjectsCleanup, ClosesThePartnerThoughTheLegItselfIsUnknown) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  objects_cleanup(b.Uuid().c_str());
  EXPECT_FALSE(a.Known());
  EXPECT_THAT(DestroyLines(), ElementsAre(nothing_to_clean_up(b.Uuid())));
  ExpectNothingLeft();
}

TEST_F(ObjectsCleanup, ForgetsALegWhoseMediaSessionIsGoneAndGoesOnWithThePartner) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b.Uuid(), boost::uuids::string_generator()(kUnusedUuid));
  objects_cleanup(b.Uuid().c_str());
  EXPECT_FALSE(b.Known());
  EXPECT_FALSE(a.Known());
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  ExpectNothingLeft();
}

TEST_F(ObjectsCleanup, ForgetsALegWithoutConnection) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(b.Uuid(), a.MediaSession());
  objects_cleanup(b.Uuid().c_str());
  EXPECT_FALSE(b.Known());
  EXPECT_TRUE(a.Known());
  EXPECT_THAT(DestroyLines(), ElementsAre(error_line("Networkconnection not found. Nothing to destroy.\n")));
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
}

// A leg that is hanging up is no longer found, and so neither is its partner.
TEST_F(ObjectsCleanup, LeavesThePartnerOfALegThatIsHangingUp) {
  MediaLeg a, b;
  ASSERT_EQ(a.Create(), SWITCH_STATUS_SUCCESS);
  b.BondWith(a);
  ASSERT_EQ(b.Create(), SWITCH_STATUS_SUCCESS);
  switch_channel_hangup(b.Channel(), SWITCH_CAUSE_NORMAL_CLEARING);
  objects_cleanup(b.Uuid().c_str());
  EXPECT_FALSE(b.Known());
  EXPECT_TRUE(a.Known());
  EXPECT_EQ(a.Destroy(), SWITCH_STATUS_SUCCESS);
}

}  // namespace
}  // namespace module_test
