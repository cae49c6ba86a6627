// When a worker takes all packets of a socket instead of one.
#include "backlog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "worker_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::Backlog;

constexpr std::size_t kMost = 64;

/// Of so many sockets with so many packets each, those in which all was taken.
int Emptied(Backlog& backlog, int sockets, std::size_t packets) {
  int emptied = 0;
  for (int i = 0; i < sockets; ++i) {
    if (!backlog.TakesAll()) continue;
    backlog.Took(packets);
    ++emptied;
  }
  return emptied;
}

TEST(Backlog, NothingMoreIsTakenWhileTurnsAreNotFull) {
  Backlog backlog;
  backlog.BeginTurn(kMost - 1, kMost);
  EXPECT_EQ(Emptied(backlog, 1000, 5), 0);
}

TEST(Backlog, AFullTurnIsLookedThroughNowAndThen) {
  Backlog backlog;
  backlog.BeginTurn(kMost, kMost);
  EXPECT_EQ(Emptied(backlog, 800, 1), 100);
}

TEST(Backlog, AllIsTakenAsLongAsThereIsMore) {
  Backlog backlog;
  backlog.BeginTurn(kMost, kMost);
  Emptied(backlog, 16, 2);
  EXPECT_EQ(Emptied(backlog, 1000, 2), 1000);
  // Every other socket has more: that is still worth asking all.
  for (int i = 0; i < 500; ++i) {
    EXPECT_EQ(Emptied(backlog, 1, 1), 1);
    EXPECT_EQ(Emptied(backlog, 1, 2), 1);
  }
  Emptied(backlog, 16, 1);
  EXPECT_EQ(Emptied(backlog, 800, 1), 100);
}

TEST(Backlog, ATurnThatIsNotFullEndsIt) {
  Backlog backlog;
  backlog.BeginTurn(kMost, kMost);
  Emptied(backlog, 100, 2);
  backlog.BeginTurn(1, kMost);
  EXPECT_EQ(Emptied(backlog, 100, 2), 0);
  backlog.BeginTurn(kMost, kMost);
  EXPECT_EQ(Emptied(backlog, 7, 2), 0);
}

class WorkerBehindhand : public WorkerTurns {
 protected:
  static constexpr uint16_t kLegs = 130;

  WorkerBehindhand() : WorkerTurns(kLegs) {
    for (uint16_t i = 0; i < kLegs; ++i) {
      legs_.push_back(NewLeg());
      if (i % 2 == 1) JoinThem(legs_[i - 1], legs_[i]);
    }
  }

  /// Packets of all legs.
  uint64_t Taken() const {
    uint64_t taken = 0;
    for (const TurnedLeg& leg : legs_) {
      const auto statistics = leg.participant->Statistics();
      taken += statistics.rtp_packets_received + statistics.oversized;
    }
    return taken;
  }
  /// Turns until so many packets have been taken; how many turns brought any. The system may deliver late.
  int TurnsFor(uint64_t packets) {
    int turns = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (uint64_t taken = 0; taken < packets && std::chrono::steady_clock::now() < end;) {
      Turn();
      const uint64_t now = Taken();
      if (now > taken) ++turns;
      taken = now;
    }
    EXPECT_EQ(Taken(), packets);
    return turns;
  }

  std::vector<TurnedLeg> legs_;
};

TEST_F(WorkerBehindhand, CatchesUpInFewTurnsAndKeepsEveryOrder) {
  for (const TurnedLeg& leg : legs_) SendRun(leg, 1, 5);
  // Taken one by one, a full turn moves 64 packets: eleven turns for 650 of them.
  EXPECT_LE(TurnsFor(5 * kLegs), 8);
  for (const TurnedLeg& leg : legs_) {
    for (uint16_t number = 1; number <= 5; ++number) {
      ExpectCarried(leg.far_end.ReceiveRtp(), {0, number, 160u * number, 1, false, PayloadOf(number)}, 0);
    }
  }
}

TEST_F(WorkerBehindhand, ALongPacketAmongOthersIsCountedAndTheOthersAreMoved) {
  for (const TurnedLeg& leg : legs_) {
    SendRun(leg, 1, 1);
    leg.far_end.Send(std::vector<uint8_t>(PacketMover::kPacketRoom + 1, 0x80), leg.port);
    SendRun(leg, 2, 1);
  }
  TurnsFor(3 * kLegs);
  for (const TurnedLeg& leg : legs_) {
    const auto statistics = leg.participant->Statistics();
    EXPECT_EQ(statistics.rtp_packets_received, 2u);
    EXPECT_EQ(statistics.rtp_packets_sent, 2u);
    EXPECT_EQ(statistics.oversized, 1u);
  }
}

}  // namespace
}  // namespace media_engine_test
