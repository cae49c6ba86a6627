// What connections ask of their media server, and what becomes of it when the server does not answer.
#include "library_fixture.h"

#include <future>

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class Requests : public LibraryTest {
 protected:
  void Begin(const ScriptedOptions& options = {}) {
    Start(options);
    session_ = NewSession();
    connection_ = NewConnection(session_);
    servers().ForgetCalls();
  }

  MediaSessionSharedPtr session_;
  NetworkConnectionSharedPtr connection_;
};

TEST_F(Requests, ReachTheServerWithTheCallersRecord) {
  Begin();
  MediaConfig offer;
  offer.AddCodec("PCMA", 8, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  ASSERT_TRUE(connection_->GetLocalOffer(offer));
  MediaConfig answer;
  answer.SetIPAddress("192.0.2.7");
  ASSERT_TRUE(connection_->SetRemoteAnswer(answer));
  ASSERT_TRUE(connection_->SetRemoteAddressDetection());
  const auto calls = servers().Calls();
  ASSERT_THAT(calls, SizeIs(3));
  EXPECT_EQ(calls[0].operation, Operation::kGetLocalOffer);
  EXPECT_THAT(calls[0].config->GetCodecs(), SizeIs(1));
  EXPECT_EQ(calls[0].config->GetIPAddress(), nullptr);
  EXPECT_EQ(calls[1].operation, Operation::kSetRemoteAnswer);
  EXPECT_STREQ(calls[1].config->GetIPAddress(), "192.0.2.7");
  EXPECT_EQ(calls[2].operation, Operation::kSetRemoteAddressDetection);
}

TEST_F(Requests, FillInWhatTheServerChose) {
  ScriptedOptions options;
  options.public_address = "203.0.113.7";
  Begin(options);
  MediaConfig config;
  ASSERT_TRUE(connection_->GetLocalOffer(config));
  EXPECT_EQ(config.GetIPAddress(), servers().Address());
  EXPECT_STREQ(config.GetPublicIPAddress(), "203.0.113.7");
  EXPECT_EQ(config.GetRtpPort(), servers().PortOf(1));
  EXPECT_EQ(config.GetRtcpPort(), servers().PortOf(1) + 1);
}

TEST_F(Requests, LeaveTheRecordAloneWhenRefused) {
  Begin();
  for (const Operation operation : {Operation::kGetLocalOffer, Operation::kGetLocalAnswer}) servers().Fail(operation);
  MediaConfig config;
  EXPECT_FALSE(connection_->GetLocalOffer(config));
  EXPECT_FALSE(connection_->GetLocalAnswer(config));
  EXPECT_EQ(config.GetIPAddress(), nullptr);
  EXPECT_EQ(config.GetRtpPort(), 0);
}

TEST_F(Requests, TakeTheLocalAnswerBeforeAndAfterTheRemoteOffer) {
  Begin();
  MediaConfig config, offer;
  EXPECT_TRUE(connection_->GetLocalAnswer(config));
  EXPECT_TRUE(connection_->SetRemoteOffer(offer));
  EXPECT_TRUE(connection_->GetLocalAnswer(config));
}

TEST_F(Requests, FailWhenTheServerDoesNotAnswerInTime) {
  ScriptedOptions options;
  options.request_timeout_ms = 50;
  Begin(options);
  servers().Hold(Operation::kGetLocalOffer);
  MediaConfig config;
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_FALSE(connection_->GetLocalOffer(config));
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));
  EXPECT_EQ(config.GetRtpPort(), 0);
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "did not make a local offer"));
}

TEST_F(Requests, DoNotHoldUpOneAnother) {
  ScriptedOptions options;
  options.request_timeout_ms = 60000;
  Begin(options);
  const auto other = NewConnection(session_);
  servers().Hold(Operation::kSetRemoteOffer);
  auto stuck = std::async(std::launch::async, [&] { return connection_->SetRemoteOffer(MediaConfig()); });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kSetRemoteOffer));
  MediaConfig config;
  EXPECT_TRUE(other->GetLocalOffer(config));
  EXPECT_TRUE(connection_->GetLocalAnswer(config));
  EXPECT_NE(NewSession(), nullptr);
  JSR309Stats stats;
  EXPECT_TRUE(factory().GetStats(stats));
  servers().Resume(Operation::kSetRemoteOffer);
  EXPECT_TRUE(stuck.get());
}

TEST_F(Requests, SurviveTheEndOfTheirConnection) {
  ScriptedOptions options;
  options.request_timeout_ms = 60000;
  Begin(options);
  servers().Hold(Operation::kGetLocalOffer);
  auto stuck = std::async(std::launch::async, [&, connection = connection_.get()] {
    MediaConfig config;
    return connection->GetLocalOffer(config);
  });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kGetLocalOffer));
  connection_->Close();
  session_.reset();
  servers().Resume(Operation::kGetLocalOffer);
  EXPECT_FALSE(stuck.get());
}

TEST_F(Requests, GiveNoImageStreamWhereThereIsNone) {
  Begin();
  MediaConfig local, remote;
  EXPECT_FALSE(connection_->GetLocalImageConfig(local));
  EXPECT_FALSE(connection_->GetRemoteImageConfig(remote));
  for (const MediaConfig& config : {local, remote}) {
    EXPECT_EQ(config.GetRtpPort(), 0);
    EXPECT_EQ(config.GetIPAddress(), nullptr);
  }
  // and the other leg's record takes it as it is
  MediaConfig answer;
  answer.SetUdpPassThruPeerRemotePort(remote.GetRtpPort());
  answer.SetUdpPassThruPeerRemoteIPAddress(remote.GetIPAddress());
  answer.SetUdpPassThruPeerLocalPort(local.GetRtpPort());
  answer.SetUdpPassThruPeerLocalIPAddress(local.GetIPAddress());
  EXPECT_TRUE(connection_->SetRemoteAnswer(answer));
}

TEST_F(Requests, GiveTheImageStreamsOfTheServer) {
  Begin();
  servers().Answer(Operation::kGetLocalImageConfig, [](MediaConfig& config) { config.SetRtpPort(20000); });
  servers().Answer(Operation::kGetRemoteImageConfig, [](MediaConfig& config) { config.SetRtpPort(30000); });
  MediaConfig local, remote;
  EXPECT_TRUE(connection_->GetLocalImageConfig(local));
  EXPECT_TRUE(connection_->GetRemoteImageConfig(remote));
  EXPECT_EQ(local.GetRtpPort(), 20000);
  EXPECT_EQ(remote.GetRtpPort(), 30000);
}

TEST_F(Requests, GiveStatisticsUntilClose) {
  Begin();
  RtcpStatsReport report;
  report.lssRTPPacketsSent = 5;
  servers().AnswerReports({report});
  std::vector<RtcpStatsReport> reports(3);
  ASSERT_TRUE(connection_->GetRtcpStatsReport(reports));
  ASSERT_THAT(reports, SizeIs(1));
  EXPECT_EQ(reports[0].lssRTPPacketsSent, 5u);
  connection_->Close();
  EXPECT_FALSE(connection_->GetRtcpStatsReport(reports));
  EXPECT_THAT(reports, SizeIs(1));
}

TEST_F(Requests, GiveNoStatisticsAndSucceedWhenNoRtpWasSeen) {
  Begin();
  std::vector<RtcpStatsReport> reports(1);
  EXPECT_TRUE(connection_->GetRtcpStatsReport(reports));
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(Requests, NameTheConnectionInTheLogAsTheCallerWants) {
  Begin();
  const NetworkConnectionSharedPtr named(session_->CreateNetworkConnection("leg-a"));
  servers().Fail(Operation::kSetRemoteOffer);
  EXPECT_FALSE(named->SetRemoteOffer(MediaConfig()));
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "leg-a - The media server did not take the remote offer"));
}

}  // namespace
