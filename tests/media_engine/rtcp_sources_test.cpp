// Whose RTCP is believed, and which source our side is.
#include <set>

#include "rtcp_fixture.h"

namespace media_engine_test {
namespace {

class RtcpSources : public RtcpTest {
 protected:
  void Detect() { ASSERT_TRUE(a_.endpoint->DetectRemoteAddress(kLimit).ok); }
  void WaitForStrangers(uint64_t count) {
    EXPECT_TRUE(Eventually([&] { return a_.Statistics().rtcp_strangers == count; })) << a_.Statistics().rtcp_strangers;
  }
  void WaitForReceived(uint64_t count) {
    EXPECT_TRUE(Eventually([&] { return a_.Statistics().rtcp_packets_received == count; }))
        << a_.Statistics().rtcp_packets_received;
  }
  /// Sender reports that claim that many packets were sent.
  static Bytes Claim(uint32_t packets, uint32_t ssrc = 0x11111111) {
    return SenderReportBytes(ssrc, {1, 2, packets, 160 * packets});
  }
  uint64_t Claimed() const { return a_.Statistics().streams.at(0).remote_packets_sent; }
  void SendFrom(const FarEnd& from, uint16_t number) const {
    from.SendRtp({0, number, 160u * number, 0x11111111, false, PayloadOf(number)}, a_.local.rtp_port);
    EXPECT_TRUE(b_.far_end->ReceiveRtp());
  }
  void RenewWithRemote(const Leg& leg, bool renew) {
    LocalSettings settings = LocalFor(Pcmu());
    settings.source.renew_with_remote = renew;
    LocalDescription local;
    ASSERT_TRUE(leg.endpoint->DescribeLocal(settings, local, kLimit).ok);
  }

  FarEnd elsewhere_;
};

TEST_F(RtcpSources, OnlyTheDescribedAddressIsBelieved) {
  Carry(a_, b_, 1);
  SendRtcp(a_, Claim(10));
  WaitForReceived(1);
  elsewhere_.SendRtcp(Claim(99), a_.local.rtcp_port);
  a_.far_end->Send(Claim(98), a_.local.rtcp_port);  // the right host, and the port of its RTP
  WaitForStrangers(2);
  EXPECT_EQ(Claimed(), 10u);
  EXPECT_EQ(a_.Statistics().rtcp_packets_received, 1u);
}

TEST_F(RtcpSources, TheDescribedPortNeedNotBeTheOneAboveRtp) {
  RemoteDescription description = a_.far_end->Description(Pcmu());
  description.rtcp_port = elsewhere_.port();
  ASSERT_TRUE(a_.endpoint->DescribeRemote(description, kLimit).ok);
  elsewhere_.Send(Claim(10), a_.local.rtcp_port);
  WaitForReceived(1);
  SendRtcp(a_, Claim(10));
  WaitForStrangers(1);
  for (int i = 0; i < 35 && !elsewhere_.Receive(milliseconds{0}); ++i) {
    ASSERT_LT(i, 34) << "no report at the described port";
    Pass(a_, kStep);
  }
  EXPECT_FALSE(a_.far_end->ReceiveRtcp(milliseconds{0}));
}

TEST_F(RtcpSources, WhereRtpWasLearnedRtcpIsExpectedFromThePortAboveIt) {
  Detect();
  SendFrom(elsewhere_, 1);
  elsewhere_.SendRtcp(Claim(11), a_.local.rtcp_port);
  WaitForReceived(1);
  SendRtcp(a_, Claim(10));  // where it was described
  WaitForStrangers(1);
  EXPECT_EQ(Claimed(), 11u);
  for (int i = 0; i < 35 && !elsewhere_.ReceiveRtcp(milliseconds{0}); ++i) {
    ASSERT_LT(i, 34) << "no report at the learned address";
    Pass(a_, kStep);
  }
  EXPECT_FALSE(a_.far_end->ReceiveRtcp(milliseconds{0}));
}

TEST_F(RtcpSources, ThePortOfRtcpIsLearnedOnceFromAReportOfTheSourceThatIsHeard) {
  Detect();
  SendFrom(elsewhere_, 1);
  const FarEnd other, third;
  other.Send(Claim(50, 0x77), a_.local.rtcp_port);  // who does not know the SSRC is a stranger
  other.Send({0x80, 200, 0, 9}, a_.local.rtcp_port);
  WaitForStrangers(2);
  other.Send(Claim(12), a_.local.rtcp_port);
  WaitForReceived(1);
  EXPECT_EQ(Claimed(), 12u);
  third.Send(Claim(51), a_.local.rtcp_port);  // only once
  elsewhere_.SendRtcp(Claim(52), a_.local.rtcp_port);
  WaitForStrangers(4);
  EXPECT_EQ(Claimed(), 12u);
  for (int i = 0; i < 35 && !other.Receive(milliseconds{0}); ++i) {
    ASSERT_LT(i, 34) << "no report at the learned port";
    Pass(a_, kStep);
  }
}

TEST_F(RtcpSources, APortIsLearnedOnlyForAWhileAndFromNoOtherHost) {
  Detect();
  SendFrom(elsewhere_, 1);
  // A host of its own on loopback, towards ours.
  media_engine::UdpSocket other_host;
  ASSERT_EQ(other_host.Bind(*SocketAddress::Parse("127.0.0.2", 0)), 0);
  const SocketAddress to = *SocketAddress::Parse("127.0.0.1", a_.local.rtcp_port);
  const Bytes claim = Claim(50);
  ASSERT_GT(sendto(other_host.fd(), claim.data(), claim.size(), 0, to.native(), to.length()), 0);
  WaitForStrangers(1);
  clock_->Advance(seconds{10} + milliseconds{1});
  const FarEnd other;
  other.Send(Claim(51), a_.local.rtcp_port);
  WaitForStrangers(2);
  elsewhere_.SendRtcp(Claim(9), a_.local.rtcp_port);
  WaitForReceived(1);
  EXPECT_EQ(Claimed(), 9u);
}

TEST_F(RtcpSources, OnceReportsComeAsExpectedNoOtherPortIsLearned) {
  Detect();
  SendFrom(elsewhere_, 1);
  elsewhere_.SendRtcp(Claim(9), a_.local.rtcp_port);
  WaitForReceived(1);
  const FarEnd other;
  other.Send(Claim(50), a_.local.rtcp_port);
  WaitForStrangers(1);
}

TEST_F(RtcpSources, DamagedReportsAreCountedAndSayNothing) {
  Carry(a_, b_, 1);
  SendRtcp(a_, Claim(10));
  WaitForReceived(1);
  const Bytes whole =
      SenderReportBytes(0x11111111, {1, 2, 666, 1}, {{a_.Statistics().local_ssrc, 255, 666, 1, 666, 0, 0}}) +
      CnameBytes(0x11111111, "a") + GoodbyeBytes({0x11111111});
  uint64_t sent = 0;
  for (std::size_t length = 0; length < 52; ++length) {  // all that cut into the report itself
    SendRtcp(a_, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    ++sent;
  }
  for (std::size_t length = 53; length < whole.size(); ++length) {
    if (length == 52 + 12) continue;  // a sound compound without the goodbye
    SendRtcp(a_, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    ++sent;
  }
  EXPECT_TRUE(Eventually([&] { return a_.Statistics().rtcp_malformed == sent; })) << a_.Statistics().rtcp_malformed;
  SendRtcp(a_, Bytes(5000, 0x80));
  EXPECT_TRUE(Eventually([&] { return a_.Statistics().oversized == 1; }));
  const StreamStatistics stream = a_.Statistics().streams.at(0);
  EXPECT_EQ(stream.remote_packets_sent, 10u);
  EXPECT_EQ(stream.remote_packets_lost, 0u);
  EXPECT_EQ(stream.remote_fraction_lost_maximum, 0);
  CarryRun(a_, b_, 2, 3);
  CarryRun(b_, a_, 2, 3, 0xb0b);
}

TEST_F(RtcpSources, AHundredThousandSpoofedPacketsChangeNothing) {
  CarryRun(a_, b_, 1, 2);
  CarryRun(b_, a_, 1, 2, 0xb0b);
  const uint32_t ours = a_.Statistics().local_ssrc;
  // All that could be guessed about the call is right.
  const Bytes report = SenderReportBytes(0x11111111, {1, 2, 666, 1}, {{ours, 255, 666, 1, 666, 1, 0}}) +
                       CnameBytes(0x11111111, "a") + GoodbyeBytes({0x11111111});
  constexpr uint16_t kRounds = 500, kEach = 100;
  for (uint16_t round = 0; round < kRounds; ++round) {
    for (uint16_t i = 0; i < kEach; ++i) {
      const auto number = static_cast<uint16_t>(3 + round + i);
      elsewhere_.SendRtp({0, number, 160u * number, 0x11111111, false, PayloadOf(7)}, a_.local.rtp_port);
      elsewhere_.SendRtcp(report, a_.local.rtcp_port);
    }
    // No more at once than fits into the sockets.
    ASSERT_TRUE(Eventually([&] {
      const EndpointStatistics now = a_.Statistics();
      return now.strangers == (round + 1u) * kEach && now.rtcp_strangers == (round + 1u) * kEach;
    }));
    Carry(a_, b_, static_cast<uint16_t>(3 + round));
    Carry(b_, a_, static_cast<uint16_t>(3 + round), 0xb0b);
    Pass(a_, milliseconds{20});
  }
  const EndpointStatistics statistics = a_.Statistics();
  EXPECT_EQ(statistics.rtp_packets_received, 2u + kRounds);
  EXPECT_EQ(statistics.rtp_packets_lost, 0u);
  EXPECT_EQ(statistics.rtcp_packets_received, 0u);
  ASSERT_EQ(statistics.streams.size(), 1u);
  EXPECT_EQ(statistics.streams[0].remote_packets_lost, 0u);
  EXPECT_EQ(statistics.streams[0].sender_reports_received, 0u);
  EXPECT_EQ(statistics.local_ssrc, ours);
  EXPECT_FALSE(elsewhere_.Receive(milliseconds{0}));
  EXPECT_FALSE(elsewhere_.ReceiveRtcp(milliseconds{0}));
  EXPECT_TRUE(NextRtcp(a_));  // the far end's own reports have gone on
}

TEST_F(RtcpSources, WithoutTheSettingTheStreamGoesOnWhateverTheSourceBehindIt) {
  const Rtp before = Carry(a_, b_, 1, 0x1);
  const Rtp after = Carry(a_, b_, 7000, 0x2);
  EXPECT_EQ(after.ssrc, before.ssrc);
  EXPECT_EQ(after.sequence_number, static_cast<uint16_t>(before.sequence_number + 1));
  Pass(a_, kStep);
  EXPECT_FALSE(b_.far_end->ReceiveRtcp(milliseconds{0}));
}

TEST_F(RtcpSources, WithTheSettingTheStreamTakesANewSsrcWithTheSourceBehindIt) {
  RenewWithRemote(a_, true);
  const Rtp before = Carry(a_, b_, 1, 0x1);
  Carry(a_, b_, 2, 0x1);
  Carry(b_, a_, 1, 0xb0b);
  const Rtp after = Carry(a_, b_, 7000, 0x2);
  EXPECT_NE(after.ssrc, before.ssrc);
  EXPECT_TRUE(after.marker);
  EXPECT_EQ(Carry(a_, b_, 7001, 0x2).ssrc, after.ssrc);
  Pass(b_, kStep);
  const auto farewell = NextRtcp(b_, milliseconds{0});
  ASSERT_TRUE(farewell && farewell->sender);
  EXPECT_EQ(farewell->ssrc, before.ssrc);
  EXPECT_EQ(farewell->sender->packets, 2u);
  EXPECT_EQ(farewell->sender->octets, 320u);
  EXPECT_EQ(farewell->goodbyes, std::vector<uint32_t>{before.ssrc});
  const auto next = NextRtcp(b_);
  ASSERT_TRUE(next && next->sender);
  EXPECT_EQ(next->ssrc, after.ssrc);
  EXPECT_EQ(next->sender->packets, 2u);
  EXPECT_TRUE(next->goodbyes.empty());
  // The other way B's far end has not changed, and neither has the stream.
  EXPECT_EQ(Carry(b_, a_, 2, 0xb0b).ssrc, a_.Statistics().local_ssrc);
  const auto streams = a_.Statistics().streams;
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0].remote_ssrc, 1u);
  EXPECT_EQ(streams[1].remote_ssrc, 2u);
  EXPECT_EQ(b_.Statistics().streams.size(), 1u);
}

TEST_F(RtcpSources, ASourceThatChangesWithEveryPacketGetsOneNewSsrcPerTurnOfTheTimers) {
  RenewWithRemote(a_, true);
  Carry(a_, b_, 0, 1);
  std::set<uint32_t> ssrcs;
  for (uint16_t i = 1; i <= 100; ++i) ssrcs.insert(Carry(a_, b_, static_cast<uint16_t>(1000 * i), 1u + i % 2).ssrc);
  EXPECT_EQ(ssrcs.size(), 1u);
  Pass(b_, kStep);
  EXPECT_EQ(NextRtcp(b_, milliseconds{0})->goodbyes.size(), 1u);
  EXPECT_EQ(ssrcs.count(Carry(a_, b_, 7, 99).ssrc), 0u);
}

TEST_F(RtcpSources, AJoinWithSomebodyElseKeepsTheSsrc) {
  RenewWithRemote(a_, true);
  const Leg c = NewCallLeg(*session_);
  const Rtp before = Carry(a_, b_, 1, 0x1);
  ASSERT_TRUE(c.endpoint->Join(Direction::kDuplex, *b_.endpoint, kLimit).ok);
  EXPECT_EQ(Carry(c, b_, 500, 0xc).ssrc, before.ssrc);
}

TEST_F(RtcpSources, ASourceThatIsNotPassedOnChangesNoSsrc) {
  RenewWithRemote(a_, true);
  const Rtp before = Carry(a_, b_, 1, 0x1);
  ASSERT_TRUE(a_.endpoint->Join(Direction::kSend, *b_.endpoint, kLimit).ok);
  a_.SendRun(2, 1, 0, 0x2);
  ASSERT_TRUE(Eventually([&] { return a_.Statistics().source_changes == 1; }));
  EXPECT_EQ(b_.Statistics().local_ssrc, before.ssrc);
  ASSERT_TRUE(a_.endpoint->Join(Direction::kDuplex, *b_.endpoint, kLimit).ok);
  EXPECT_EQ(Carry(a_, b_, 3, 0x2).ssrc, before.ssrc);
}

TEST_F(RtcpSources, AFarEndThatUsesOurSsrcMakesUsTakeAnotherOnce) {
  const uint32_t ours = a_.Statistics().local_ssrc;
  Carry(b_, a_, 1, 0xb0b);
  Carry(a_, b_, 1, ours);
  const uint32_t next = a_.Statistics().local_ssrc;
  EXPECT_NE(next, ours);
  Pass(a_, kStep);
  EXPECT_EQ(NextRtcp(a_, milliseconds{0})->goodbyes, std::vector<uint32_t>{ours});
  Carry(a_, b_, 2, next);  // it sends our packets back to us
  EXPECT_EQ(a_.Statistics().local_ssrc, next);
  Pass(a_, kStep);
  EXPECT_FALSE(a_.far_end->ReceiveRtcp(milliseconds{0}));
}

}  // namespace
}  // namespace media_engine_test
