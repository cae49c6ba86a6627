/// A running server whose one worker is counted, and calls through it.
#pragma once

#include <functional>

#include "counted_calls.h"
#include "engine_fixture.h"
#include "rtcp_bytes.h"

namespace media_engine_test {

/// Time by hand. The worker, which asks for it in every turn, is counted from its first question on.
class WatchingClock : public ManualClock {
 public:
  TimePoint Now() const noexcept override {
    if (std::this_thread::get_id() != test_) CountThisThread();
    return ManualClock::Now();
  }

 private:
  const std::thread::id test_ = std::this_thread::get_id();
};

class PacketPath : public EngineTest {
 protected:
  static constexpr uint16_t kWarmUp = 100, kCounted = 1000;

  PacketPath() {
    ServerConfig config = Config();
    config.threads = 1;
    Outcome outcome;
    server_ = watched_.OpenServer(config, nullptr, outcome);
    if (!server_) throw std::runtime_error(outcome.reason);
    session_ = NewSession(*server_);
  }

  Leg MakeLeg(const Codec& codec, const LocalSettings& more = {}) {
    Leg leg = NewLeg(*session_);
    LocalSettings settings = more;
    settings.codecs = {codec};
    settings.telephone_event = true;
    settings.telephone_event_payload_type = 101;
    settings.inactive_timeout = seconds{3600};
    EXPECT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
    EXPECT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(codec, 101), kLimit).ok);
    return leg;
  }
  static void JoinThem(const Leg& a, const Leg& b) {
    ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  }

  /// What the worker does while step runs for numbers 1 to kCounted, time going on by 20 ms before each. The worker has
  /// been asked nothing since the warm-up, so all that it did is the packets'.
  CountedCalls Count(const std::function<void(uint16_t)>& step) {
    uint16_t number = 0;
    const auto run = [&](uint16_t count) {
      for (uint16_t i = 0; i < count; ++i) {
        time_->Advance(milliseconds{20});
        step(++number);
      }
    };
    run(kWarmUp);
    const CountedCalls before = CallsSoFar();
    run(kCounted);
    const CountedCalls after = CallsSoFar();
    return {after.allocations - before.allocations, after.locks - before.locks, after.waits - before.waits,
            after.receives - before.receives, after.sends - before.sends};
  }
  static void ExpectNone(const CountedCalls& counted) {
    EXPECT_EQ(counted.allocations, 0u);
    EXPECT_EQ(counted.locks, 0u);
    EXPECT_EQ(counted.waits, 0u);
  }
  static Rtp Speech(uint16_t number, uint8_t payload_type = 0) {
    return {payload_type, number, 160u * number, 0x11111111, false, PayloadOf(number)};
  }
  /// Sends a packet and waits until it has come out at the other far end.
  static void Carry(const Leg& from, const Leg& to, const Rtp& packet) {
    from.Send(packet);
    const auto came = to.far_end->ReceiveRtp();
    ASSERT_TRUE(came) << packet.sequence_number;
    ASSERT_EQ(came->payload.size(), packet.payload.size());
  }

  std::shared_ptr<WatchingClock> time_ = std::make_shared<WatchingClock>();
  Engine watched_{time_};
  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

}  // namespace media_engine_test
