// What an endpoint's RTCP says and believes, without sockets.
#include "rtcp_session_fixture.h"

namespace media_engine_test {
namespace {

TEST(NtpTimeline, CountsFrom1900InFixedPoint) {
  const NtpTimeline timeline = Timeline();
  EXPECT_EQ(timeline.At(At(0)), 0xb44db70000000000u);
  EXPECT_EQ(timeline.At(At(5.125)), 0xb44db70520000000u);
  EXPECT_EQ(media_engine::ShortNtp(timeline.At(At(5.125))), 0xb7052000u);
  const NtpTimeline later(At(100), std::chrono::system_clock::time_point(seconds{0}));
  EXPECT_EQ(later.At(At(100.5)), 2208988800u * 0x100000000u + 0x80000000u);
}

TEST_F(Rtcp, ASenderReportHoldsWhatWasSent) {
  Send(3);
  session_.SetCname("session@leg");
  const RtcpSeen seen = Report(5.125, false, 0x12345678);
  ASSERT_TRUE(seen.sender);
  EXPECT_EQ(seen.ssrc, kOurs);
  EXPECT_EQ(seen.sender->ntp, 0xb44db70520000000u);
  EXPECT_EQ(seen.sender->timestamp, 0x12345678u);
  EXPECT_EQ(seen.sender->packets, 3u);
  EXPECT_EQ(seen.sender->octets, 480u);
  EXPECT_TRUE(seen.blocks.empty());
  EXPECT_EQ(seen.cname_of, kOurs);
  EXPECT_EQ(seen.cname, "session@leg");
  EXPECT_TRUE(seen.goodbyes.empty());
}

TEST_F(Rtcp, WhoHasNotSentForTwoReportsSendsAReceiverReport) {
  EXPECT_FALSE(Report(1).sender);
  Send(1);
  EXPECT_TRUE(Report(2).sender);
  EXPECT_TRUE(Report(3).sender);
  EXPECT_FALSE(Report(4).sender);
  Send(1);
  EXPECT_EQ(Report(5).sender->packets, 2u);
  EXPECT_EQ(Stream().sender_reports_sent, 3u);
}

TEST_F(Rtcp, ABlockHoldsWhatWasMeasured) {
  for (uint16_t number = 65530; number != 10; ++number) {
    if (number != 65535) Hear(number);
  }
  const RtcpSeen seen = Report(1);
  ASSERT_EQ(seen.blocks.size(), 1u);
  EXPECT_EQ(seen.blocks[0].ssrc, kTheirs);
  EXPECT_EQ(seen.blocks[0].fraction, 16);  // 1 of 16
  EXPECT_EQ(seen.blocks[0].lost, 1);
  EXPECT_EQ(seen.blocks[0].highest, 0x10009u);
  EXPECT_EQ(seen.blocks[0].lsr, 0u);
  EXPECT_EQ(seen.blocks[0].dlsr, 0u);
  EXPECT_TRUE(Report(2).blocks.empty());  // nothing more has come
}

TEST_F(Rtcp, ABlockTellsWhenTheLastSenderReportCame) {
  Hear(1);
  Take(SenderReportBytes(kTheirs, {0x0123456789abcdef, 1, 1, 160}), 10);
  const RtcpBlock block = Report(15.25).blocks.at(0);
  EXPECT_EQ(block.lsr, 0x456789abu);
  EXPECT_EQ(block.dlsr, 0x00054000u);  // 5.25 s
  Hear(2);
  Take(SenderReportBytes(0x77, {0xffffffffffffffff, 1, 1, 160}), 16);  // somebody else's
  EXPECT_EQ(Report(17).blocks.at(0).lsr, 0x456789abu);
}

TEST_F(Rtcp, TheRoundTripIsThatOfTheRfcsExample) {
  // Section 6.4.1, figure 2: sent at b705.2000, answered after 5.250 s, back at b710.8000: 6.125 s.
  Send(1);
  EXPECT_EQ(Report(0x05 + 0.125).sender->ntp >> 16 & 0xffffffff, 0xb7052000u);
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 0, 1, 0, 0xb7052000, 0x00054000}}), 0x10 + 0.5);
  EXPECT_EQ(Stream().round_trip_maximum_us, 6125000u);
  EXPECT_EQ(Stream().round_trip_average_us, 6125000u);
}

TEST_F(Rtcp, RoundTripsHaveAMaximumAndAnAverage) {
  Send(1);
  const auto stamp = static_cast<uint32_t>(Report(1).sender->ntp >> 16);
  for (const double after : {0.0625, 0.125, 0.25}) {
    Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 0, 1, 0, stamp, 0}}), 1 + after);
  }
  EXPECT_EQ(Stream().round_trip_maximum_us, 250000u);
  EXPECT_NEAR(static_cast<double>(Stream().round_trip_average_us), 145833, 16);
}

TEST_F(Rtcp, OnlyAnAnswerToAReportOfOursGivesARoundTrip) {
  Send(1);
  const auto stamp = static_cast<uint32_t>(Report(1).sender->ntp >> 16);
  const auto answer = [&](uint32_t ssrc, uint32_t lsr, uint32_t dlsr) {
    Take(ReceiverReportBytes(kTheirs, {{ssrc, 0, 0, 1, 0, lsr, dlsr}}), 2);
  };
  answer(kOurs, 0, 0);             // knows of none
  answer(kOurs, stamp + 1, 0);     // of one that we never sent
  answer(kOurs, stamp, 2 << 16);   // was there before it was asked
  answer(kOurs ^ 1, stamp, 1000);  // of somebody else's media
  EXPECT_EQ(Stream().round_trip_maximum_us, 0u);
  answer(kOurs, stamp, 1 << 15);
  EXPECT_EQ(Stream().round_trip_maximum_us, 500000u);
}

TEST_F(Rtcp, AnAnswerToAnEarlierReportCountsAsLongAsItIsOneOfTheLastFour) {
  std::vector<uint32_t> stamps;
  for (int i = 1; i <= 5; ++i) {
    Send(1);
    stamps.push_back(static_cast<uint32_t>(Report(i).sender->ntp >> 16));
  }
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 0, 1, 0, stamps[0], 0}}), 6);
  EXPECT_EQ(Stream().round_trip_maximum_us, 0u);
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 0, 1, 0, stamps[1], 0}}), 6);
  EXPECT_EQ(Stream().round_trip_maximum_us, 4000000u);
}

TEST_F(Rtcp, WhatTheFarEndReportsIsKept) {
  Send(1);
  const auto report = [&](uint8_t fraction, int32_t lost, uint32_t jitter) {
    Take(SenderReportBytes(kTheirs, {1, 2, 100, 16000},
                           {{7, 255, 999, 0, 999, 0, 0}, {kOurs, fraction, lost, 1, jitter, 0, 0}}),
         1);
  };
  report(10, 5, 30);
  report(40, 9, 80);
  report(0, 9, 10);
  const StreamStatistics stream = Stream();
  EXPECT_EQ(stream.remote_packets_lost, 9u);
  EXPECT_EQ(stream.remote_fraction_lost_maximum, 40);
  EXPECT_EQ(stream.remote_jitter_maximum, 80u);
  EXPECT_EQ(stream.remote_jitter_average, 40u);
  EXPECT_EQ(stream.remote_packets_sent, 100u);
  EXPECT_EQ(stream.remote_octets_sent, 16000u);
  EXPECT_EQ(stream.sender_reports_received, 3u);
  report(0, -4, 10);
  EXPECT_EQ(Stream().remote_packets_lost, 0u);
}

TEST_F(Rtcp, SenderCountsGoOnBeyond32BitsAndMayBeginAnew) {
  Hear(1);
  const auto report = [&](uint32_t packets, uint32_t octets) {
    Take(SenderReportBytes(kTheirs, {1, 2, packets, octets}), 1);
  };
  report(1000, 0x7fffffff);
  report(2000, 0xfffffff0);
  report(3000, 0x00000010);
  EXPECT_EQ(Stream().remote_packets_sent, 3000u);
  EXPECT_EQ(Stream().remote_octets_sent, 0x100000010u);
  report(5, 800);
  EXPECT_EQ(Stream().remote_packets_sent, 5u);
}

TEST_F(Rtcp, TheSendersInformationIsThatOfTheSourceThatIsHeard) {
  Take(SenderReportBytes(0x99, {1, 2, 50, 8000}), 1);
  Send(1);
  EXPECT_EQ(Stream().remote_packets_sent, 50u);  // nothing is heard yet: who else
  Hear(1);
  EXPECT_EQ(Stream().remote_packets_sent, 0u);
  EXPECT_EQ(Stream().sender_reports_received, 0u);
  Take(SenderReportBytes(kTheirs, {1, 2, 7, 70}), 2);
  EXPECT_EQ(Stream().remote_packets_sent, 7u);
  EXPECT_EQ(Stream().sender_reports_received, 1u);
}

TEST_F(Rtcp, AnotherSourceHasFiguresOfItsOwn) {
  Send(2);
  Hear(1);
  Hear(3);
  Take(SenderReportBytes(kTheirs, {1, 2, 3, 480}, {{kOurs, 64, 1, 1, 5, 0, 0}}), 1);
  Hear(500, 0xcccc);
  Send(1);
  Take(SenderReportBytes(0xcccc, {1, 2, 1, 160}, {{kOurs, 0, 0, 1, 9, 0, 0}}), 2);
  const auto streams = session_.Streams(reception_);
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0].remote_ssrc, kTheirs);
  EXPECT_EQ(streams[0].packets_sent, 2u);
  EXPECT_EQ(streams[0].packets_received, 2u);
  EXPECT_EQ(streams[0].packets_lost, 1u);
  EXPECT_EQ(streams[0].remote_packets_sent, 3u);
  EXPECT_EQ(streams[0].remote_packets_lost, 1u);
  EXPECT_EQ(streams[0].remote_fraction_lost_maximum, 64);
  EXPECT_EQ(streams[1].remote_ssrc, 0xccccu);
  EXPECT_EQ(streams[1].packets_sent, 1u);
  EXPECT_EQ(streams[1].packets_lost, 0u);
  EXPECT_EQ(streams[1].remote_packets_sent, 1u);
  EXPECT_EQ(streams[1].remote_packets_lost, 0u);
  EXPECT_EQ(streams[1].remote_jitter_maximum, 9u);
}

TEST_F(Rtcp, TheFirstOfManySourcesAreKeptTogether) {
  for (uint32_t source = 1; source <= 10; ++source) {
    for (uint16_t number = 0; number < source; ++number) Hear(static_cast<uint16_t>(2 * number), source);
    Send(1);
  }
  const auto streams = session_.Streams(reception_);
  ASSERT_EQ(streams.size(), RtcpSession::kFormerSources + 1);
  EXPECT_EQ(streams.back().remote_ssrc, 10u);
  EXPECT_EQ(streams[1].remote_ssrc, 8u);
  EXPECT_EQ(streams[0].remote_ssrc, 7u);
  EXPECT_EQ(streams[0].packets_received, 1u + 2 + 3 + 4 + 5 + 6 + 7);
  EXPECT_EQ(streams[0].packets_lost, 0u + 1 + 2 + 3 + 4 + 5 + 6);
  EXPECT_EQ(streams[0].packets_sent, 7u);
  const StreamRecord total = session_.Total(reception_);
  EXPECT_EQ(total.packets_received, 55u);
  EXPECT_EQ(total.packets_lost, 45u);
  EXPECT_EQ(total.packets_sent, 10u);
}

TEST_F(Rtcp, ANewSsrcTakesLeaveOfTheFormerAndStartsCountingAnew) {
  session_.SetCname("c");
  Send(4);
  Report(1);
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 2, 1, 0, 0, 0}}), 2);
  EXPECT_FALSE(session_.HasAbandoned());
  session_.Renew(0x55, true, 640, At(5.125));
  session_.CountSent(kOurs, 160);  // was on its way
  ssrc_ = 0x55;
  Send(1);
  EXPECT_FALSE(session_.MayRenew());
  ASSERT_TRUE(session_.HasAbandoned());
  std::array<uint8_t, RtcpWriter::kLongest> room;
  const RtcpSeen farewell = Read(room, session_.WriteFarewell(room.data()));
  EXPECT_EQ(farewell.ssrc, kOurs);
  ASSERT_TRUE(farewell.sender);
  EXPECT_EQ(farewell.sender->packets, 5u);
  EXPECT_EQ(farewell.sender->octets, 800u);
  EXPECT_EQ(farewell.sender->timestamp, 640u);
  EXPECT_EQ(farewell.sender->ntp, 0xb44db70520000000u);
  EXPECT_EQ(farewell.cname_of, kOurs);
  EXPECT_EQ(farewell.goodbyes, std::vector<uint32_t>{kOurs});
  EXPECT_TRUE(session_.MayRenew());
  EXPECT_FALSE(session_.HasAbandoned());

  const RtcpSeen next = Report(6);
  EXPECT_EQ(next.ssrc, 0x55u);
  EXPECT_EQ(next.sender->packets, 1u);
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 100, 1, 0, 0, 0}}), 7);  // of what is no more
  Take(ReceiverReportBytes(kTheirs, {{0x55, 0, 3, 1, 0, 0, 0}}), 7);
  EXPECT_EQ(Stream().remote_packets_lost, 5u);  // 2 of the former, 3 of this
  EXPECT_EQ(Stream().packets_sent, 6u);
}

TEST_F(Rtcp, UnderANewSsrcNothingHasBeenSentOrReported) {
  Send(2);
  const auto stamp = static_cast<uint32_t>(Report(1).sender->ntp >> 16);
  Report(1.5);
  session_.Renew(0x55, true, 0, At(2));
  EXPECT_FALSE(Report(3).sender);
  Take(ReceiverReportBytes(kTheirs, {{0x55, 0, 0, 1, 0, stamp, 0}}), 4);
  EXPECT_EQ(Stream().round_trip_maximum_us, 0u);
}

TEST_F(Rtcp, WhoWasNeverHeardOfTakesNoLeave) {
  EXPECT_FALSE(session_.IsKnown());
  session_.Renew(0x55, session_.IsKnown(), 0, At(1));
  EXPECT_FALSE(session_.HasAbandoned());
  Report(2, false, 0, false);  // could not be sent
  EXPECT_FALSE(session_.IsKnown());
  Report(3);
  EXPECT_TRUE(session_.IsKnown());
}

TEST_F(Rtcp, TheLastReportHasTheLastBlockAndTheGoodbye) {
  Send(1);
  Hear(1);
  const RtcpSeen seen = Report(9, true);
  EXPECT_TRUE(seen.sender);
  EXPECT_EQ(seen.blocks.size(), 1u);
  EXPECT_EQ(seen.cname_of, kOurs);
  EXPECT_EQ(seen.goodbyes, std::vector<uint32_t>{kOurs});
}

TEST_F(Rtcp, AReportThatCouldNotBeSentIsNotCounted) {
  Send(1);
  const auto stamp = static_cast<uint32_t>(Report(1, false, 0, false).sender->ntp >> 16);
  Take(ReceiverReportBytes(kTheirs, {{kOurs, 0, 0, 1, 0, stamp, 0}}), 2);
  EXPECT_EQ(Stream().sender_reports_sent, 0u);
  EXPECT_EQ(Stream().round_trip_maximum_us, 0u);
}

TEST_F(Rtcp, ACnameIsDrawnUntilOneIsGivenAndLongOnesAreCutBetweenCharacters) {
  EXPECT_EQ(Report(1).cname, "800000008000000080000000");
  session_.SetCname(std::string(254, 'a') + "\xc3\xa4");  // a letter of two octets
  EXPECT_EQ(Report(2).cname, std::string(254, 'a'));
  session_.SetCname(std::string(300, 'b'));
  EXPECT_EQ(Report(3).cname, std::string(255, 'b'));
}

}  // namespace
}  // namespace media_engine_test
