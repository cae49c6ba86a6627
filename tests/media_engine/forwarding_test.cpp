// What goes through a join, packet by packet over real sockets.
#include "engine_fixture.h"

namespace media_engine_test {
namespace {

class Forwarding : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
  }
  void JoinThem(const Leg& a, const Leg& b, Direction direction = Direction::kDuplex) {
    const Outcome outcome = a.endpoint->Join(direction, *b.endpoint, kLimit);
    ASSERT_TRUE(outcome.ok) << outcome.reason;
  }
  /// Whether a packet sent at the one arrives at the other.
  static bool Flows(const Leg& from, const Leg& to, uint16_t number) {
    const uint64_t before = from.Statistics().rtp_packets_received;
    from.Send({0, number, 160u * number, 0x22222222, false, PayloadOf(number)});
    // Counting and handing on is one go on the worker: what has been counted has arrived, or never will.
    if (!Eventually([&] { return from.Statistics().rtp_packets_received == before + 1; })) return false;
    const auto came = to.far_end->ReceiveRtp(milliseconds{0});
    return came && came->payload == PayloadOf(number);
  }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

TEST_F(Forwarding, CarriesPayloadsNumbersAndTimesOfALongRunUnchangedInStep) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  JoinThem(a, b);
  std::optional<Rtp> first;
  for (uint16_t i = 0; i < 500; ++i) {
    // Across the wrap of the source's numbers.
    const auto number = static_cast<uint16_t>(65300 + i);
    const Rtp sent{0, number, 4294950000u + 160u * i, 0x11111111, i == 100, PayloadOf(number)};
    a.Send(sent);
    const auto came = b.far_end->ReceiveRtp();
    ExpectCarried(came, sent, 0);
    if (!first) first = came;
    EXPECT_EQ(came->sequence_number, static_cast<uint16_t>(first->sequence_number + i));
    EXPECT_EQ(came->timestamp, first->timestamp + 160u * i);
    EXPECT_EQ(came->ssrc, first->ssrc);
    EXPECT_EQ(came->marker, i == 0 || i == 100) << i;
  }
  const EndpointStatistics in = a.Statistics(), out = b.Statistics();
  EXPECT_EQ(in.rtp_packets_received, 500u);
  EXPECT_EQ(in.rtp_octets_received, 500u * 160u);
  EXPECT_EQ(in.rtp_packets_lost, 0u);
  EXPECT_EQ(in.remote_ssrc, 0x11111111u);
  EXPECT_EQ(out.rtp_packets_sent, 500u);
  EXPECT_EQ(out.rtp_octets_sent, 500u * 160u);
  EXPECT_EQ(out.local_ssrc, first->ssrc);
}

TEST_F(Forwarding, EachDirectionIsSeenFromTheNetworkSideOfTheCaller) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  struct Case {
    Direction direction;
    bool forward, backward;
  };
  const Case cases[] = {{Direction::kDuplex, true, true},
                        {Direction::kReceive, true, false},
                        {Direction::kSend, false, true},
                        {Direction::kNone, false, false}};
  uint16_t number = 0;
  for (const Case& one : cases) {
    JoinThem(a, b, one.direction);
    EXPECT_EQ(Flows(a, b, ++number), one.forward) << static_cast<int>(one.direction);
    EXPECT_EQ(Flows(b, a, ++number), one.backward) << static_cast<int>(one.direction);
    JoinThem(b, a, one.direction);
    EXPECT_EQ(Flows(b, a, ++number), one.forward) << static_cast<int>(one.direction);
    EXPECT_EQ(Flows(a, b, ++number), one.backward) << static_cast<int>(one.direction);
  }
}

TEST_F(Forwarding, UnjoinedEndpointsExchangeNothing) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  EXPECT_FALSE(Flows(a, b, 1));
  JoinThem(a, b);
  EXPECT_TRUE(Flows(a, b, 2));
  ASSERT_TRUE(b.endpoint->Unjoin(*a.endpoint, kLimit).ok);
  EXPECT_FALSE(Flows(a, b, 3));
  EXPECT_FALSE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
}

TEST_F(Forwarding, AThirdJoinDissolvesTheFormerOne) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_), c = NewCallLeg(*session_);
  JoinThem(a, b);
  JoinThem(c, a);
  EXPECT_TRUE(Flows(a, c, 1));
  EXPECT_FALSE(Flows(b, a, 2));
  EXPECT_FALSE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
  EXPECT_TRUE(a.endpoint->Unjoin(*c.endpoint, kLimit).ok);
}

TEST_F(Forwarding, TranslatesPayloadTypesOfAudioAndEventsPerLegAndDirection) {
  // Towards us the first leg's far end sends AMR as 97, towards it goes 98; the second has 112 and 113.
  const Leg a = NewCallLeg(*session_, MakeCodec("AMR", 97), MakeCodec("amr", 98), 101, 102);
  const Leg b = NewCallLeg(*session_, MakeCodec("AMR", 112), MakeCodec("AMR", 113), 96, 127);
  JoinThem(a, b);
  const Rtp audio{97, 10, 1000, 1, false, PayloadOf(1, 33)};
  const Rtp event{101, 11, 1160, 1, true, {5, 10, 0, 160}};
  a.Send(audio);
  ExpectCarried(b.far_end->ReceiveRtp(), audio, 113);
  a.Send(event);
  const auto came = b.far_end->ReceiveRtp();
  ExpectCarried(came, event, 127);
  EXPECT_TRUE(came->marker);
  const Rtp back{112, 7, 99, 2, false, PayloadOf(2, 20)}, event_back{96, 8, 259, 2, false, {1, 10, 0, 80}};
  b.Send(back);
  ExpectCarried(a.far_end->ReceiveRtp(), back, 98);
  b.Send(event_back);
  ExpectCarried(a.far_end->ReceiveRtp(), event_back, 102);
}

TEST_F(Forwarding, DropsWhatNobodyDescribedAndLeavesNoGapForIt) {
  const Leg a = NewCallLeg(*session_, Pcmu(), 101), b = NewCallLeg(*session_, Pcmu());
  JoinThem(a, b);
  a.Send({0, 1, 160, 1, false, PayloadOf(1)});
  const auto before = b.far_end->ReceiveRtp();
  a.Send({77, 2, 320, 1, false, PayloadOf(2)});       // in nobody's description
  a.Send({101, 3, 320, 1, true, {1, 10, 0, 80}});     // the other leg has no events
  const Rtp next{0, 5, 800, 1, false, PayloadOf(5)};  // 4 was lost
  a.Send(next);
  const auto after = b.far_end->ReceiveRtp();
  ExpectCarried(after, next, 0);
  ASSERT_TRUE(before && after);
  EXPECT_EQ(after->sequence_number, static_cast<uint16_t>(before->sequence_number + 2));
  EXPECT_EQ(after->timestamp, before->timestamp + 640);
  const EndpointStatistics statistics = a.Statistics();
  EXPECT_EQ(statistics.unknown_payload_types, 1u);
  EXPECT_EQ(statistics.untranslatable, 1u);
  EXPECT_EQ(statistics.rtp_packets_lost, 1u);
  EXPECT_EQ(statistics.rtp_packets_received, 4u);
}

TEST_F(Forwarding, ConvertsBetweenTheLawsOfG711) {
  const Leg a = NewCallLeg(*session_, Pcmu()), b = NewCallLeg(*session_, Pcma());
  JoinThem(a, b);
  // The loudest and the softest of both signs, known from ITU-T G.711.
  a.Send({0, 1, 160, 1, false, {0x80, 0x00, 0xff, 0x7f}});
  auto came = b.far_end->ReceiveRtp();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload_type, 8);
  EXPECT_EQ(came->payload, (Bytes{0xaa, 0x2a, 0xd5, 0x55}));
  b.Send({8, 1, 160, 1, false, {0xaa, 0x2a}});
  came = a.far_end->ReceiveRtp();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload_type, 0);
  EXPECT_EQ(came->payload, (Bytes{0x80, 0x00}));
}

TEST_F(Forwarding, UnlikeCodecsAreRefusedAtTheJoinByName) {
  const Leg a = NewCallLeg(*session_, Pcmu()), b = NewCallLeg(*session_, MakeCodec("G729", 18));
  const Outcome outcome = a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit);
  EXPECT_FALSE(outcome.ok);
  EXPECT_EQ(outcome.reason, "codecs PCMU/8000 and G729/8000 cannot be carried into each other");
  EXPECT_FALSE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
  // Without media there is nothing to carry; with it, the pair is left unjoined.
  EXPECT_TRUE(a.endpoint->Join(Direction::kNone, *b.endpoint, kLimit).ok);
  EXPECT_FALSE(a.endpoint->Join(Direction::kSend, *b.endpoint, kLimit).ok);
  EXPECT_FALSE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
}

TEST_F(Forwarding, FormatsOfOneNameThatDoNotTellThemselvesApartAreUnlike) {
  const Leg a = NewCallLeg(*session_, MakeCodec("G7221", 107, 16000, 24000));
  const Leg b = NewCallLeg(*session_, MakeCodec("G7221", 108, 16000, 32000));
  EXPECT_FALSE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  const Leg c = NewCallLeg(*session_, MakeCodec("AMR", 96)), d = NewCallLeg(*session_, MakeCodec("AMR", 96));
  EXPECT_TRUE(c.endpoint->Join(Direction::kDuplex, *d.endpoint, kLimit).ok);
  RemoteDescription aligned = d.far_end->Description(MakeCodec("AMR", 96));
  aligned.amr_octet_align = true;
  ASSERT_TRUE(d.endpoint->DescribeRemote(aligned, kLimit).ok);
  const Outcome outcome = c.endpoint->Join(Direction::kDuplex, *d.endpoint, kLimit);
  EXPECT_EQ(outcome.reason,
            "codecs AMR/8000 octet-align=0 and AMR/8000 octet-align=1 cannot be carried into each other");
}

TEST_F(Forwarding, StripsContributingSourcesExtensionAndPaddingOnly) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Bytes packet = Serialise({0, 9, 1440, 3, false, {}});
  packet[0] = 0x80 | 0x20 | 0x10 | 2;  // padding, extension, two contributing sources
  const Bytes rest = {1, 1, 1, 1, 2, 2, 2, 2, 0xbe, 0xde, 0, 1, 9, 9, 9, 9, 'v', 'o', 'i', 'c', 'e', 0, 0, 3};
  packet.insert(packet.end(), rest.begin(), rest.end());
  a.far_end->Send(packet, a.local.rtp_port);
  const auto came = b.far_end->Receive();
  ASSERT_TRUE(came);
  EXPECT_EQ((*came)[0], 0x80);
  EXPECT_EQ(Bytes(came->begin() + 12, came->end()), (Bytes{'v', 'o', 'i', 'c', 'e'}));
}

TEST_F(Forwarding, AChangeOfSourceContinuesNumbersAndTime) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_), c = NewCallLeg(*session_);
  JoinThem(a, b);
  a.SendRun(1000, 3);
  std::optional<Rtp> last;
  for (int i = 0; i < 3; ++i) last = b.far_end->ReceiveRtp();
  ASSERT_TRUE(last);
  // The far end restarts with another SSRC half a second later.
  clock_->Advance(milliseconds{500});
  a.Send({0, 7, 50, 0x33333333, false, PayloadOf(7)});
  auto came = b.far_end->ReceiveRtp();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->ssrc, last->ssrc);
  EXPECT_EQ(came->sequence_number, static_cast<uint16_t>(last->sequence_number + 1));
  EXPECT_EQ(came->timestamp, last->timestamp + 4000);
  EXPECT_TRUE(came->marker);
  EXPECT_EQ(a.Statistics().source_changes, 1u);
  // Another endpoint takes its place.
  last = came;
  JoinThem(c, b);
  clock_->Advance(milliseconds{20});
  c.Send({0, 60000, 123456, 0x44444444, false, PayloadOf(8)});
  came = b.far_end->ReceiveRtp();
  ASSERT_TRUE(came);
  EXPECT_EQ(came->ssrc, last->ssrc);
  EXPECT_EQ(came->sequence_number, static_cast<uint16_t>(last->sequence_number + 1));
  EXPECT_EQ(came->timestamp, last->timestamp + 160);
  EXPECT_TRUE(came->marker);
  EXPECT_EQ(came->payload, PayloadOf(8));
}

TEST_F(Forwarding, GapsStayGapsAndReorderedPacketsKeepTheirPlace) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  JoinThem(a, b);
  const uint16_t order[] = {10, 11, 15, 13, 16};
  std::vector<uint16_t> numbers;
  for (uint16_t number : order) {
    a.Send({0, number, 160u * number, 1, false, PayloadOf(number)});
    const auto came = b.far_end->ReceiveRtp();
    ASSERT_TRUE(came);
    EXPECT_EQ(came->payload, PayloadOf(number));
    numbers.push_back(came->sequence_number);
  }
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(static_cast<uint16_t>(numbers[i] - numbers[0]), order[i] - order[0]);
  }
  EXPECT_EQ(a.Statistics().rtp_packets_lost, 2u);  // 12 and 14
}

TEST_F(Forwarding, SendsNothingToAFarEndOnHold) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  JoinThem(a, b);
  EXPECT_TRUE(Flows(a, b, 1));
  RemoteDescription hold = b.far_end->Description(Pcmu());
  hold.address = "0.0.0.0";
  ASSERT_TRUE(b.endpoint->DescribeRemote(hold, kLimit).ok);
  EXPECT_FALSE(Flows(a, b, 2));
  EXPECT_EQ(a.Statistics().on_hold, 1u);
  ASSERT_TRUE(b.endpoint->DescribeRemote(b.far_end->Description(Pcmu()), kLimit).ok);
  EXPECT_TRUE(Flows(a, b, 3));
}

TEST_F(Forwarding, ADescriptionThatMakesAJoinedPairUnlikeIsWarnedOf) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  JoinThem(a, b);
  ASSERT_TRUE(b.endpoint->DescribeRemote(b.far_end->Description(MakeCodec("GSM", 3)), kLimit).ok);
  EXPECT_TRUE(
      log_.Has(LogLevel::kWarning, "codecs GSM/8000 and PCMU/8000 cannot be carried into each other: nothing is sent"));
  EXPECT_FALSE(Flows(a, b, 1));
  EXPECT_EQ(a.Statistics().untranslatable, 1u);
}

TEST_F(Forwarding, PassThroughRelaysAnyDatagramAsItIs) {
  Leg legs[2] = {NewLeg(*session_), NewLeg(*session_)};
  for (Leg& leg : legs) {
    LocalSettings settings;
    settings.udp_pass_through = true;
    ASSERT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
    RemoteDescription remote = leg.far_end->Description(Pcmu());
    remote.codecs.clear();
    remote.udp_pass_through = true;
    ASSERT_TRUE(leg.endpoint->DescribeRemote(remote, kLimit).ok);
  }
  JoinThem(legs[0], legs[1]);
  for (const Bytes& data : {Bytes{0}, Bytes{1, 2, 3}, PayloadOf(3, 1400), Bytes{0x80}}) {
    legs[0].far_end->Send(data, legs[0].local.rtp_port);
    EXPECT_EQ(legs[1].far_end->Receive(), data);
    legs[1].far_end->Send(data, legs[1].local.rtp_port);
    EXPECT_EQ(legs[0].far_end->Receive(), data);
  }
  EXPECT_EQ(legs[0].Statistics().datagrams_relayed, 4u);
  const Leg audio = NewCallLeg(*session_);
  EXPECT_FALSE(audio.endpoint->Join(Direction::kDuplex, *legs[0].endpoint, kLimit).ok);
}

TEST_F(Forwarding, ServesIpv6WithoutMixingItWithIpv4) {
  ServerConfig config = Config();
  config.addresses = {"::1", "127.0.0.1"};
  const auto server = Open(config);
  const auto session = NewSession(*server);
  Leg legs[2] = {NewLeg(*session, "::1"), NewLeg(*session, "::1")};
  for (Leg& leg : legs) {
    ASSERT_TRUE(leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit).ok);
    EXPECT_EQ(leg.local.address, "::1");
    RemoteDescription remote = leg.far_end->Description(Pcmu());
    remote.address = "[::1]";
    ASSERT_TRUE(leg.endpoint->DescribeRemote(remote, kLimit).ok);
  }
  JoinThem(legs[0], legs[1]);
  EXPECT_TRUE(Flows(legs[0], legs[1], 1));
  RemoteDescription other_family = legs[0].far_end->Description(Pcmu());
  other_family.address = "127.0.0.1";
  const Outcome outcome = legs[0].endpoint->DescribeRemote(other_family, kLimit);
  EXPECT_EQ(outcome.reason, "remote address 127.0.0.1 and local address ::1 are of different families");
  EXPECT_TRUE(Flows(legs[0], legs[1], 2));
}

}  // namespace
}  // namespace media_engine_test
