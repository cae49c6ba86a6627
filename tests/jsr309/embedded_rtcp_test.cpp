// What applications get to know of a call over RTCP, with far ends that send and read reports, and a clock of the
// test's.
#include "embedded_fixture.h"

#include "embedded/embedded_driver.h"

#include <algorithm>
#include <atomic>

namespace {

using namespace kelvaro::jsr309;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kTimedDriver[] = "embedded_timed";

/// Threads: from any thread.
class TestClock : public media_engine::Clock {
 public:
  media_engine::TimePoint Now() const noexcept override {
    return media_engine::TimePoint(std::chrono::nanoseconds(now_.load()));
  }
  void Advance(std::chrono::milliseconds by) { now_ += std::chrono::nanoseconds(by).count(); }

 private:
  std::atomic<int64_t> now_{1'000'000'000'000};
};

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::uint32_t>;

Bytes Packet(std::uint8_t type, std::uint8_t count, const Words& words) {
  Bytes packet = {static_cast<std::uint8_t>(0x80 | count), type, 0, static_cast<std::uint8_t>(words.size())};
  for (const std::uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) packet.push_back(static_cast<std::uint8_t>(word >> shift));
  }
  return packet;
}

std::uint32_t Word(const Bytes& packet, std::size_t index) {
  std::uint32_t word = 0;
  for (std::size_t i = 4 * index; i < 4 * index + 4; ++i) word = word << 8 | packet.at(i);
  return word;
}

bool IsSenderReport(const Bytes& packet) {
  return packet.at(1) == 200;
}
/// The middle of the time stamp of a sender report.
std::uint32_t StampOf(const Bytes& packet) {
  return Word(packet, 2) << 16 | Word(packet, 3) >> 16;
}
bool Contains(const Bytes& packet, const std::string& text) {
  return std::search(packet.begin(), packet.end(), text.begin(), text.end()) != packet.end();
}
/// The source that a goodbye at the end of the packet names; 0 without.
std::uint32_t LeaverOf(const Bytes& packet) {
  const std::size_t words = packet.size() / 4;
  return Word(packet, words - 2) == 0x81cb0001 ? Word(packet, words - 1) : 0;
}

class EmbeddedRtcp : public test_support::EmbeddedTest {
 protected:
  void SetUp() override {
    RegisterMediaServerDriver(kTimedDriver, [this] { return MakeEmbeddedDriver(clock_); });
    test_support::EmbeddedOptions options;
    options.driver = kTimedDriver;
    Start(options);
    session_ = NewSession();
    a_ = NewLeg(session_);
    b_ = NewLeg(session_);
    ASSERT_TRUE(Join(a_, b_));
  }
  void TearDown() override {
    DestroyFactory();
    UnregisterMediaServerDriver(kTimedDriver);
  }

  static std::vector<RtcpStatsReport> Reports(const Leg& leg) {
    std::vector<RtcpStatsReport> reports;
    EXPECT_TRUE(leg.connection->GetRtcpStatsReport(reports));
    return reports;
  }
  void Pass(const Leg& leg, std::chrono::milliseconds time) {
    clock_->Advance(time);
    // One request may still be served in a turn that began before; the next one's turn began after.
    for (int i = 0; i < 3; ++i) Reports(leg);
  }
  static std::optional<Bytes> Rtcp(const Leg& leg) {
    const auto datagram = leg.far_rtcp->Receive();
    return datagram ? std::optional<Bytes>(datagram->data) : std::nullopt;
  }
  /// The next report at the far end, which has just been sent then.
  Bytes NextRtcp(const Leg& leg) {
    for (int i = 0; i < 100; ++i) {
      if (const auto packet = Rtcp(leg)) return *packet;
      Pass(leg, std::chrono::milliseconds(100));
    }
    ADD_FAILURE() << "no report within ten seconds";
    return Bytes(64);
  }
  void SendRtcp(const Leg& leg, const Bytes& packet) {
    ASSERT_TRUE(leg.far_rtcp->SendTo({leg.local.GetIPAddress(), leg.local.GetRtcpPort()}, packet));
    Reports(leg);  // a request is served after the packets that were there before it
  }
  /// A packet that was sent so much later than the one before. Its timestamp follows from its number.
  std::uint32_t Say(const Leg& from, const Leg& to, std::uint16_t number, int after_ms = 20,
                    std::uint32_t ssrc = 0x12345678) {
    clock_->Advance(std::chrono::milliseconds(after_ms));
    from.Send(number, 0, ssrc);
    const auto came = to.Receive();
    EXPECT_TRUE(came && came->payload == Payload(number)) << number;
    return came ? came->ssrc : 0;
  }

  std::shared_ptr<TestClock> clock_ = std::make_shared<TestClock>();
  SessionPtr session_;
  Leg a_, b_;
};

TEST_F(EmbeddedRtcp, EveryFigureOfBothEndpointsIsRight) {
  // A says 1 to 20; 7 is lost, 3 comes twice, 10 comes 10 ms late.
  std::uint32_t b_ssrc = 0, a_ssrc = 0;
  for (std::uint16_t number = 1; number <= 20; ++number) {
    if (number == 7) {
      clock_->Advance(std::chrono::milliseconds(20));
    } else {
      b_ssrc = Say(a_, b_, number, number == 10 ? 30 : number == 11 ? 10 : 20);
    }
    if (number == 3) Say(a_, b_, 3, 0);
  }
  // B says 101 to 110, all of it evenly.
  for (std::uint16_t number = 101; number <= 110; ++number) a_ssrc = Say(b_, a_, number, 20, 0xbeef);

  const Bytes to_b = NextRtcp(b_);
  ASSERT_TRUE(IsSenderReport(to_b));
  EXPECT_EQ(Word(to_b, 1), b_ssrc);
  EXPECT_EQ(Word(to_b, 5), 20u);         // packets: 19 and one twice
  EXPECT_EQ(Word(to_b, 6), 20u * 160u);  // octets
  const std::uint32_t stamp = StampOf(to_b);
  const auto block = [&](std::uint32_t fraction, std::uint32_t lost, std::uint32_t jitter, std::uint32_t dlsr) {
    return Words{b_ssrc, fraction << 24 | lost, 20, jitter, stamp, dlsr};
  };
  // B answers after 120 ms of which 20 were its own, and once more after 60 ms without any.
  clock_->Advance(std::chrono::milliseconds(60));
  Words report = {0xbeef, 0x11112222, 0x33334444, 55, 10, 1600};
  for (const std::uint32_t word : block(30, 2, 9, 0)) report.push_back(word);
  SendRtcp(b_, Packet(200, 1, report));
  clock_->Advance(std::chrono::milliseconds(60));
  Words answer = {0xbeef};
  for (const std::uint32_t word : block(12, 3, 20, 65536 / 50)) answer.push_back(word);
  SendRtcp(b_, Packet(201, 1, answer));

  ASSERT_THAT(Reports(b_), SizeIs(1));
  const RtcpStatsReport b = Reports(b_)[0];
  EXPECT_EQ(b.lssRTPPacketsSent, 20u);
  EXPECT_EQ(b.lssBytesSent, 3200u);
  EXPECT_EQ(b.lssSenderReportCnt, 1u);
  EXPECT_EQ(b.lrsTotalLostRTPPacketsCnt, 0u);
  EXPECT_EQ(b.lrsMaxFractionLost, 0);
  EXPECT_EQ(b.lrsMaxInterArrivalJitter, 0u);
  EXPECT_EQ(b.lrsAvgInterArrivalJitter, 0u);
  EXPECT_EQ(b.rssRTPPacketsSent, 10u);
  EXPECT_EQ(b.rssBytesSent, 1600u);
  EXPECT_EQ(b.rssSenderReportCnt, 1u);
  EXPECT_EQ(b.rrsTotalLostRTPPacketsCnt, 3u);
  EXPECT_EQ(b.rrsMaxFractionLost, 30);
  EXPECT_EQ(b.rrsMaxInterArrivalJitter, 20u);
  EXPECT_EQ(b.rrsAvgInterArrivalJitter, 14u);  // of 9 and 20
  EXPECT_EQ(b.maxroundtriptime, 100u);
  EXPECT_EQ(b.avgroundtriptime, 80u);

  // A's far end heard ten and lost none, and sends two sender reports.
  for (const std::uint32_t packets : {12u, 21u}) {
    SendRtcp(a_, Packet(200, 1, {0x12345678, 1, 2, 3, packets, 160 * packets, a_ssrc, 0, 110, 0, 0, 0}));
  }
  const RtcpStatsReport a = Reports(a_).at(0);
  EXPECT_EQ(a.lssRTPPacketsSent, 10u);
  EXPECT_EQ(a.lssBytesSent, 1600u);
  EXPECT_EQ(a.lrsTotalLostRTPPacketsCnt, 1u);
  EXPECT_EQ(a.lrsMaxFractionLost, 256 / 20);  // one of twenty
  // By A.8 in sixteenths: 80, 155, 145, 136, 127, 119, 112, 105, 98, 92, 86 from number 10 on, before that nothing.
  EXPECT_EQ(a.lrsMaxInterArrivalJitter, 9u);
  EXPECT_EQ(a.lrsAvgInterArrivalJitter, (5u + 9 + 9 + 8 + 7 + 7 + 7 + 6 + 6 + 5 + 5) / 19);
  EXPECT_EQ(a.rssRTPPacketsSent, 21u);
  EXPECT_EQ(a.rssBytesSent, 3360u);
  EXPECT_EQ(a.rssSenderReportCnt, 2u);
  EXPECT_EQ(a.rrsTotalLostRTPPacketsCnt, 0u);
  EXPECT_EQ(a.rrsMaxFractionLost, 0);
  EXPECT_EQ(a.rrsMaxInterArrivalJitter, 0u);
  EXPECT_EQ(a.rrsAvgInterArrivalJitter, 0u);
  EXPECT_EQ(a.maxroundtriptime, 0u);  // it answered no report of ours
  EXPECT_EQ(a.avgroundtriptime, 0u);
  unsigned long reports = 0;
  while (const auto packet = Rtcp(a_)) reports += IsSenderReport(*packet) ? 1 : 0;
  EXPECT_EQ(a.lssSenderReportCnt, reports);
}

TEST_F(EmbeddedRtcp, ACallThatNobodyReportsOnHasItsLocalFigures) {
  for (std::uint16_t number = 1; number <= 3; ++number) Say(a_, b_, static_cast<std::uint16_t>(2 * number));
  const RtcpStatsReport b = Reports(b_).at(0);
  EXPECT_EQ(b.lssRTPPacketsSent, 3u);
  EXPECT_EQ(b.rssRTPPacketsSent + b.rssSenderReportCnt + b.rrsTotalLostRTPPacketsCnt + b.maxroundtriptime, 0u);
  const RtcpStatsReport a = Reports(a_).at(0);
  EXPECT_EQ(a.lrsTotalLostRTPPacketsCnt, 2u);
  EXPECT_EQ(a.lrsMaxFractionLost, 2 * 256 / 5);
  EXPECT_EQ(a.lssRTPPacketsSent, 0u);
}

TEST_F(EmbeddedRtcp, EachSourceOfTheFarEndHasAReport) {
  EXPECT_THAT(Reports(a_), IsEmpty());
  Say(a_, b_, 1, 20, 1);
  Say(a_, b_, 3, 20, 1);
  const std::uint32_t former = Say(a_, b_, 500, 20, 2);
  const auto reports = Reports(a_);
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_EQ(reports[0].lrsTotalLostRTPPacketsCnt, 1u);
  EXPECT_EQ(reports[1].lrsTotalLostRTPPacketsCnt, 0u);
  // What goes on to B is one stream all the while.
  EXPECT_THAT(Reports(b_), SizeIs(1));
  EXPECT_EQ(Say(a_, b_, 700, 20, 3), former);
}

TEST_F(EmbeddedRtcp, TheStreamIsResetWithTheRemoteSsrcWhenThatIsAskedFor) {
  MediaConfig again;
  AddCodec(again);
  again.SetResetRtpOnRemoteSSRCChange(true);
  ASSERT_TRUE(a_.connection->GetLocalAnswer(again));
  const std::uint32_t former = Say(a_, b_, 1, 20, 1);
  const std::uint32_t next = Say(a_, b_, 500, 20, 2);
  EXPECT_NE(next, former);
  const Bytes farewell = NextRtcp(b_);
  EXPECT_EQ(Word(farewell, 1), former);
  EXPECT_EQ(LeaverOf(farewell), former);
  const Bytes report = NextRtcp(b_);
  EXPECT_EQ(Word(report, 1), next);
  EXPECT_EQ(LeaverOf(report), 0u);
  EXPECT_FALSE(logger().Has(kelvaro::INFO_LOG_LEVEL, "does not support"));
}

TEST_F(EmbeddedRtcp, ReportsBearTheCnameAndEndWithAGoodbye) {
  MediaConfig remote = RemoteOf(b_);
  remote.SetRtcpFlag(true);
  remote.SetCname("call@5f0c");
  ASSERT_TRUE(b_.connection->SetRemoteAnswer(remote));
  const std::uint32_t ssrc = Say(a_, b_, 1);
  const Bytes report = NextRtcp(b_);
  EXPECT_TRUE(Contains(report, "call@5f0c"));
  EXPECT_EQ(LeaverOf(report), 0u);
  b_.connection->Close();
  const auto last = Rtcp(b_);
  ASSERT_TRUE(last);
  EXPECT_TRUE(Contains(*last, "call@5f0c"));
  EXPECT_EQ(LeaverOf(*last), ssrc);
  EXPECT_FALSE(Rtcp(b_));
  EXPECT_FALSE(logger().Has(kelvaro::INFO_LOG_LEVEL, "does not support"));
}

TEST_F(EmbeddedRtcp, WithoutTheRtcpFlagNoReportsGo) {
  MediaConfig remote = RemoteOf(b_);
  remote.SetRtcpFlag(false);
  ASSERT_TRUE(b_.connection->SetRemoteAnswer(remote));
  Say(a_, b_, 1);
  for (int i = 0; i < 100; ++i) Pass(b_, std::chrono::milliseconds(100));
  EXPECT_FALSE(Rtcp(b_));
  b_.connection->Close();
  EXPECT_FALSE(Rtcp(b_));
}

}  // namespace
