// Jitter buffers of endpoints: descriptions, joins, imports.
#include "engine_fixture.h"

namespace media_engine_test {
namespace {

constexpr milliseconds kDelay{60};

class JitterJoin : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
  }
  static LocalSettings With(JitterMode mode, std::optional<int> initial = kDelay.count(), uint8_t events = 0) {
    LocalSettings settings = LocalFor(Pcmu(), events);
    settings.jitter_buffer = JitterBufferSettings{mode, initial, std::nullopt, std::nullopt};
    return settings;
  }
  Leg NewBufferedLeg(uint8_t events = 0) {
    Leg leg = NewCallLeg(*session_, Pcmu(), events);
    Describe(leg, With(JitterMode::kStatic, kDelay.count(), events));
    return leg;
  }
  static void Describe(Leg& leg, const LocalSettings& settings) {
    const Outcome outcome = leg.endpoint->DescribeLocal(settings, leg.local, kLimit);
    ASSERT_TRUE(outcome.ok) << outcome.reason;
  }
  static void JoinThem(const Leg& a, const Leg& b, Direction direction = Direction::kDuplex) {
    const Outcome outcome = a.endpoint->Join(direction, *b.endpoint, kLimit);
    ASSERT_TRUE(outcome.ok) << outcome.reason;
  }
  /// Sends, and returns once the packet is held or has gone.
  static void Deliver(const Leg& leg, const Rtp& packet) {
    const uint64_t before = leg.Statistics().rtp_packets_received;
    leg.Send(packet);
    ASSERT_TRUE(Eventually([&] { return leg.Statistics().rtp_packets_received > before; }));
  }
  static Rtp Packet(uint16_t number) { return {0, number, 160u * number, 1, false, PayloadOf(number)}; }
  static bool CameAtOnce(const Leg& leg) { return leg.far_end->ReceiveRtp(milliseconds{0}).has_value(); }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

TEST_F(JitterJoin, PacketsPassAtOnceWithoutABufferAndWhenItsDelayHasPassedWithOne) {
  const Leg a = NewBufferedLeg(), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(b, Packet(1));
  EXPECT_TRUE(CameAtOnce(a));  // the buffer is for what a's far end sends
  Deliver(a, Packet(1));
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
  EXPECT_EQ(a.Statistics().jitter_buffer_delay_ms, 60u);
  clock_->Advance(kDelay);
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(1), 0);
}

TEST_F(JitterJoin, WhatComesOutIsInOrderAndWhatCameTooLateLeavesAGap) {
  const Leg a = NewBufferedLeg(), b = NewCallLeg(*session_);
  JoinThem(a, b);
  for (uint16_t number : {1, 3, 2}) Deliver(a, Packet(number));
  clock_->Advance(milliseconds{200});
  std::vector<std::optional<Rtp>> came;
  for (int i = 0; i < 3; ++i) came.push_back(b.far_end->ReceiveRtp());
  Deliver(a, Packet(4));   // 60 ms of delay and 60 ms of speech ago
  Deliver(a, Packet(11));  // sent when it came
  clock_->Advance(kDelay);
  came.push_back(b.far_end->ReceiveRtp());
  const uint16_t expected[] = {1, 2, 3, 11};
  for (std::size_t i = 0; i < 4; ++i) {
    ExpectCarried(came[i], Packet(expected[i]), 0);
    ASSERT_TRUE(came[0] && came[i]);
    EXPECT_EQ(static_cast<uint16_t>(came[i]->sequence_number - came[0]->sequence_number), expected[i] - 1);
    EXPECT_EQ(came[i]->timestamp - came[0]->timestamp, 160u * (expected[i] - 1));
  }
  const EndpointStatistics statistics = a.Statistics();
  EXPECT_EQ(statistics.jitter_buffer_reordered, 1u);
  EXPECT_EQ(statistics.jitter_buffer_late, 1u);
  EXPECT_EQ(statistics.rtp_packets_received, 5u);
}

TEST_F(JitterJoin, DigitsComeThroughWithAllTheirPackets) {
  const Leg a = NewBufferedLeg(101), b = NewCallLeg(*session_, Pcmu(), 96);
  JoinThem(a, b);
  std::vector<Rtp> sent;
  sent.push_back(Packet(1));
  for (uint16_t i = 0; i < 20; ++i) {
    sent.push_back(
        {101, static_cast<uint16_t>(2 + i), 320, 1, i == 0, {5, 10, uint8_t(i * 160 >> 8), uint8_t(i * 160)}});
  }
  for (uint16_t i = 0; i < 3; ++i) {
    sent.push_back({101, static_cast<uint16_t>(22 + i), 320, 1, false, {5, 0x8a, 0x0c, 0x80}});
  }
  for (const Rtp& packet : sent) {
    Deliver(a, packet);
    clock_->Advance(milliseconds{20});
  }
  clock_->Advance(kDelay);
  std::optional<Rtp> first;
  for (const Rtp& packet : sent) {
    const auto came = b.far_end->ReceiveRtp();
    ExpectCarried(came, packet, packet.payload_type == 0 ? 0 : 96);
    if (!first) first = came;
    EXPECT_EQ(came->timestamp - first->timestamp, packet.timestamp - 160);
    EXPECT_EQ(came->marker, packet.marker || packet.sequence_number == 1);
  }
  EXPECT_EQ(a.Statistics().jitter_buffer_late, 0u);
}

TEST_F(JitterJoin, TheEndOfAJoinEndsWhatIsHeld) {
  const Leg a = NewBufferedLeg(), b = NewCallLeg(*session_), c = NewCallLeg(*session_);
  JoinThem(a, b);
  for (uint16_t number : {1, 2}) Deliver(a, Packet(number));
  JoinThem(a, c);
  Deliver(a, Packet(3));
  ASSERT_TRUE(a.endpoint->Unjoin(*c.endpoint, kLimit).ok);
  Deliver(a, Packet(4));
  clock_->Advance(seconds{1});
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
  EXPECT_FALSE(c.far_end->ReceiveRtp(kNothingComes));
  EXPECT_EQ(a.Statistics().jitter_buffer_discarded, 3u);
  EXPECT_EQ(a.Statistics().not_joined, 1u);
  JoinThem(a, b);
  Deliver(a, Packet(100));
  clock_->Advance(kDelay);
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(100), 0);
}

TEST_F(JitterJoin, ADirectionThatNoLongerFlowsEndsWhatIsHeldAndOneThatFlowsOnDoesNot) {
  const Leg a = NewBufferedLeg(), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  JoinThem(a, b, Direction::kReceive);  // a's far end is heard still
  clock_->Advance(kDelay);
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(1), 0);
  Deliver(a, Packet(5));
  JoinThem(a, b, Direction::kSend);
  clock_->Advance(seconds{1});
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
  EXPECT_EQ(a.Statistics().jitter_buffer_discarded, 1u);
}

TEST_F(JitterJoin, ARepeatedDescriptionLeavesTheBufferAlone) {
  Leg a = NewBufferedLeg();
  const Leg b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  Describe(a, With(JitterMode::kStatic));
  Describe(a, LocalFor(Pcmu()));  // says nothing of it
  ASSERT_TRUE(a.endpoint->DescribeRemote(a.far_end->Description(Pcmu()), kLimit).ok);
  clock_->Advance(kDelay);
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(1), 0);
}

TEST_F(JitterJoin, AnotherDescriptionChangesOrEndsTheBuffer) {
  Leg a = NewBufferedLeg();
  const Leg b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  Describe(a, With(JitterMode::kStatic, 100));
  Deliver(a, Packet(2));
  clock_->Advance(kDelay);
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
  clock_->Advance(milliseconds{40});
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(2), 0);
  Deliver(a, Packet(10));
  Describe(a, With(JitterMode::kNone));
  Deliver(a, Packet(11));
  ExpectCarried(b.far_end->ReceiveRtp(milliseconds{0}), Packet(11), 0);
  // The counters stay when the buffer has gone.
  EXPECT_EQ(a.Statistics().jitter_buffer_discarded, 2u);
  EXPECT_EQ(a.Statistics().jitter_buffer_delay_ms, 0u);
}

TEST_F(JitterJoin, PassThroughIsNotBuffered) {
  Leg a = NewBufferedLeg(), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  for (Leg* leg : {&a, &b}) {
    LocalSettings settings = With(JitterMode::kStatic);
    settings.udp_pass_through = true;
    Describe(*leg, settings);
    RemoteDescription remote = leg->far_end->Description(Pcmu());
    remote.udp_pass_through = true;
    ASSERT_TRUE(leg->endpoint->DescribeRemote(remote, kLimit).ok);
  }
  a.far_end->Send({1, 2, 3}, a.local.rtp_port);
  EXPECT_EQ(b.far_end->Receive(), (Bytes{1, 2, 3}));
  clock_->Advance(seconds{1});
  EXPECT_FALSE(b.far_end->Receive(kNothingComes));
  EXPECT_EQ(a.Statistics().jitter_buffer_discarded, 1u);
}

TEST_F(JitterJoin, AnImportedEndpointTakesItsBufferAlong) {
  const Leg a = NewBufferedLeg(), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  const auto other = NewSession(*server_);  // on the other worker
  const Leg c = NewCallLeg(*other);
  ASSERT_TRUE(other->Import(*a.endpoint).ok);
  JoinThem(a, c);
  EXPECT_EQ(a.Statistics().jitter_buffer_discarded, 1u);
  Deliver(a, Packet(2));
  EXPECT_FALSE(c.far_end->ReceiveRtp(milliseconds{0}));
  clock_->Advance(kDelay);
  ExpectCarried(c.far_end->ReceiveRtp(), Packet(2), 0);
  // Back again, with a packet held, and to its end.
  Deliver(a, Packet(3));
  ASSERT_TRUE(session_->Import(*a.endpoint).ok);
  JoinThem(a, b);
  Deliver(a, Packet(4));
  clock_->Advance(kDelay);
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(4), 0);
  Deliver(a, Packet(5));
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  clock_->Advance(kDelay);
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
}

TEST_F(JitterJoin, DelaysOutOfRangeAreCorrectedWithOneWarning) {
  Leg a = NewCallLeg(*session_);
  const Leg b = NewCallLeg(*session_);
  LocalSettings settings = LocalFor(Pcmu());
  settings.jitter_buffer = JitterBufferSettings{JitterMode::kAdaptive, 400, 20, 100};
  for (int i = 0; i < 3; ++i) Describe(a, settings);
  EXPECT_EQ(log_.Count(LogLevel::kWarning, "jitter buffer: initial delay 400 ms is not in 20-100, 100 is taken"), 1u);
  JoinThem(a, b);
  Deliver(a, Packet(1));
  clock_->Advance(milliseconds{99});
  EXPECT_FALSE(b.far_end->ReceiveRtp(kNothingComes));
  clock_->Advance(milliseconds{1});
  ExpectCarried(b.far_end->ReceiveRtp(), Packet(1), 0);
}

TEST_F(JitterJoin, ThePacketsOfManyLegsAllComeOutInTheirOrder) {
  std::vector<std::pair<Leg, Leg>> pairs;
  for (int i = 0; i < 8; ++i) {
    pairs.emplace_back(NewBufferedLeg(), NewCallLeg(*session_));
    JoinThem(pairs.back().first, pairs.back().second);
  }
  for (uint16_t number = 1; number <= 100; ++number) {
    for (auto& [a, b] : pairs) Deliver(a, Packet(static_cast<uint16_t>(number ^ 1)));  // 0, 3, 2, 5, 4 ... 98, 101
    clock_->Advance(milliseconds{20});
  }
  clock_->Advance(kDelay);
  for (auto& [a, b] : pairs) {
    uint16_t last = 0;
    for (int i = 0; i < 100; ++i) {
      const auto came = b.far_end->ReceiveRtp();
      ASSERT_TRUE(came) << i;
      const auto step = static_cast<uint16_t>(came->sequence_number - last);
      EXPECT_TRUE(i == 0 || step == (i == 1 || i == 99 ? 2 : 1)) << i << ": " << step;
      last = came->sequence_number;
    }
    EXPECT_EQ(a.Statistics().jitter_buffer_reordered, 49u);
  }
}

}  // namespace
}  // namespace media_engine_test
