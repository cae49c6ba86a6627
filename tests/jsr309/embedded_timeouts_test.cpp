// Silences through the whole control library, with a clock of the test's own.
#include "embedded_clock_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::RecordingRtpTimeoutListener;

/// For what must not happen: nothing else is on its way when this is waited for.
constexpr milliseconds kSoon{20};

class EmbeddedTimeouts : public test_support::EmbeddedClockTest {
 protected:
  struct WatchedLeg : Leg {
    boost::shared_ptr<RecordingRtpTimeoutListener> listener = boost::make_shared<RecordingRtpTimeoutListener>();
  };

  void SetUp() override {
    Start(ByTheClock());
    session_ = NewSession();
    a_ = Watch();
    b_ = Watch();
  }
  /// A silence of 5 s counts, and 30 s without any media.
  WatchedLeg Watch() {
    WatchedLeg leg;
    leg.connection = NewConnection(session_);
    EXPECT_TRUE(leg.connection->AddListener(leg.listener));
    AddCodec(leg.local);
    leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, 5);
    leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 30);
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(RemoteOf(leg)));
    return leg;
  }
  void Talk(const WatchedLeg& leg) { leg.Send(++number_); }
  /// Whether exactly that many silences have been told by now.
  static bool Told(const WatchedLeg& leg, size_t count) {
    if (count > 0 && !leg.listener->WaitForEvents(count)) return false;
    return !leg.listener->WaitForEvents(count + 1, kSoon);
  }

  SessionPtr session_;
  WatchedLeg a_, b_;
  std::uint16_t number_ = 0;
};

TEST_F(EmbeddedTimeouts, TellOnceOfASilenceAfterMediaAndWithoutAny) {
  Talk(a_);
  Pass(milliseconds(4900), a_);
  EXPECT_TRUE(Told(a_, 0));
  Pass(milliseconds(200), a_);
  EXPECT_TRUE(Told(a_, 1));
  EXPECT_TRUE(Told(b_, 0));
  Pass(seconds(60), a_);
  EXPECT_TRUE(Told(a_, 1));
  EXPECT_TRUE(Told(b_, 1));
  EXPECT_TRUE(a_.listener->Events()[0].active_);
  EXPECT_FALSE(b_.listener->Events()[0].active_);
}

TEST_F(EmbeddedTimeouts, ExpectMediaOnlyFromFarEndsWhoseMediaGoesSomewhere) {
  struct Case {
    Direction direction;
    size_t of_caller, of_other;
  };
  const Case cases[] = {{kDuplex, 1, 1},       {kReceive, 1, 0},      {kSend, 0, 1},
                        {kAudioNoVideo, 1, 1}, {kVideoNoAudio, 0, 0}, {kDisable, 0, 0}};
  for (const Case& one : cases) {
    const WatchedLeg a = Watch(), b = Watch();
    Talk(a);
    Talk(b);
    ASSERT_TRUE(Join(a, b, one.direction));
    Pass(seconds(6), a);
    EXPECT_TRUE(Told(a, one.of_caller)) << one.direction;
    EXPECT_TRUE(Told(b, one.of_other)) << one.direction;
    a.connection->Close();
    b.connection->Close();
  }
}

TEST_F(EmbeddedTimeouts, ExpectNothingUnderUdpPassThrough) {
  Talk(a_);
  Talk(b_);
  MediaConfig fax, remote;
  fax.SetUdpPassThru();
  remote.SetUdpPassThru();
  remote.SetIPAddress("127.0.0.1");
  remote.SetRtpPort(a_.far_end->Port());
  ASSERT_TRUE(a_.connection->SetRemoteOffer(remote));
  ASSERT_TRUE(a_.connection->GetLocalAnswer(fax));
  Pass(seconds(3600), a_);
  EXPECT_TRUE(Told(a_, 0));
  EXPECT_TRUE(Told(b_, 1));
}

TEST_F(EmbeddedTimeouts, CountAnewFromJoinChangeOfDirectionAndUnjoin) {
  Talk(a_);
  Pass(seconds(4), a_);
  ASSERT_TRUE(Join(a_, b_));
  Pass(seconds(4), a_);
  ASSERT_TRUE(Join(a_, b_, kReceive));
  Pass(seconds(4), a_);
  ASSERT_TRUE(a_.connection->Unjoin(b_.connection));
  Pass(seconds(4), a_);
  EXPECT_TRUE(Told(a_, 0));
  Pass(seconds(1), a_);
  EXPECT_TRUE(Told(a_, 1));
}

TEST_F(EmbeddedTimeouts, OfZeroSecondsAreOff) {
  MediaConfig off;
  AddCodec(off);
  off.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, 0);
  off.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 0);
  ASSERT_TRUE(a_.connection->GetLocalOffer(off));
  Pass(seconds(3600), a_);
  EXPECT_TRUE(Told(a_, 0));
  Talk(a_);
  Pass(seconds(3600), a_);
  EXPECT_TRUE(Told(a_, 0));
}

TEST_F(EmbeddedTimeouts, GoWithAnImportedConnection) {
  Talk(a_);
  const auto other = NewSession();
  const ConnectionPtr imported(other->ImportNetworkConnection(a_.connection));
  ASSERT_TRUE(imported);
  Pass(seconds(5), a_);
  EXPECT_TRUE(Told(a_, 1));
}

}  // namespace
