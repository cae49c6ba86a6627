// The worker thread of a running server, while packets flow: it takes no lock and allocates nothing, whatever is done
// to them on their way. After a warm-up, since tables that grow to their size do so with the first packets.
#include <sys/socket.h>
#include <unistd.h>

#include "packet_path_fixture.h"

namespace media_engine_test {
namespace {

TEST_F(PacketPath, IsCountedAtAll) {
  const CountedCalls before = CallsSoFar();
  // A task for the worker's own thread, which passes the mailbox; what it was made of is freed behind it.
  server_->StallWorker(0, true);
  server_->StallWorker(0, false);
  EXPECT_TRUE(Eventually([&] {
    const CountedCalls now = CallsSoFar();
    return now.allocations > before.allocations && now.locks > before.locks;
  }));
}

TEST(CountedCalls, AreAllThatSendAndReceiveDatagrams) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
  char octet = 0;
  iovec part{&octet, 1};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  mmsghdr messages[1] = {{message, 0}};
  const CountedCalls before = CallsSoFar();
  std::thread([&] {
    CountThisThread();
    EXPECT_EQ(send(ends[0], &octet, 1, 0), 1);
    EXPECT_EQ(sendto(ends[0], &octet, 1, 0, nullptr, 0), 1);
    EXPECT_EQ(sendmsg(ends[0], &message, 0), 1);
    EXPECT_EQ(sendmmsg(ends[0], messages, 1, 0), 1);
    EXPECT_EQ(write(ends[0], &octet, 1), 1);
    EXPECT_EQ(recv(ends[1], &octet, 1, 0), 1);
    EXPECT_EQ(recvfrom(ends[1], &octet, 1, 0, nullptr, nullptr), 1);
    EXPECT_EQ(recvmsg(ends[1], &message, 0), 1);
    EXPECT_EQ(recvmmsg(ends[1], messages, 1, 0, nullptr), 1);
  }).join();
  const CountedCalls after = CallsSoFar();
  EXPECT_EQ(after.sends - before.sends, 5u);
  EXPECT_EQ(after.receives - before.receives, 4u);
  for (const int end : ends) close(end);
}

TEST_F(PacketPath, CarriesSpeechAndDigitsWithoutLocksAndAllocations) {
  const Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcmu());
  JoinThem(a, b);
  const CountedCalls counted = Count([&](uint16_t number) {
    Carry(a, b, Speech(number, number % 10 == 0 ? 101 : 0));
    Carry(b, a, Speech(number));
  });
  ExpectNone(counted);
  EXPECT_GE(counted.sends, 2u * kCounted);
}

TEST_F(PacketPath, ConvertsBetweenTheLawsOfG711WithoutLocksAndAllocations) {
  const Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcma());
  JoinThem(a, b);
  const CountedCalls counted = Count([&](uint16_t number) {
    Carry(a, b, Speech(number));
    Carry(b, a, Speech(number, 8));
  });
  ExpectNone(counted);
}

TEST_F(PacketPath, HoldsAndPlaysOutOfJitterBuffersWithoutLocksAndAllocations) {
  LocalSettings buffered, adaptive;
  buffered.jitter_buffer = JitterBufferSettings{JitterMode::kStatic, 40, {}, {}};
  adaptive.jitter_buffer = JitterBufferSettings{JitterMode::kAdaptive, 40, 20, 100};
  const Leg a = MakeLeg(Pcmu(), buffered), b = MakeLeg(Pcmu(), adaptive);
  JoinThem(a, b);
  // What they carry has passed the worker behind all that was sent before.
  const Leg c = MakeLeg(Pcmu()), d = MakeLeg(Pcmu());
  JoinThem(c, d);
  const CountedCalls counted = Count([&](uint16_t number) {
    // Every tenth comes twice, every tenth behind the next.
    for (const Leg* leg : {&a, &b}) {
      if (number % 10 != 5) leg->Send(Speech(number));
      if (number % 10 == 6) leg->Send(Speech(static_cast<uint16_t>(number - 1)));
      if (number % 10 == 0) leg->Send(Speech(number));
    }
    Carry(c, d, Speech(number));
    if (number <= 10) return;  // in step: each far end gets what was sent some packets ago
    ASSERT_TRUE(a.far_end->ReceiveRtp());
    ASSERT_TRUE(b.far_end->ReceiveRtp());
  });
  ExpectNone(counted);
  EXPECT_GE(a.Statistics().jitter_buffer_duplicates, kCounted / 10u);
  EXPECT_GE(b.Statistics().jitter_buffer_reordered, kCounted / 10u);
}

TEST_F(PacketPath, TakesAndSendsReportsWithoutLocksAndAllocations) {
  const Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcmu());
  JoinThem(a, b);
  const CountedCalls counted = Count([&](uint16_t number) {
    time_->Advance(milliseconds{480});
    a.far_end->SendRtcp(
        SenderReportBytes(0x11111111, {1, 2, 3, 4}, {{5, 6, 7, 8, 9, 10, 11}}) + CnameBytes(0x11111111, "far end"),
        a.local.rtcp_port);
    Carry(a, b, Speech(number));
  });
  ExpectNone(counted);
  const EndpointStatistics statistics = b.Statistics();
  EXPECT_GE(a.Statistics().rtcp_packets_received, kCounted);
  EXPECT_GE(statistics.rtcp_packets_sent, kCounted / 20u);  // half a second each, ten seconds for a report at most
}

TEST_F(PacketPath, RelaysImagesWithoutLocksAndAllocations) {
  Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcmu());
  for (Leg* leg : {&a, &b}) {
    LocalSettings local;
    local.udp_pass_through = true;
    RemoteDescription remote = leg->far_end->Description(Pcmu());
    remote.udp_pass_through = true;
    ASSERT_TRUE(leg->endpoint->DescribeLocal(local, leg->local, kLimit).ok);
    ASSERT_TRUE(leg->endpoint->DescribeRemote(remote, kLimit).ok);
  }
  JoinThem(a, b);
  const CountedCalls counted = Count([&](uint16_t number) {
    const Bytes datagram = PayloadOf(number, 1u + number % 300);
    a.far_end->Send(datagram, a.local.rtp_port);
    ASSERT_EQ(b.far_end->Receive(), datagram);
    b.far_end->Send(datagram, b.local.rtp_port);
    ASSERT_EQ(a.far_end->Receive(), datagram);
  });
  ExpectNone(counted);
  EXPECT_EQ(a.Statistics().datagrams_relayed, 0u + kWarmUp + kCounted);
}

TEST_F(PacketPath, DropsWhatIsNotWantedWithoutLocksAndAllocations) {
  const Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcmu());
  JoinThem(a, b);
  const FarEnd stranger;
  const CountedCalls counted = Count([&](uint16_t number) {
    stranger.SendRtp(Speech(number), a.local.rtp_port);
    stranger.SendRtcp(ReceiverReportBytes(1), a.local.rtcp_port);
    a.far_end->Send({1, 2, 3}, a.local.rtp_port);
    a.far_end->SendRtcp({0x80, 200, 0}, a.local.rtcp_port);
    a.Send({77, number, 0, 0x22222222, false, {}});
    a.far_end->Send(Bytes(4000, 0x80), a.local.rtp_port);
    Carry(a, b, Speech(number));
  });
  ExpectNone(counted);
  EXPECT_EQ(a.Statistics().strangers, 0u + kWarmUp + kCounted);
}

TEST_F(PacketPath, ABatchCostsOneReceiveAndOneSend) {
  const Leg a = MakeLeg(Pcmu()), b = MakeLeg(Pcmu());
  JoinThem(a, b);
  Carry(a, b, Speech(1));
  const uint64_t waits = CallsSoFar().waits;
  server_->StallWorker(0, true);
  ASSERT_TRUE(Eventually([&] { return CallsSoFar().waits > waits; }));
  for (uint16_t number = 2; number < 22; ++number) a.Send(Speech(number));
  const CountedCalls before = CallsSoFar();
  server_->StallWorker(0, false);
  for (uint16_t number = 2; number < 22; ++number) ASSERT_TRUE(b.far_end->ReceiveRtp());
  const CountedCalls after = CallsSoFar();
  EXPECT_EQ(after.receives - before.receives, 1u);
  EXPECT_EQ(after.sends - before.sends, 1u);
}

}  // namespace
}  // namespace media_engine_test
