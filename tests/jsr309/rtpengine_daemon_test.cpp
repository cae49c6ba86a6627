// What rtpengine daemons have to do beside the contract (contract_*_test.cpp): nothing of ours stays on them, whatever
// happens to them.
#include "rtpengine_fixture.h"

#include <atomic>
#include <thread>

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::EmbeddedOptions;
using test_support::RecordingLostListener;
using test_support::RecordingRtpTimeoutListener;
using test_support::RtpengineDaemon;
using testing::ElementsAre;
using testing::HasSubstr;

class RtpengineDaemons : public test_support::RtpengineTest {
 protected:
  static Leg LegWith(const SessionPtr& session, const char* codec, int payload_type, std::uint8_t events) {
    Leg leg;
    leg.connection = NewConnection(session);
    MediaConfig remote = RemoteOf(leg, codec, payload_type);
    AddCodec(leg.local, codec, payload_type);
    for (MediaConfig* config : {&leg.local, &remote}) {
      config->SetRfc2833Flag(true);
      config->SetRfc2833Payload(events);
    }
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
    return leg;
  }
};

TEST_F(RtpengineDaemons, HaveNoCallOfOursOnceItIsClosedReleasedOrStopped) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  auto session = NewSession();
  Leg a = NewLeg(session), b = NewLeg(session), c = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_EQ(CallsOn(daemon), 3u);
  a.connection->Close();
  EXPECT_EQ(CallsOn(daemon), 2u);
  b.connection.reset();
  EXPECT_TRUE(Eventually([&] { return CallsOn(daemon) == 1; }));
  MediaConfig renewed;
  AddCodec(renewed);
  renewed.SetAutoLocalPortRenew(true);
  ASSERT_TRUE(c.connection->GetLocalAnswer(renewed));
  EXPECT_EQ(CallsOn(daemon), 1u);
  factory().Stop();
  EXPECT_EQ(CallsOn(daemon), 0u);
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
}

TEST_F(RtpengineDaemons, ThatAreNotThereYetTakeSessionsWhenTheyAre) {
  RtpengineDaemon daemon;
  daemon.Kill();
  EmbeddedOptions options = At(daemon);
  options.request_timeout_ms = 500;
  Start(options);
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_FALSE(NewSession());
  daemon.Start();
  EXPECT_TRUE(Eventually([&] { return factory().IsMediaServerAvailable(); }));
  EXPECT_TRUE(Eventually([&] { return NewSession() != nullptr; }));
}

TEST_F(RtpengineDaemons, ThatWereRestartedAreLostAndBackWithNothingOfBefore) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  const auto listener = boost::make_shared<RecordingLostListener>();
  ASSERT_TRUE(session->AddListener(listener));
  const Leg a = NewLeg(session);
  daemon.Kill();
  daemon.Start();
  ASSERT_TRUE(listener->WaitForEvents(1, seconds(30)));
  MediaConfig local;
  AddCodec(local);
  EXPECT_FALSE(a.connection->GetLocalOffer(local));
  ASSERT_TRUE(Eventually([&] { return factory().IsMediaServerAvailable(); }));
  const Leg b = NewLeg(NewSession());
  EXPECT_FALSE(a.connection->GetLocalOffer(local));
  EXPECT_EQ(listener->Events().size(), 1u);
}

TEST_F(RtpengineDaemons, ThatWereOutOfReachAreRidOfWhatWasLostMeanwhile) {
  RtpengineDaemon daemon;
  EmbeddedOptions options = At(daemon);
  options.heartbeat_ms = "1000";
  Start(options);
  const auto session = NewSession();
  const auto listener = boost::make_shared<RecordingLostListener>();
  ASSERT_TRUE(session->AddListener(listener));
  const Leg a = NewLeg(session), b = NewLeg(session);
  EXPECT_EQ(CallsOn(daemon), 2u);
  Suspend(daemon);
  ASSERT_TRUE(listener->WaitForEvents(1, seconds(30)));
  Resume(daemon);
  EXPECT_TRUE(Eventually([&] { return CallsOn(daemon) == 0; }));
  EXPECT_TRUE(Eventually([&] { return factory().IsMediaServerAvailable(); }));
}

TEST_F(RtpengineDaemons, ThatHangHoldUpNoCallForLongerThanARequestMayTakeAndNoDestructorAtAll) {
  RtpengineDaemon daemon, other;
  EmbeddedOptions options = At(daemon);
  options.addresses.push_back(other.Address());
  options.extras.push_back("<control>" + other.Address() + ":" + std::to_string(other.ControlPort()) + "</control>");
  options.heartbeat_ms = "600000";  // not noticed
  options.request_timeout_ms = 1000;
  Start(options);
  auto here = NewSession();
  const auto there = NewSession();
  Leg a = NewLeg(here), b = NewLeg(here);
  ASSERT_EQ(a.local.GetIPAddress(), daemon.Address());
  Suspend(daemon);
  const auto took = [](auto action) {
    const auto begun = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - begun;
  };
  MediaConfig local;
  AddCodec(local);
  constexpr milliseconds kLong{4000}, kAtOnce{900};
  EXPECT_LT(took([&] { EXPECT_FALSE(a.connection->GetLocalOffer(local)); }), kLong);
  EXPECT_LT(took([&] { EXPECT_FALSE(Join(a, b)); }), kLong);
  const Leg safe = NewLeg(there);
  EXPECT_EQ(safe.local.GetIPAddress(), other.Address());
  ConnectionPtr imported;
  EXPECT_LT(took([&] { imported.reset(there->ImportNetworkConnection(a.connection)); }), kAtOnce);
  EXPECT_LT(took([&] { a.connection.reset(), imported.reset(), b.connection.reset(), here.reset(); }), kAtOnce);
  Resume(daemon);
  EXPECT_TRUE(Eventually([&] { return CallsOn(daemon) == 0; }));
}

TEST_F(RtpengineDaemons, KeepALearnedFarEndThroughNewDescriptionsAndJoins) {
  RtpengineDaemon daemon(Learning());
  Start(At(daemon));
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session), c = NewLeg(session);
  ASSERT_TRUE(a.connection->SetRemoteAddressDetection());
  ASSERT_TRUE(Join(a, b));
  const Leg moved{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  const Leg stranger{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  EXPECT_TRUE(Flows(moved, b, 1));
  ASSERT_TRUE(a.connection->SetRemoteAddressDetection());
  ASSERT_TRUE(a.connection->SetRemoteOffer(RemoteOf(a)));
  ASSERT_TRUE(Join(a, c));
  stranger.Send(2);
  EXPECT_FALSE(c.Receive(150));
  EXPECT_TRUE(Flows(moved, c, 3));
  EXPECT_TRUE(Flows(c, moved, 4));
}

// There is no clock to hand to a daemon: this takes its twelve seconds.
TEST_F(RtpengineDaemons, LookForAFarEndThatKeepsQuietForTenSecondsAndAgainWithTheNextJoin) {
  RtpengineDaemon daemon(Learning());
  Start(At(daemon));
  const auto session = NewSession();
  const Leg a = NewLeg(session), b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  ASSERT_TRUE(a.connection->SetRemoteAddressDetection());
  const Leg moved{a.connection, std::make_shared<test_support::UdpSocket>(), a.local};
  std::this_thread::sleep_for(seconds(12));
  moved.Send(1);
  EXPECT_FALSE(b.Receive(150));
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(moved, b, 2));
  EXPECT_TRUE(Flows(b, moved, 3));
}

TEST_F(RtpengineDaemons, CarryCodecsTheyDoNotEncodeUnderOnePayloadTypeOnly) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  const Leg a = LegWith(session, "AMR", 96, 101), b = LegWith(session, "AMR", 96, 101);
  const Leg c = LegWith(session, "AMR", 104, 101);
  ASSERT_TRUE(Join(a, b));
  a.Send(1, 96);
  EXPECT_EQ(b.Receive().value().payload_type, 96);
  a.Send(2, 101);
  EXPECT_EQ(b.Receive().value().payload_type, 101);
  EXPECT_FALSE(Join(a, c));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           "Refused join: AMR/8000 octet-align=0 under payload types 96 and 104 cannot be carried"));
}

TEST_F(RtpengineDaemons, ConvertG711BothWays) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  const Leg a = LegWith(session, "PCMU", 0, 101), b = LegWith(session, "PCMA", 8, 97);
  ASSERT_TRUE(Join(a, b));
  const auto silence = [](const Leg& from, std::uint16_t number, std::uint8_t type, std::uint8_t octet) {
    const test_support::RtpPacket packet{false, type, number, 160u * number, 7, std::vector<std::uint8_t>(160, octet)};
    return from.far_end->SendTo(from.target(), test_support::serialise_rtp(packet));
  };
  ASSERT_TRUE(silence(a, 1, 0, 0xff));
  const auto at_b = b.Receive();
  ASSERT_TRUE(at_b);
  EXPECT_EQ(at_b->payload_type, 8);
  EXPECT_THAT(at_b->payload, testing::AllOf(testing::SizeIs(160), testing::Each(0xd5)));
  ASSERT_TRUE(silence(b, 1, 8, 0xd5));
  const auto at_a = a.Receive();
  ASSERT_TRUE(at_a);
  EXPECT_EQ(at_a->payload_type, 0);
  EXPECT_EQ(at_a->payload.size(), 160u);
}

TEST_F(RtpengineDaemons, TellSilencesOnlyOfFarEndsThatAreExpectedToSpeak) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  struct WatchedLeg : Leg {
    boost::shared_ptr<RecordingRtpTimeoutListener> listener = boost::make_shared<RecordingRtpTimeoutListener>();
  };
  const auto watch = [&] {
    WatchedLeg leg;
    leg.connection = NewConnection(session);
    EXPECT_TRUE(leg.connection->AddListener(leg.listener));
    AddCodec(leg.local);
    leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, 2);
    leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 2);
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(RemoteOf(leg)));
    return leg;
  };
  const WatchedLeg a = watch(), b = watch();
  ASSERT_TRUE(Join(a, b, kReceive));
  a.Send(1);
  ASSERT_TRUE(a.listener->WaitForEvents(1, seconds(30)));
  EXPECT_TRUE(a.listener->Events()[0].active_);
  EXPECT_EQ(b.listener->Events().size(), 0u);
  // Once per silence; the next begins with the change of direction, and is the other's.
  ASSERT_TRUE(Join(a, b, kSend));
  ASSERT_TRUE(b.listener->WaitForEvents(1, seconds(30)));
  EXPECT_FALSE(b.listener->Events()[0].active_);
  EXPECT_EQ(a.listener->Events().size(), 1u);
}

TEST_F(RtpengineDaemons, TellTheSilenceOfACallThatWasEndedByAnotherHand) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  Leg leg;
  leg.connection = NewConnection(session);
  ASSERT_TRUE(leg.connection->AddListener(listener));
  AddCodec(leg.local);
  leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 2);
  ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  ASSERT_TRUE(leg.connection->SetRemoteAnswer(RemoteOf(leg)));
  EndCallsOn(daemon);
  ASSERT_EQ(CallsOn(daemon), 0u);
  ASSERT_TRUE(listener->WaitForEvents(1, seconds(30)));
  EXPECT_FALSE(listener->Events()[0].active_);
  EXPECT_TRUE(factory().IsMediaServerAvailable());
}

TEST_F(RtpengineDaemons, TakeTwoHundredCallsAtOnceFromManyThreadsEvenlyAndLetThemSpeak) {
  constexpr int kThreads = 8, kCallsEach = 25;
  RtpengineDaemon one, other;
  EmbeddedOptions options = At(one);
  options.addresses.push_back(other.Address());
  options.extras.push_back("<control>" + other.Address() + ":" + std::to_string(other.ControlPort()) + "</control>");
  options.request_timeout_ms = 30000;
  Start(options);
  struct Call {
    SessionPtr session;
    Leg a, b;
  };
  std::vector<std::vector<Call>> calls(kThreads);
  std::atomic<int> spoken{0};
  std::vector<std::thread> threads;
  for (std::vector<Call>& own : calls) {
    threads.emplace_back([&own, &spoken, this] {
      for (int i = 0; i < kCallsEach; ++i) {
        const auto session = NewSession();
        if (!session) continue;
        Call call{session, NewLeg(session), NewLeg(session)};
        call.a.far_rtcp.reset();  // a thousand descriptors have to do
        call.b.far_rtcp.reset();
        if (Join(call.a, call.b) && Flows(call.a, call.b, 1) && Flows(call.b, call.a, 2)) ++spoken;
        own.push_back(call);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(spoken, kThreads * kCallsEach);
  const auto on_one = static_cast<int>(CallsOn(one) / 2), on_other = static_cast<int>(CallsOn(other) / 2);
  EXPECT_EQ(on_one + on_other, kThreads * kCallsEach);
  EXPECT_NEAR(on_one, kThreads * kCallsEach / 2, 5);
  calls.clear();
  EXPECT_TRUE(Eventually([&] { return CallsOn(one) + CallsOn(other) == 0; }));
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
}

TEST_F(RtpengineDaemons, HaveNoCallOfOursThatEndedWhileItWasTold) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  for (int round = 0; round < 30; ++round) {
    auto session = NewSession();
    auto other = NewSession();
    ASSERT_TRUE(session && other);
    Leg a = NewLeg(session), b = NewLeg(session), fresh;
    fresh.connection = NewConnection(session);
    std::atomic<bool> ending{false};
    std::thread joining([&] {
      while (!ending) {
        a.connection->Join(kDuplex, b.connection);
        a.connection->SetRemoteOffer(RemoteOf(a));
      }
    });
    std::thread describing([&] {
      MediaConfig local;
      AddCodec(local);
      fresh.connection->GetLocalOffer(local);
    });
    const ConnectionPtr imported(other->ImportNetworkConnection(b.connection));
    session.reset();  // with an operation of its connections under way
    ending = true;
    joining.join();
    describing.join();
    other.reset();
  }
  EXPECT_TRUE(Eventually([&] { return CallsOn(daemon) == 0; })) << CallsOn(daemon);
}

TEST_F(RtpengineDaemons, SayOncePerServerWhatTheyDoNotSupport) {
  RtpengineDaemon daemon;
  Start(At(daemon));
  const auto session = NewSession();
  for (int i = 0; i < 2; ++i) {
    Leg leg;
    leg.connection = NewConnection(session);
    AddCodec(leg.local);
    leg.local.SetJitterMode(MediaConfig::JITTER_MODE_ADAPTIVE);
    leg.local.SetCngSuppressionFlag(true);
    leg.local.SetIpv4TimeToLive(9);
    leg.local.SetAllowInbandTo2833Conversion(false);
    ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  }
  std::vector<std::string> named;
  for (const std::string& message : logger().Messages(kelvaro::INFO_LOG_LEVEL)) {
    const auto at = message.find("rtpengine does not support ");
    if (at != std::string::npos) named.push_back(message.substr(at + 27));
  }
  EXPECT_THAT(named, testing::UnorderedElementsAre(
                         "JitterMode and delays: the daemon's own jitter-buffer option counts for all calls",
                         "CngSuppressionFlag: comfort noise is passed on as it comes",
                         "Ipv4TimeToLive and Ipv6HopLimit: they are those of the daemon's host",
                         "rtp_port_min: the daemon's own port-min option counts",
                         "rtp_port_max: the daemon's own port-max option counts",
                         "threads: the daemon's own num-threads option counts"));
}

}  // namespace
