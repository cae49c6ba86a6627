// The jitter buffer settings of a record, through the whole control library to an embedded media server.
#include "embedded_fixture.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

class EmbeddedJitter : public test_support::EmbeddedTest {
 protected:
  using Mode = MediaConfig::JitterMode;

  void SetUp() override {
    Start();
    session_ = NewSession();
  }
  static MediaConfig Record(Mode mode, int initial = -1, int min = -1, int max = -1) {
    MediaConfig config;
    AddCodec(config);
    config.SetJitterMode(mode);
    if (initial >= 0) config.SetJitterInitialDelayMs(initial);
    if (min >= 0) config.SetJitterMinDelayMs(min);
    if (max >= 0) config.SetJitterMaxPdvMs(max);
    return config;
  }
  Leg NewBufferedLeg(MediaConfig config) {
    Leg leg = NewLeg(session_);
    EXPECT_TRUE(leg.connection->GetLocalOffer(config));
    return leg;
  }
  /// How long a packet takes from the one far end to the other; the machine's own time comes on top.
  static milliseconds TimeThrough(const Leg& from, const Leg& to, std::uint16_t number) {
    const auto sent = steady_clock::now();
    from.Send(number);
    const auto came = to.Receive();
    EXPECT_TRUE(came && came->payload == Payload(number));
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - sent);
  }
  std::vector<std::string> Warnings() { return logger().Messages(kelvaro::WARN_LOG_LEVEL); }

  SessionPtr session_;
};

TEST_F(EmbeddedJitter, TheBufferDelaysWhatTheFarEndSendsAndNotWhatItGets) {
  const Leg a = NewBufferedLeg(Record(MediaConfig::JITTER_MODE_STATIC, 150)), b = NewLeg(session_);
  ASSERT_TRUE(Join(a, b));
  milliseconds backwards(10000);
  for (std::uint16_t number = 1; number <= 5; ++number) {
    EXPECT_GE(TimeThrough(a, b, static_cast<std::uint16_t>(100 * number)), milliseconds(149));
    backwards = std::min(backwards, TimeThrough(b, a, number));
  }
  EXPECT_LT(backwards, milliseconds(100));
}

TEST_F(EmbeddedJitter, APacketThatWasOvertakenGetsItsPlaceBack) {
  const Leg a = NewBufferedLeg(Record(MediaConfig::JITTER_MODE_ADAPTIVE, 200, 200, 200)), b = NewLeg(session_);
  ASSERT_TRUE(Join(a, b));
  for (std::uint16_t number : {1, 3, 2, 4}) a.Send(number);
  for (std::uint16_t number : {1, 2, 3, 4}) EXPECT_EQ(b.Receive().value().payload, Payload(number));
  EXPECT_THAT(Warnings(), ElementsAre());
}

TEST_F(EmbeddedJitter, TheBuffersCountsAreLoggedWhenTheConnectionEnds) {
  const Leg a = NewBufferedLeg(Record(MediaConfig::JITTER_MODE_STATIC, 20)), b = NewLeg(session_);
  ASSERT_TRUE(Join(a, b));
  ASSERT_TRUE(Flows(a, b, 1));
  a.connection->Close();
  EXPECT_TRUE(logger().Has(kelvaro::INFO_LOG_LEVEL,
                           "jitter buffer: delay 20 ms, reordered 0, late 0, duplicates 0, "
                           "without room 0, discarded 0, of 1 packets"));
}

TEST_F(EmbeddedJitter, EveryFieldArrivesAndWhatIsOutOfRangeIsCorrectedOnce) {
  Leg leg;
  leg.connection = NewConnection(session_);
  for (int i = 0; i < 3; ++i) {
    MediaConfig record = Record(MediaConfig::JITTER_MODE_ADAPTIVE, 300, 250, 240);
    ASSERT_TRUE(i == 1 ? leg.connection->GetLocalAnswer(record) : leg.connection->GetLocalOffer(record));
  }
  EXPECT_THAT(Warnings(), ElementsAre(HasSubstr(
                              "jitter buffer: max PDV 240 ms is not in 0-200, 200 is taken; min delay 250 ms is "
                              "not in 0-200, 200 is taken; initial delay 300 ms is not in 200-200, 200 is taken")));
}

TEST_F(EmbeddedJitter, TheMinimumOfAStaticBufferIsNoReasonForAWarningPerCall) {
  NewBufferedLeg(Record(MediaConfig::JITTER_MODE_STATIC, 40, 20, 100));
  EXPECT_THAT(Warnings(), ElementsAre());
}

TEST_F(EmbeddedJitter, ModeNoneSwitchesTheBufferOffAndARecordWithoutAModeLeavesIt) {
  const Leg a = NewBufferedLeg(Record(MediaConfig::JITTER_MODE_STATIC, 150)), b = NewLeg(session_);
  ASSERT_TRUE(Join(a, b));
  MediaConfig silent;
  AddCodec(silent);
  ASSERT_TRUE(a.connection->GetLocalAnswer(silent));
  EXPECT_GE(TimeThrough(a, b, 1), milliseconds(149));
  MediaConfig off = Record(MediaConfig::JITTER_MODE_NONE);
  ASSERT_TRUE(a.connection->GetLocalAnswer(off));
  a.Send(20);
  // A request is served after the packets that were sent before it.
  std::vector<RtcpStatsReport> reports;
  ASSERT_TRUE(a.connection->GetRtcpStatsReport(reports));
  EXPECT_TRUE(b.Receive(0));
}

TEST_F(EmbeddedJitter, WhatCannotTakeEffectIsNamed) {
  MediaConfig delays;
  AddCodec(delays);
  delays.SetJitterInitialDelayMs(40);
  NewBufferedLeg(delays);
  MediaConfig odd = Record(MediaConfig::JITTER_MODE_INVALID, 40);
  const Leg leg = NewBufferedLeg(odd);
  MediaConfig remote = RemoteOf(leg);
  remote.SetJitterMode(MediaConfig::JITTER_MODE_STATIC);
  ASSERT_TRUE(leg.connection->SetRemoteAnswer(remote));
  for (const char* text : {"does not support jitter buffer delays without JitterMode yet: the jitter buffer stays",
                           "does not support JitterMode 3 yet: the jitter buffer stays",
                           "does not support JitterMode and delays in a remote description yet"}) {
    EXPECT_TRUE(logger().Has(kelvaro::INFO_LOG_LEVEL, text)) << text;
  }
}

}  // namespace
