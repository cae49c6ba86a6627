// When a worker rests before its next turn.
#include "coalescing.h"

#include "engine_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::Coalescing;
using std::chrono::microseconds;

constexpr microseconds kRest{300}, kNone{0};
constexpr std::size_t kMany = Coalescing::kLeastEndpoints;

TEST(Coalescing, RestsBehindATurnWithFewPackets) {
  const Coalescing coalescing(kRest);
  EXPECT_EQ(coalescing.RestAfter(1, kMany), kRest);
  EXPECT_EQ(coalescing.RestAfter(Coalescing::kManyPackets - 1, kMany), kRest);
}

TEST(Coalescing, GoesOnAtOnceBehindATurnWithManyPackets) {
  EXPECT_EQ(Coalescing(kRest).RestAfter(Coalescing::kManyPackets, kMany), kNone);
}

TEST(Coalescing, DoesNotRestBehindATurnWithoutPackets) {
  EXPECT_EQ(Coalescing(kRest).RestAfter(0, kMany), kNone);
}

TEST(Coalescing, DoesNotRestWithFewEndpoints) {
  EXPECT_EQ(Coalescing(kRest).RestAfter(1, kMany - 1), kNone);
}

TEST(Coalescing, IsOffWithARestOfZero) {
  EXPECT_FALSE(Coalescing(kNone).enabled());
  EXPECT_TRUE(Coalescing(kRest).enabled());
  EXPECT_EQ(Coalescing(kNone).RestAfter(1, kMany), kNone);
}

class CoalescingSetting : public EngineTest {};

TEST_F(CoalescingSetting, ARestThatIsNoFractionOfASecondIsRefused) {
  for (const microseconds rest : {microseconds{-1}, microseconds{1000000}}) {
    ServerConfig config = Config();
    config.coalescing = rest;
    Outcome outcome;
    EXPECT_FALSE(engine_.OpenServer(config, nullptr, outcome));
    EXPECT_EQ(outcome.reason, "coalescing of " + std::to_string(rest.count()) + " us is not from 0 to 999999 us");
  }
}

TEST_F(CoalescingSetting, ARequestIsAnsweredWhileTheWorkerRests) {
  ServerConfig config = Config();
  config.threads = 1;
  config.coalescing = microseconds{999999};
  const auto server = Open(config);
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  std::vector<Leg> others;
  while (others.size() < kMany) others.push_back(NewLeg(*session));
  const auto begin = std::chrono::steady_clock::now();
  for (uint16_t number = 1; number <= 20; ++number) {
    a.SendRun(number, 1);
    EXPECT_TRUE(Eventually([&] { return a.Statistics().rtp_packets_received == number; }));
  }
  // Were requests kept waiting, each packet would have taken a second.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds{15});
  EXPECT_EQ(b.Statistics().rtp_packets_sent, 20u);
}

}  // namespace
}  // namespace media_engine_test
