/// Two joined endpoints whose far ends speak RTCP, and time that passes when the test says so.
#pragma once

#include <vector>

#include "engine_fixture.h"
#include "rtcp_bytes.h"

namespace media_engine_test {

class RtcpTest : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
    a_ = NewCallLeg(*session_);
    b_ = NewCallLeg(*session_);
    ASSERT_TRUE(a_.endpoint->Join(Direction::kDuplex, *b_.endpoint, kLimit).ok);
  }

  /// Time passes, and the worker of that leg has looked at its timers with the new time.
  void Pass(const Leg& leg, milliseconds time) {
    clock_->Advance(time);
    // One request may still be served in a turn that began before; the next one's turn began after.
    for (int i = 0; i < 3; ++i) leg.Statistics();
  }
  /// The next packet that reaches the far end's RTCP port, a tenth of a second at a time.
  std::optional<RtcpSeen> NextRtcp(const Leg& leg, milliseconds within = seconds{10}) {
    for (milliseconds waited{0}; waited <= within; waited += kStep) {
      if (const auto packet = leg.far_end->ReceiveRtcp(milliseconds{0})) {
        const auto seen = ReadRtcp(*packet);
        EXPECT_TRUE(seen) << testing::PrintToString(*packet);
        return seen;
      }
      Pass(leg, kStep);
    }
    return std::nullopt;
  }
  static void SendRtcp(const Leg& leg, const Bytes& packet) { leg.far_end->SendRtcp(packet, leg.local.rtcp_port); }
  /// Sends a packet of RTP and waits until it has come out at the other far end.
  static Rtp Carry(const Leg& from, const Leg& to, uint16_t number, uint32_t ssrc = 0x11111111) {
    from.SendRun(number, 1, 0, ssrc);
    const auto came = to.far_end->ReceiveRtp();
    EXPECT_TRUE(came && came->payload == PayloadOf(number)) << number;
    return came.value_or(Rtp());
  }
  static void CarryRun(const Leg& from, const Leg& to, uint16_t first, unsigned count, uint32_t ssrc = 0x11111111) {
    for (unsigned i = 0; i < count; ++i) Carry(from, to, static_cast<uint16_t>(first + i), ssrc);
  }

  static constexpr milliseconds kStep{100};
  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
  Leg a_, b_;
};

}  // namespace media_engine_test
