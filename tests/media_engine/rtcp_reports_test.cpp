// The reports that endpoints send, as their far ends receive them, and what becomes of the answers.
#include "rtcp_fixture.h"

namespace media_engine_test {
namespace {

class RtcpReports : public RtcpTest {
 protected:
  /// How long it takes until the next report, to a tenth of a second.
  milliseconds TimeToReport(const Leg& leg) {
    const TimePoint before = clock_->Now();
    EXPECT_TRUE(NextRtcp(leg));
    return std::chrono::duration_cast<milliseconds>(clock_->Now() - before);
  }
  static RemoteDescription Described(const Leg& leg, const SourceSettings& source) {
    RemoteDescription description = leg.far_end->Description(Pcmu());
    description.our_source = source;
    return description;
  }
};

TEST_F(RtcpReports, TellTheFarEndWhatItWasSentAndWhatItsMediaSuffered) {
  const Rtp first = Carry(a_, b_, 1000);
  CarryRun(a_, b_, 1001, 6);
  CarryRun(a_, b_, 1008, 2);  // 1007 is lost
  CarryRun(a_, b_, 1009, 1);  // a second time
  const auto sender = NextRtcp(b_);
  ASSERT_TRUE(sender && sender->sender);
  EXPECT_EQ(sender->ssrc, first.ssrc);
  EXPECT_EQ(sender->ssrc, b_.Statistics().local_ssrc);
  EXPECT_EQ(sender->sender->packets, 10u);
  EXPECT_EQ(sender->sender->octets, 1600u);
  EXPECT_TRUE(sender->blocks.empty());
  const auto receiver = NextRtcp(a_);
  ASSERT_TRUE(receiver);
  EXPECT_FALSE(receiver->sender);
  EXPECT_EQ(receiver->ssrc, a_.Statistics().local_ssrc);
  ASSERT_EQ(receiver->blocks.size(), 1u);
  const RtcpBlock& block = receiver->blocks[0];
  EXPECT_EQ(block.ssrc, 0x11111111u);
  EXPECT_EQ(block.lost, 0);  // 10 expected, 10 received: the RFC lets the double make up for the loss
  EXPECT_EQ(block.highest, 1009u);
  const StreamStatistics stream = a_.Statistics().streams.at(0);
  EXPECT_EQ(stream.packets_lost, 1u);  // we do not
  EXPECT_EQ(stream.fraction_lost_maximum, 25);
  EXPECT_EQ(a_.Statistics().rtp_duplicates, 1u);
}

TEST_F(RtcpReports, TimeStampsOfOneMomentTellWallClockAndMediaTime) {
  const auto wall_before = std::chrono::system_clock::now();
  const Rtp media = Carry(a_, b_, 1);
  const TimePoint sent = clock_->Now();
  const auto report = NextRtcp(b_);
  ASSERT_TRUE(report && report->sender);
  const auto later = std::chrono::duration_cast<milliseconds>(clock_->Now() - sent).count();
  // The report left at some turn of the last tenth of a second.
  EXPECT_NEAR(report->sender->timestamp - media.timestamp, static_cast<double>(later) * 8, 800);
  const auto unix_seconds = std::chrono::duration_cast<seconds>(wall_before.time_since_epoch()).count();
  EXPECT_NEAR(static_cast<double>(report->sender->ntp >> 32) - 2208988800.0, static_cast<double>(unix_seconds), 60);
}

TEST_F(RtcpReports, ComeWithinTheBoundsOfTheInterval) {
  // 2.5 and 5 s, half to one and a half times, by e - 3/2; a tenth of a second for the timers.
  const milliseconds first = TimeToReport(a_);
  EXPECT_GE(first, milliseconds{1000});
  EXPECT_LE(first, milliseconds{3200});
  for (int i = 0; i < 20; ++i) {
    const milliseconds next = TimeToReport(a_);
    EXPECT_GE(next, milliseconds{1900});
    EXPECT_LE(next, milliseconds{6300});
  }
}

TEST_F(RtcpReports, WhoHasStoppedSendingSendsReceiverReports) {
  Carry(a_, b_, 1);
  EXPECT_TRUE(NextRtcp(b_)->sender);
  EXPECT_TRUE(NextRtcp(b_)->sender);
  EXPECT_FALSE(NextRtcp(b_)->sender);
  Carry(a_, b_, 2);
  EXPECT_EQ(NextRtcp(b_)->sender->packets, 2u);
}

TEST_F(RtcpReports, CarryTheCnameThatWasDescribed) {
  const std::string drawn = NextRtcp(a_)->cname;
  EXPECT_EQ(drawn.size(), 24u);
  EXPECT_NE(drawn, NextRtcp(b_)->cname);
  SourceSettings source;
  source.cname = "session@0d5d2d6e";
  ASSERT_TRUE(a_.endpoint->DescribeRemote(Described(a_, source), kLimit).ok);
  NextRtcp(a_);
  const auto seen = NextRtcp(a_);
  EXPECT_EQ(seen->cname, source.cname);
  EXPECT_EQ(seen->cname_of, seen->ssrc);
  ASSERT_TRUE(a_.endpoint->DescribeRemote(Described(a_, {}), kLimit).ok);  // leaves it
  EXPECT_EQ(NextRtcp(a_)->cname, source.cname);
}

TEST_F(RtcpReports, AnswersGiveEveryFigureOfTheStream) {
  CarryRun(a_, b_, 1, 20);
  CarryRun(b_, a_, 501, 10, 0xb0b);
  const auto ours = NextRtcp(b_);
  ASSERT_TRUE(ours && ours->sender);
  const auto lsr = static_cast<uint32_t>(ours->sender->ntp >> 16);
  // B's far end was sent 20, misses three of them, and answers a quarter of a second after it got the report.
  const uint32_t since = 0x10000 / 4;
  // The report had been waiting for less than a turn of the timers.
  SendRtcp(b_, SenderReportBytes(0xb0b, {0x1234567800000000, 1, 11, 1760}, {{ours->ssrc, 38, 3, 20, 17, lsr, 0}}) +
                   CnameBytes(0xb0b, "b"));
  ASSERT_TRUE(Eventually([&] { return b_.Statistics().rtcp_packets_received == 1; }));
  Pass(b_, milliseconds{500});
  SendRtcp(b_, ReceiverReportBytes(0xb0b, {{ours->ssrc, 12, 4, 20, 20, lsr, since}}));
  ASSERT_TRUE(Eventually([&] { return b_.Statistics().rtcp_packets_received == 2; }));
  const StreamStatistics stream = b_.Statistics().streams.at(0);
  EXPECT_EQ(stream.remote_ssrc, 0xb0bu);
  EXPECT_EQ(stream.packets_sent, 20u);
  EXPECT_EQ(stream.octets_sent, 3200u);
  EXPECT_EQ(stream.packets_received, 10u);
  EXPECT_EQ(stream.packets_lost, 0u);
  EXPECT_GE(stream.sender_reports_sent, 1u);
  EXPECT_EQ(stream.remote_packets_sent, 11u);
  EXPECT_EQ(stream.remote_octets_sent, 1760u);
  EXPECT_EQ(stream.sender_reports_received, 1u);
  EXPECT_EQ(stream.remote_packets_lost, 4u);
  EXPECT_EQ(stream.remote_fraction_lost_maximum, 38);
  EXPECT_EQ(stream.remote_jitter_maximum, 20u);
  EXPECT_EQ(stream.remote_jitter_average, 18u);
  // The first answer came at once, the second after 500 ms of which 250 were the far end's.
  EXPECT_NEAR(static_cast<double>(stream.round_trip_maximum_us), 250000, 20);
  EXPECT_NEAR(static_cast<double>(stream.round_trip_average_us), 125000, 20);
  // And it is told when its own report came.
  Carry(b_, a_, 511, 0xb0b);
  const auto next = NextRtcp(b_);
  ASSERT_EQ(next->blocks.size(), 1u);
  EXPECT_EQ(next->blocks[0].lsr, 0x56780000u);
  EXPECT_GE(next->blocks[0].dlsr, 0x10000u / 2);
}

TEST_F(RtcpReports, EndWithAGoodbyeWhicheverWayTheEndpointEnds) {
  CarryRun(a_, b_, 1, 3);
  const uint32_t ssrc = b_.Statistics().local_ssrc;
  const auto expect_goodbye = [](const Leg& leg, uint32_t from, bool sender) {
    const auto last = leg.far_end->ReceiveRtcp();
    ASSERT_TRUE(last);
    const auto seen = ReadRtcp(*last);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->goodbyes, std::vector<uint32_t>{from});
    EXPECT_EQ(seen->cname_of, from);
    EXPECT_EQ(seen->sender.has_value(), sender);
    EXPECT_FALSE(leg.far_end->ReceiveRtcp(milliseconds{0}));
  };
  ASSERT_TRUE(b_.endpoint->Close(kLimit).ok);
  expect_goodbye(b_, ssrc, true);
  // A's far end was sent nothing but reports.
  ASSERT_TRUE(NextRtcp(a_));
  const uint32_t receiver = a_.Statistics().local_ssrc;
  session_.reset();
  expect_goodbye(a_, receiver, false);

  const auto another = NewSession(*server_);
  const Leg c = NewCallLeg(*another);
  ASSERT_TRUE(NextRtcp(c));
  const uint32_t other = c.Statistics().local_ssrc;
  server_->Shutdown();
  expect_goodbye(c, other, false);
}

TEST_F(RtcpReports, WhoHasSentNothingSaysNoGoodbye) {
  ASSERT_TRUE(a_.endpoint->Close(kLimit).ok);
  EXPECT_FALSE(a_.far_end->ReceiveRtcp(milliseconds{0}));
}

TEST_F(RtcpReports, SwitchedOffNoneGoAndWhatComesIsTakenAllTheSame) {
  SourceSettings source;
  source.rtcp = false;
  ASSERT_TRUE(b_.endpoint->DescribeRemote(Described(b_, source), kLimit).ok);
  CarryRun(a_, b_, 1, 3);
  CarryRun(b_, a_, 1, 3, 0xb0b);
  SendRtcp(b_, SenderReportBytes(0xb0b, {1, 2, 3, 480}));
  for (int i = 0; i < 100; ++i) Pass(b_, kStep);
  EXPECT_FALSE(b_.far_end->ReceiveRtcp(milliseconds{0}));
  EXPECT_EQ(b_.Statistics().streams.at(0).sender_reports_received, 1u);
  EXPECT_EQ(b_.Statistics().streams.at(0).sender_reports_sent, 0u);
  EXPECT_EQ(b_.Statistics().rtcp_packets_sent, 0u);
  ASSERT_TRUE(b_.endpoint->Close(kLimit).ok);
  EXPECT_FALSE(b_.far_end->ReceiveRtcp(milliseconds{0}));
}

TEST_F(RtcpReports, AFarEndThatWantsNothingSentGetsNoReportsUntilItDoes) {
  for (const char* const address : {"0.0.0.0", "127.0.0.1"}) {
    RemoteDescription hold = a_.far_end->Description(Pcmu());
    hold.address = address;
    if (hold.address == "127.0.0.1") hold.rtp_port = 0;
    hold.rtcp_port = a_.far_end->rtcp_port();
    ASSERT_TRUE(a_.endpoint->DescribeRemote(hold, kLimit).ok);
    for (int i = 0; i < 100; ++i) Pass(a_, kStep);
    EXPECT_FALSE(a_.far_end->ReceiveRtcp(milliseconds{0})) << address;
  }
  ASSERT_TRUE(a_.endpoint->DescribeRemote(a_.far_end->Description(Pcmu()), kLimit).ok);
  EXPECT_TRUE(NextRtcp(a_));
}

TEST_F(RtcpReports, FractionsLostAreThoseOfTheIntervals) {
  CarryRun(a_, b_, 1, 8);
  CarryRun(a_, b_, 11, 6);  // 2 of 16
  EXPECT_EQ(NextRtcp(a_)->blocks.at(0).fraction, 32);
  CarryRun(a_, b_, 17, 16);
  EXPECT_EQ(NextRtcp(a_)->blocks.at(0).fraction, 0);
  EXPECT_EQ(a_.Statistics().streams.at(0).fraction_lost_maximum, 32);
  CarryRun(a_, b_, 33, 3);
  CarryRun(a_, b_, 40, 1);  // 4 of 8, and no report has been sent on them yet
  EXPECT_EQ(a_.Statistics().streams.at(0).fraction_lost_maximum, 128);
}

TEST_F(RtcpReports, GoOnAfterAnImportAsTheSameParticipant) {
  CarryRun(a_, b_, 1, 5);
  const auto before = NextRtcp(b_);
  const auto elsewhere = NewSession(*server_);  // on the other worker
  ASSERT_TRUE(elsewhere->Import(*b_.endpoint).ok);
  const auto after = NextRtcp(b_);
  ASSERT_TRUE(before && after && after->sender);
  EXPECT_EQ(after->ssrc, before->ssrc);
  EXPECT_EQ(after->cname, before->cname);
  EXPECT_EQ(after->sender->packets, 5u);
  EXPECT_TRUE(after->goodbyes.empty());
  SendRtcp(
      b_, ReceiverReportBytes(0xb0b, {{after->ssrc, 0, 0, 5, 0, static_cast<uint32_t>(before->sender->ntp >> 16), 0}}));
  EXPECT_TRUE(Eventually([&] { return b_.Statistics().streams.at(0).round_trip_maximum_us > 1000000; }));
}

TEST_F(RtcpReports, GoOutThroughIpv6) {
  ServerConfig config = Config();
  config.addresses = {"::1"};
  const auto server = Open(config);
  const auto session = NewSession(*server);
  Leg leg = NewLeg(*session, "::1");
  ASSERT_TRUE(leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit).ok);
  ASSERT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(Pcmu()), kLimit).ok);
  EXPECT_TRUE(NextRtcp(leg));
  SendRtcp(leg, ReceiverReportBytes(1));
  EXPECT_TRUE(Eventually([&] { return leg.Statistics().rtcp_packets_received == 1; }));
}

}  // namespace
}  // namespace media_engine_test
