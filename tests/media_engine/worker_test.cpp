// A worker turned by hand: no threads, time as the test says.
#include <cstdlib>
#include <new>

#include "rtcp_bytes.h"
#include "worker_fixture.h"

namespace {

/// Allocations of this thread.
thread_local std::size_t allocations = 0;

}  // namespace

// Replaced for the whole program, so that a test can tell that nothing was allocated. Not inlined: the compiler would
// see memory of "new" handed to "free".
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace media_engine_test {
namespace {

TEST_F(WorkerTurns, AFloodDoesNotKeepTheOthersWaiting) {
  const TurnedLeg flooded = NewLeg(), a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  SendRun(flooded, 1, 200);
  SendRun(a, 1, 1);
  Turn();
  EXPECT_TRUE(b.far_end.ReceiveRtp(milliseconds{0}));
  uint64_t taken = flooded.participant->Statistics().rtp_packets_received;
  EXPECT_LE(taken, PacketMover::kBatch);
  while (taken < 200) {
    Turn();
    const uint64_t now = flooded.participant->Statistics().rtp_packets_received;
    ASSERT_GT(now, taken);
    ASSERT_LE(now - taken, PacketMover::kBatch);
    taken = now;
  }
}

TEST_F(WorkerTurns, OnePacketIsTakenAloneAndWhatPilesUpBehindItTogether) {
  const TurnedLeg a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  Turn();
  SendRun(a, 1, 20);
  Turn();
  EXPECT_EQ(a.participant->Statistics().rtp_packets_received, 1u);
  Turn();
  EXPECT_EQ(a.participant->Statistics().rtp_packets_received, 20u);
  for (uint16_t number = 1; number <= 20; ++number) {
    ExpectCarried(b.far_end.ReceiveRtp(milliseconds{0}), {0, number, 160u * number, 1, false, PayloadOf(number)}, 0);
  }
}

TEST_F(WorkerTurns, PacketsAreMovedWithoutAllocating) {
  const TurnedLeg a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  const FarEnd stranger;
  SendRun(a, 1, 1);
  Turn();
  uint64_t moved = 1;
  for (uint16_t round = 0; round < 20; ++round) {
    SendRun(a, static_cast<uint16_t>(2 + 20 * round), 20);
    stranger.SendRtp({0, 1, 1, 1, false, {}}, a.port);
    a.far_end.Send({1, 2, 3}, a.port);
    const std::size_t before = allocations;
    for (int turn = 0; turn < 3; ++turn) Turn();  // one, the others, and one in which there is nothing
    EXPECT_EQ(allocations, before);
    moved += 20;
  }
  EXPECT_EQ(b.participant->Statistics().rtp_packets_sent, moved);
  EXPECT_EQ(a.participant->Statistics().strangers, 20u);
  EXPECT_EQ(a.participant->Statistics().malformed, 20u);
}

TEST_F(WorkerTurns, AJitterBufferHoldsAndPlaysWithoutAllocating) {
  const JitterBufferSettings buffer{JitterMode::kAdaptive, 40, 20, 100};
  const TurnedLeg a = NewLeg(nullptr, seconds{0}, buffer), b = NewLeg(nullptr, seconds{0}, buffer);
  JoinThem(a, b);
  SendRun(a, 0, 1);
  Turn();
  for (uint16_t number = 1; number < 300; ++number) {
    clock_->Advance(milliseconds{20});
    if (number % 10 == 0) {
      a.far_end.SendRtp({0, static_cast<uint16_t>(number - 5), 0, 1, false, PayloadOf(number, 1200)}, a.port);
    }
    SendRun(a, number, 1);
    const std::size_t before = allocations;
    Turn();
    EXPECT_EQ(allocations, before);
  }
  clock_->Advance(milliseconds{100});
  Turn();
  EXPECT_EQ(b.participant->Statistics().rtp_packets_sent, 300u);
  EXPECT_EQ(a.participant->Statistics().jitter_buffer_duplicates, 29u);
}

TEST_F(WorkerTurns, PlaysEachPacketWhenItIsDueAndOnlyThen) {
  const TurnedLeg a = NewLeg(nullptr, seconds{0}, JitterBufferSettings{JitterMode::kStatic, 50, {}, {}});
  const TurnedLeg b = NewLeg(), c = NewLeg(), d = NewLeg();
  JoinThem(a, b);
  JoinThem(c, d);
  SendRun(a, 1, 1);
  SendRun(c, 1, 1);
  Turn();
  EXPECT_TRUE(d.far_end.ReceiveRtp(milliseconds{0}));  // without a buffer at once
  clock_->Advance(milliseconds{20});
  SendRun(a, 2, 1);
  Turn();
  clock_->Advance(milliseconds{29});
  Turn();
  EXPECT_FALSE(b.far_end.ReceiveRtp(milliseconds{0}));
  clock_->Advance(milliseconds{1});
  Turn();
  ExpectCarried(b.far_end.ReceiveRtp(milliseconds{0}), {0, 1, 160, 1, false, PayloadOf(1)}, 0);
  EXPECT_FALSE(b.far_end.ReceiveRtp(milliseconds{0}));
  clock_->Advance(milliseconds{20});
  Turn();
  ExpectCarried(b.far_end.ReceiveRtp(milliseconds{0}), {0, 2, 320, 1, false, PayloadOf(2)}, 0);
}

TEST_F(WorkerTurns, AnEndpointThatHasMovedIsPlayedByItsNewWorkerOnly) {
  const auto mailbox = std::make_shared<Mailbox>();
  const auto session = std::make_shared<SessionRoute>(context_, mailbox, "other session");
  Worker other(context_, mailbox);
  other.OpenSession(session);
  const TurnedLeg moving = NewLeg(nullptr, seconds{0}, JitterBufferSettings{JitterMode::kStatic, 50, {}, {}});
  const auto route = moving.participant->route();
  ASSERT_TRUE(route->SetHome(session, MakeTask([route](Worker& worker) { worker.BringHome(*route); })));
  Turn();
  other.RunOnce(milliseconds{0});
  ASSERT_EQ(other.Find(*route), moving.participant);
  const TurnedLeg staying = NewLegOn(other, session, context_, LocalFor(Pcmu()));
  ASSERT_TRUE(moving.participant->Join(Direction::kDuplex, *staying.participant, other.now()).ok);
  SendRun(moving, 1, 1);
  other.RunOnce(milliseconds{0});
  clock_->Advance(milliseconds{50});
  Turn();
  EXPECT_FALSE(staying.far_end.ReceiveRtp(milliseconds{0}));
  other.RunOnce(milliseconds{0});
  EXPECT_TRUE(staying.far_end.ReceiveRtp(milliseconds{0}));
}

TEST_F(WorkerTurns, TheRestEndsWhenAPacketIsDue) {
  const auto steady = std::make_shared<SteadyClock>();
  const auto context = std::make_shared<ServerContext>(steady, nullptr, *SocketAddress::Parse("127.0.0.1", 0),
                                                       std::string(), pool_, LogSink());
  const auto mailbox = std::make_shared<Mailbox>();
  const auto session = std::make_shared<SessionRoute>(context, mailbox, "session");
  Worker worker(context, mailbox);
  worker.OpenSession(session);
  LocalSettings buffered = LocalFor(Pcmu());
  buffered.jitter_buffer = JitterBufferSettings{JitterMode::kStatic, 30, {}, {}};
  const TurnedLeg a = NewLegOn(worker, session, context, buffered);
  const TurnedLeg b = NewLegOn(worker, session, context, LocalFor(Pcmu()));
  ASSERT_TRUE(a.participant->Join(Direction::kDuplex, *b.participant, worker.now()).ok);
  milliseconds shortest{1000};
  // A busy machine may oversleep now and then, not each time.
  for (uint16_t number = 1; number <= 10; ++number) {
    const auto begin = std::chrono::steady_clock::now();
    a.far_end.SendRtp({0, number, 8u * 1000 * number, 1, true, PayloadOf(number)}, a.port);
    worker.RunOnce(milliseconds{1000});
    EXPECT_FALSE(b.far_end.ReceiveRtp(milliseconds{0}));
    worker.RunOnce(milliseconds{1000});
    const auto turns = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(turns, milliseconds{29});
    EXPECT_TRUE(b.far_end.ReceiveRtp(milliseconds{0})) << number;
    shortest = std::min(shortest, std::chrono::ceil<milliseconds>(turns));
  }
  EXPECT_LT(shortest, milliseconds{60});
}

TEST_F(WorkerTurns, ReportsAreTakenAndSentWithoutAllocating) {
  const TurnedLeg a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  const FarEnd stranger;
  const auto rtcp_port = static_cast<uint16_t>(a.port + 1);
  uint16_t number = 0;
  uint64_t sources = 0;
  for (int round = 0; round < 100; ++round) {
    const uint32_t ssrc = 1 + static_cast<uint32_t>(round) / 10;
    a.far_end.SendRtp({0, ++number, 160u * number, ssrc, false, PayloadOf(number)}, a.port);
    a.far_end.SendRtcp(SenderReportBytes(ssrc, {1, 2, 3, 4}, {{5, 6, 7, 8, 9, 10, 11}}) + CnameBytes(ssrc, "far end"),
                       rtcp_port);
    a.far_end.SendRtcp({0x80, 200, 0}, rtcp_port);
    stranger.SendRtcp(ReceiverReportBytes(1), rtcp_port);
    clock_->Advance(milliseconds{500});
    const std::size_t before = allocations;
    for (int turn = 0; turn < 3; ++turn) Turn();
    EXPECT_EQ(allocations, before);
    sources = ssrc;
  }
  const EndpointStatistics statistics = a.participant->Statistics();
  EXPECT_EQ(statistics.rtcp_packets_received, 100u);
  EXPECT_EQ(statistics.rtcp_malformed, 100u);
  EXPECT_EQ(statistics.rtcp_strangers, 100u);
  EXPECT_EQ(statistics.source_changes, sources - 1);
  // 50 seconds, by five to six seconds at the longest.
  EXPECT_GE(statistics.rtcp_packets_sent, 8u);
  EXPECT_GE(b.participant->Statistics().rtcp_packets_sent, 8u);
}

TEST_F(WorkerTurns, TimersGoByTheTimeOfTheTurn) {
  const auto events = std::make_shared<RecordedEvents>();
  const TurnedLeg a = NewLeg(events, seconds{2});
  SendRun(a, 1, 1);
  Turn();
  clock_->Advance(milliseconds{1900});
  Turn();
  EXPECT_TRUE(events->Wait(1, milliseconds{0}).empty());
  clock_->Advance(milliseconds{100});
  Turn();
  EXPECT_EQ(events->Wait(1, milliseconds{0}), std::vector<std::string>{"inactive"});
}

TEST_F(WorkerTurns, TasksRunInOrderAfterThePacketsThatWereThereBeforeThem) {
  const TurnedLeg a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  SendRun(a, 1, 3);
  std::vector<uint64_t> seen;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(mailbox_->Post(
        MakeTask([&](Worker&) { seen.push_back(a.participant->Statistics().rtp_packets_received + seen.size()); })));
  }
  Turn();
  EXPECT_EQ(seen, (std::vector<uint64_t>{3, 4}));
}

TEST_F(WorkerTurns, ATaskThatThrowsDoesNotEndTheLoop) {
  bool ran = false;
  ASSERT_TRUE(mailbox_->Post(MakeTask([](Worker&) { throw std::runtime_error("broken"); })));
  ASSERT_TRUE(mailbox_->Post(MakeTask([&](Worker&) { ran = true; })));
  Turn();
  EXPECT_TRUE(ran);
}

TEST_F(WorkerTurns, AFarEndThatHasGoneAwayIsCountedAtMost) {
  TurnedLeg a = NewLeg(), b = NewLeg();
  JoinThem(a, b);
  { const FarEnd gone = std::move(b.far_end); }  // its port is closed now
  for (uint16_t round = 0; round < 20; ++round) {
    SendRun(a, static_cast<uint16_t>(1 + 5 * round), 5);
    TurnUntilTaken(a, 5u + 5u * round, 5);
  }
  const EndpointStatistics statistics = b.participant->Statistics();
  EXPECT_EQ(statistics.rtp_packets_sent + statistics.send_errors, 100u);
  SendRun(a, 500, 1);
  Turn();
  EXPECT_EQ(a.participant->Statistics().rtp_packets_received, 101u);
}

}  // namespace
}  // namespace media_engine_test
