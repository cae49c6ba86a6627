// Where sequence numbers wrap: what is late, what came twice and what came out of order is told apart all the same.
#include "engine_fixture.h"
#include "jitter_line.h"
#include "outgoing_stream.h"

namespace media_engine_test {
namespace {

using media_engine::OutgoingStream;
using Verdict = JitterBuffer::Verdict;

TEST(SequenceWraps, InAJitterBufferLateOnesAndDuplicatesAreToldApart) {
  JitterLine line(StaticBuffer(40));
  // Sent 20 ms apart, 65533 first.
  const auto arrive = [&](uint16_t number, int at_ms) {
    const uint32_t timestamp = 160u * static_cast<uint16_t>(number - 65533);
    return line.Arrive(milliseconds{at_ms}, {0, number, timestamp, 1, false, PayloadOf(number)});
  };
  EXPECT_EQ(arrive(65534, 20), Verdict::kHeld);
  EXPECT_EQ(arrive(0, 60), Verdict::kHeld);
  EXPECT_EQ(arrive(0, 61), Verdict::kDuplicate);      // while it is held
  EXPECT_EQ(arrive(65535, 62), Verdict::kHeld);       // out of order
  EXPECT_EQ(arrive(65535, 63), Verdict::kDuplicate);  // before the wrap, and held
  EXPECT_EQ(arrive(2, 100), Verdict::kHeld);
  line.PlayUntil(milliseconds{160});
  EXPECT_EQ(line.Numbers(), (std::vector<uint16_t>{65534, 65535, 0, 2}));
  EXPECT_EQ(arrive(65535, 161), Verdict::kDuplicate);  // before the wrap, and played
  EXPECT_EQ(arrive(1, 162), Verdict::kLate);           // behind one that was played
  EXPECT_EQ(arrive(65533, 163), Verdict::kLate);       // before the wrap, and never played
  EXPECT_EQ(arrive(3, 164), Verdict::kLate);           // the latest number, and beyond its time
  line.PlayAll();
  EXPECT_EQ(line.played().size(), 4u);
  EXPECT_EQ(line.Counters().jitter_buffer_duplicates, 3u);
  EXPECT_EQ(line.Counters().jitter_buffer_late, 3u);
  EXPECT_EQ(line.Counters().jitter_buffer_reordered, 1u);
}

TEST(SequenceWraps, OfEitherSideWhatComesTooLateHasNoNumber) {
  // Ours wrap between the two sources, the sources' own within each.
  OutgoingStream stream(1, 65534, 0);
  const TimePoint now{seconds{1000}};
  EXPECT_EQ(stream.Place({1, 7, 65535, 0}, 8000, now)->sequence_number, 65534);
  EXPECT_EQ(stream.Place({1, 7, 1, 320}, 8000, now)->sequence_number, 0);
  EXPECT_EQ(stream.Place({1, 7, 0, 160}, 8000, now)->sequence_number, 65535);  // its place is free
  EXPECT_FALSE(stream.Place({1, 7, 65534, 0}, 8000, now));                     // before the first
  EXPECT_EQ(stream.Place({2, 8, 0, 0}, 8000, now)->sequence_number, 1);
  EXPECT_FALSE(stream.Place({2, 8, 65535, 0}, 8000, now));  // that place is the former source's
  stream.Skip({2, 8, 1, 160});
  EXPECT_FALSE(stream.Place({2, 8, 1, 160}, 8000, now));
  EXPECT_EQ(stream.Place({2, 8, 2, 320}, 8000, now)->sequence_number, 2);
}

class WrapsOfACall : public EngineTest {};

TEST_F(WrapsOfACall, EachPacketIsCountedForWhatItIs) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  const Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  const std::vector<uint16_t> sent = {65534, 0, 65535, 0, 65534, 3, 65533, 2};
  for (const uint16_t number : sent) a.SendRun(number, 1);
  ASSERT_TRUE(Eventually([&] { return a.Statistics().rtp_packets_received == sent.size(); }));
  const EndpointStatistics statistics = a.Statistics();
  EXPECT_EQ(statistics.rtp_duplicates, 2u);    // 0 and 65534
  EXPECT_EQ(statistics.rtp_reordered, 3u);     // 65535, 65533, 2
  EXPECT_EQ(statistics.rtp_packets_lost, 1u);  // 1
  EXPECT_EQ(statistics.late, 1u);              // 65533 came behind the first
  EXPECT_EQ(statistics.source_changes, 0u);
  // What goes on keeps its place, one that comes twice too.
  std::optional<uint16_t> first;
  for (const uint16_t number : sent) {
    if (number == 65533) continue;
    const auto came = b.far_end->ReceiveRtp();
    ASSERT_TRUE(came) << number;
    if (!first) first = came->sequence_number;
    EXPECT_EQ(static_cast<uint16_t>(came->sequence_number - *first), static_cast<uint16_t>(number - 65534));
  }
}

}  // namespace
}  // namespace media_engine_test
