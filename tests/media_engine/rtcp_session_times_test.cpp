// When an endpoint's RTCP says something.
#include "rtcp_session_fixture.h"

namespace media_engine_test {
namespace {

TEST_F(Rtcp, ReportsComeAtTheirTimes) {
  const auto due = [&](double from, double until) {
    for (double time = from; time < until; time += 0.1) {
      if (session_.IsDue(reception_, At(time))) return time;
    }
    return 0.0;
  };
  EXPECT_FALSE(session_.IsDue(reception_, At(100)));  // starts the clock
  // The draws are all in the middle: 2.5 / 1.21828 seconds first, then 5 / 1.21828.
  EXPECT_NEAR(due(100, 110), 102.1, 0.101);
  Report(102.1);
  EXPECT_NEAR(due(102.1, 110), 106.2, 0.101);
  Report(106.2);
  Hear(1);
  Take(ReceiverReportBytes(kTheirs) + GoodbyeBytes({kTheirs}), 107.2);
  EXPECT_NEAR(due(107.2, 120), 110.3, 0.101);  // it was alone when the time was drawn: nothing to make up for
  Report(110.3);
}

TEST_F(Rtcp, AGoodbyeBringsTheNextReportForward) {
  session_.IsDue(reception_, At(100));
  Hear(1);
  Report(100);
  Take(ReceiverReportBytes(kTheirs) + GoodbyeBytes({0x1234}), 101);  // not the one that is heard
  EXPECT_FALSE(session_.IsDue(reception_, At(103)));
  Take(ReceiverReportBytes(kTheirs) + GoodbyeBytes({kTheirs}), 101);
  // 4.104 s after 100; at 101 half of what remains: 102.552. The report before counts as of 100.5: 104.604.
  EXPECT_FALSE(session_.IsDue(reception_, At(102.6)));  // reconsidered
  EXPECT_FALSE(session_.IsDue(reception_, At(104.6)));
  EXPECT_TRUE(session_.IsDue(reception_, At(104.61)));
}

TEST_F(Rtcp, AFarEndThatHasLeftTakesNoShareOfTheBandwidth) {
  media_engine::Codec slow;
  slow.bit_rate = 800;
  slow.packet_time_ms = 1000;  // 140 octets a second with headers: 7 for reports
  const auto interval = [&](const Bytes& packet) {
    session_ = RtcpSession(Timeline(), kOurs, MiddleDraw);
    session_.SetCodec(&slow, 28);
    session_.IsDue(reception_, At(100));
    Hear(1);
    Report(101);
    Hear(2);
    Take(packet, 102);
    Report(103);
    Report(104);
    double time = 104;
    while (!session_.IsDue(reception_, At(time)) && time < 200) time += 0.1;
    return time - 104;
  };
  const double with_both = interval(ReceiverReportBytes(kTheirs));
  const double alone = interval(ReceiverReportBytes(kTheirs) + GoodbyeBytes({kTheirs}));
  EXPECT_GT(with_both, 15);
  EXPECT_NEAR(alone / with_both, 0.5, 0.03);
}

}  // namespace
}  // namespace media_engine_test
