// Which codecs go through a join, and that they go through as they are.
#include <set>

#include "engine_fixture.h"

namespace media_engine_test {
namespace {

class Codecs : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config(4));
    session_ = NewSession(*server_);
  }
  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

struct NamedCodec {
  Codec codec;
  const char* text;
};

/// Every format that a call may have.
std::vector<NamedCodec> AllCodecs() {
  return {{MakeCodec("PCMU", 0), "PCMU/8000"},
          {MakeCodec("PCMA", 8), "PCMA/8000"},
          {MakeCodec("GSM", 3), "GSM/8000"},
          {MakeCodec("G723", 4), "G723/8000"},
          {MakeCodec("G722", 9), "G722/8000"},
          {MakeCodec("G729", 18), "G729/8000"},
          {MakeCodec("G726-32", 99), "G726-32/8000"},
          {MakeCodec("iLBC", 97, 8000, 13330), "iLBC/8000 bitrate=13330"},
          {MakeCodec("iLBC", 97, 8000, 15200), "iLBC/8000 bitrate=15200"},
          {MakeCodec("AMR", 96), "AMR/8000 octet-align=0"},
          {MakeCodec("AMR-WB", 100, 16000), "AMR-WB/16000 octet-align=0"},
          {MakeCodec("G7221", 107, 16000, 24000), "G7221/16000 bitrate=24000"},
          {MakeCodec("G7221", 107, 16000, 32000), "G7221/16000 bitrate=32000"},
          {MakeCodec("L16", 110, 16000), "L16/16000"},
          {MakeCodec("PCMU", 111, 16000), "PCMU/16000"}};
}

TEST_F(Codecs, EachGoesWithItselfAndEveryUnlikePairIsRefusedByName) {
  const std::vector<NamedCodec> all = AllCodecs();
  Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  const auto describe = [](Leg& leg, const Codec& codec) {
    ASSERT_TRUE(leg.endpoint->DescribeLocal(LocalFor(codec), leg.local, kLimit).ok);
    ASSERT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(codec), kLimit).ok);
  };
  unsigned refused = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    describe(a, all[i].codec);
    for (std::size_t j = 0; j < all.size(); ++j) {
      describe(b, all[j].codec);
      const bool laws = i < 2 && j < 2;
      const Outcome outcome = a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit);
      EXPECT_EQ(outcome.ok, i == j || laws) << all[i].text << ", " << all[j].text;
      if (outcome.ok) {
        EXPECT_TRUE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
      } else {
        ++refused;
        EXPECT_EQ(outcome.reason,
                  std::string("codecs ") + all[i].text + " and " + all[j].text + " cannot be carried into each other");
      }
    }
  }
  EXPECT_EQ(refused, all.size() * (all.size() - 1) - 2);
}

TEST_F(Codecs, PacketTimesAreKept) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_, Pcma());
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  uint16_t number = 1;
  uint32_t timestamp = 5000;
  std::optional<Rtp> last;
  // One leg says 20 ms, the far end sends what it likes.
  for (unsigned packet_time : {10u, 20u, 30u, 40u, 60u, 120u, 5u, 20u}) {
    a.Send({0, number, timestamp, 1, false, PayloadOf(number, 8 * packet_time)});
    const auto came = b.far_end->ReceiveRtp();
    ASSERT_TRUE(came);
    EXPECT_EQ(came->payload.size(), 8 * packet_time);
    if (last) {
      EXPECT_EQ(came->timestamp - last->timestamp, 8 * (last->payload.size() / 8));
      EXPECT_EQ(static_cast<uint16_t>(came->sequence_number - last->sequence_number), 1);
    }
    last = came;
    ++number;
    timestamp += 8 * packet_time;
  }
}

TEST_F(Codecs, ATypeOfTelephoneEventsThatFitsIntoNoHeaderIsRefusedOnEitherSide) {
  Leg a = NewCallLeg(*session_, Pcmu(), 101);
  const Leg b = NewCallLeg(*session_, Pcmu(), 101);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  const std::string reason = "telephone-event payload type 128 is not in 0-127";
  EXPECT_EQ(a.endpoint->DescribeLocal(LocalFor(Pcmu(), 128), a.local, kLimit).reason, reason);
  EXPECT_EQ(a.endpoint->DescribeRemote(a.far_end->Description(Pcmu(), 128), kLimit).reason, reason);
  const Rtp event{101, 1, 160, 1, false, PayloadOf(1, 4)};
  b.Send(event);
  ExpectCarried(a.far_end->ReceiveRtp(), event, 101);
}

TEST_F(Codecs, EachDirectionOfEachLegMayHaveItsOwnDynamicNumber) {
  // What the legs' far ends are told to send, and what they told us to send; 96 means something else everywhere.
  const Leg a = NewCallLeg(*session_, MakeCodec("iLBC", 96, 8000, 15200), MakeCodec("iLBC", 97, 8000, 15200), 98, 99);
  const Leg b = NewCallLeg(*session_, MakeCodec("iLBC", 98, 8000, 15200), MakeCodec("iLBC", 96, 8000, 15200), 97, 101);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  struct Case {
    const Leg& from;
    const Leg& to;
    uint8_t sent_as, comes_as;
  };
  const Case cases[] = {{a, b, 96, 96}, {a, b, 98, 101}, {b, a, 98, 97}, {b, a, 97, 99}};
  uint16_t number = 0;
  for (const Case& one : cases) {
    ++number;
    const Rtp packet{one.sent_as, number, 160u * number, 1, false, PayloadOf(number, 38)};
    one.from.Send(packet);
    ExpectCarried(one.to.far_end->ReceiveRtp(), packet, one.comes_as);
  }
}

}  // namespace
}  // namespace media_engine_test
