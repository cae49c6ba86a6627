// Port pairs: where they come from, that they run out cleanly, and that they come back.
#include "engine_fixture.h"

#include <set>

namespace media_engine_test {
namespace {

class Ports : public EngineTest {
 protected:
  static Outcome Describe(Leg& leg, bool renew = false) {
    LocalSettings settings = LocalFor(Pcmu());
    settings.renew_ports = renew;
    return leg.endpoint->DescribeLocal(settings, leg.local, kLimit);
  }
  static bool CanBind(uint16_t port) {
    media_engine::UdpSocket socket;
    return socket.Bind(*SocketAddress::Parse("127.0.0.1", port)) == 0;
  }
};

TEST_F(Ports, AreEvenAndOddWithinTheRangeAndRunOutCleanly) {
  const ServerConfig config = Config(4);
  const auto server = Open(config);
  const auto session = NewSession(*server);
  std::vector<Leg> legs;
  std::set<uint16_t> ports;
  for (int i = 0; i < 4; ++i) {
    legs.push_back(NewLeg(*session));
    ASSERT_TRUE(Describe(legs.back()).ok);
    const LocalDescription& local = legs.back().local;
    EXPECT_EQ(local.address, "127.0.0.1");
    EXPECT_EQ(local.rtp_port % 2, 0);
    EXPECT_EQ(local.rtcp_port, local.rtp_port + 1);
    EXPECT_GE(local.rtp_port, config.rtp_port_min);
    EXPECT_LE(local.rtcp_port, config.rtp_port_max);
    ports.insert(local.rtp_port);
  }
  EXPECT_EQ(ports.size(), 4u);
  Leg one_too_many = NewLeg(*session);
  EXPECT_EQ(Describe(one_too_many).reason,
            "no free RTP port pair in " + std::to_string(config.rtp_port_min) + "-" +
                std::to_string(config.rtp_port_max) +
                " on 127.0.0.1: of 4 pairs 4 serve calls and 0 are held by other programs");
  EXPECT_EQ(server->Usage().port_pairs, 4u);
  // One comes back, and the same endpoint that was refused gets it.
  const uint16_t freed = legs[2].local.rtp_port;
  ASSERT_TRUE(legs[2].endpoint->Close(kLimit).ok);
  EXPECT_TRUE(Describe(one_too_many).ok);
  EXPECT_EQ(one_too_many.local.rtp_port, freed);
}

TEST_F(Ports, AreFreeTheMomentCloseReturns) {
  const auto server = Open(Config(2));
  const auto session = NewSession(*server);
  for (int i = 0; i < 200; ++i) {
    Leg leg = NewLeg(*session);
    ASSERT_TRUE(Describe(leg).ok) << i;
    EXPECT_FALSE(CanBind(leg.local.rtp_port));
    EXPECT_FALSE(CanBind(leg.local.rtcp_port));
    ASSERT_TRUE(leg.endpoint->Close(kLimit).ok);
    EXPECT_TRUE(CanBind(leg.local.rtp_port)) << i;
    EXPECT_TRUE(CanBind(leg.local.rtcp_port)) << i;
    EXPECT_EQ(server->Usage().port_pairs, 0u);
  }
}

TEST_F(Ports, ThatWereJustFreedAreTheLastToComeAgain) {
  const auto server = Open(Config(4));
  const auto session = NewSession(*server);
  std::vector<uint16_t> order;
  for (int i = 0; i < 8; ++i) {
    Leg leg = NewLeg(*session);
    ASSERT_TRUE(Describe(leg).ok);
    order.push_back(leg.local.rtp_port);
    ASSERT_TRUE(leg.endpoint->Close(kLimit).ok);
  }
  EXPECT_EQ(std::set<uint16_t>(order.begin(), order.begin() + 4).size(), 4u);
  EXPECT_TRUE(std::equal(order.begin(), order.begin() + 4, order.begin() + 4));
}

TEST_F(Ports, HeldByOtherProgramsArePassedOver) {
  const ServerConfig config = Config(4);
  media_engine::UdpSocket rtp_taken, rtcp_taken;
  ASSERT_EQ(rtp_taken.Bind(*SocketAddress::Parse("127.0.0.1", config.rtp_port_min)), 0);
  ASSERT_EQ(rtcp_taken.Bind(*SocketAddress::Parse("127.0.0.1", static_cast<uint16_t>(config.rtp_port_min + 5))), 0);
  const auto server = Open(config);
  const auto session = NewSession(*server);
  std::vector<Leg> legs;
  std::set<int> offsets;
  for (int i = 0; i < 2; ++i) {
    legs.push_back(NewLeg(*session));
    ASSERT_TRUE(Describe(legs.back()).ok);
    offsets.insert(legs.back().local.rtp_port - config.rtp_port_min);
  }
  EXPECT_EQ(offsets, (std::set<int>{2, 6}));
  Leg refused = NewLeg(*session);
  const Outcome outcome = Describe(refused);
  EXPECT_NE(outcome.reason.find("of 4 pairs 2 serve calls and 2 are held by other programs"), std::string::npos)
      << outcome.reason;
  rtp_taken.Close();
  EXPECT_TRUE(Describe(refused).ok);
}

TEST_F(Ports, StayWithRepeatedDescriptionsUnlessRenewed) {
  const auto server = Open(Config(4));
  const auto session = NewSession(*server);
  Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  const uint16_t first = a.local.rtp_port;
  ASSERT_TRUE(Describe(a).ok);
  EXPECT_EQ(a.local.rtp_port, first);
  ASSERT_TRUE(Describe(a, true).ok);
  EXPECT_NE(a.local.rtp_port, first);
  EXPECT_TRUE(CanBind(first));
  EXPECT_EQ(server->Usage().port_pairs, 2u);
  // The new port serves, the numbering goes on.
  const Rtp sent{0, 1, 160, 1, false, PayloadOf(1)};
  a.Send(sent);
  ExpectCarried(b.far_end->ReceiveRtp(), sent, 0);
  b.Send(sent);
  ExpectCarried(a.far_end->ReceiveRtp(), sent, 0);
}

TEST_F(Ports, AreNotTakenByADescriptionThatIsRefused) {
  const auto server = Open(Config(2));
  const auto session = NewSession(*server);
  Leg leg = NewLeg(*session);
  LocalSettings wrong = LocalFor(MakeCodec("AMR", 128));
  EXPECT_EQ(leg.endpoint->DescribeLocal(wrong, leg.local, kLimit).reason,
            "codec AMR: payload type 128 is not in 0-127");
  LocalSettings secret = LocalFor(Pcmu());
  secret.crypto.suite = "NULL_HMAC_SHA1_80";
  EXPECT_FALSE(leg.endpoint->DescribeLocal(secret, leg.local, kLimit).ok);
  secret.crypto.suite = "NO_CRYPTO";
  secret.crypto.mandatory = true;
  EXPECT_EQ(leg.endpoint->DescribeLocal(secret, leg.local, kLimit).reason,
            "crypto is mandatory and the local description has no keys");
  EXPECT_EQ(server->Usage().port_pairs, 0u);
  EXPECT_TRUE(Describe(leg).ok);
}

TEST_F(Ports, CarryTheIpHeaderFieldsOfTheDescription) {
  for (const char* address : {"127.0.0.1", "::1"}) {
    ServerConfig config = Config(2);
    config.addresses = {address};
    const auto server = Open(config);
    const auto session = NewSession(*server);
    LocalSettings settings = LocalFor(Pcmu());
    settings.ip_header.ipv4_tos = 0xb8;
    settings.ip_header.ipv4_time_to_live = 17;
    settings.ip_header.ipv6_traffic_class = 0x88;
    settings.ip_header.ipv6_hop_limit = 23;
    Leg legs[2] = {NewLeg(*session, address), NewLeg(*session, address)};
    for (Leg& leg : legs) {
      ASSERT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
      ASSERT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(Pcmu()), kLimit).ok);
    }
    ASSERT_TRUE(legs[0].endpoint->Join(Direction::kDuplex, *legs[1].endpoint, kLimit).ok);
    legs[1].far_end->AskForHeader();
    const auto receive = [&](uint16_t number) {
      legs[0].Send({0, number, 160u * number, 1, false, PayloadOf(number)});
      legs[0].Statistics();  // served after the packet
      return legs[1].far_end->ReceiveHeader();
    };
    const bool v6 = legs[1].far_end->address().family() == AF_INET6;
    ReceivedHeader header = receive(1);
    EXPECT_EQ(header.traffic_class, v6 ? 0x88 : 0xb8);
    EXPECT_EQ(header.hops, v6 ? 23 : 17);
    // 0 hops would let nothing leave: the system's default comes back; what is not given stays.
    LocalSettings again = LocalFor(Pcmu());
    again.ip_header.ipv4_time_to_live = again.ip_header.ipv6_hop_limit = 0;
    ASSERT_TRUE(legs[1].endpoint->DescribeLocal(again, legs[1].local, kLimit).ok);
    header = receive(2);
    EXPECT_EQ(header.traffic_class, v6 ? 0x88 : 0xb8);
    EXPECT_GT(header.hops, 23);
  }
}

TEST_F(Ports, AConfigurationThatCannotWorkIsRefusedByItsValue) {
  const auto reason = [&](auto change) {
    ServerConfig config = Config(1);
    change(config);
    Outcome outcome;
    const auto server = engine_.OpenServer(config, nullptr, outcome);
    EXPECT_EQ(server == nullptr, !outcome.ok);
    return outcome.reason;
  };
  EXPECT_EQ(reason([](ServerConfig& c) { c.addresses = {"localhost"}; }),
            "address 'localhost' is not a numeric IPv4 or IPv6 address");
  EXPECT_EQ(reason([](ServerConfig& c) { c.addresses = {"192.0.2.1"}; }),
            "address '192.0.2.1' cannot be bound: Cannot assign requested address");
  EXPECT_EQ(reason([](ServerConfig& c) { c.addresses = {"0.0.0.0"}; }),
            "address '0.0.0.0' is not the address of one host");
  EXPECT_EQ(reason([](ServerConfig& c) { c.public_address = "here"; }),
            "public address 'here' is not a numeric IPv4 or IPv6 address");
  EXPECT_EQ(reason([](ServerConfig& c) { c.rtp_port_max = c.rtp_port_min; }).substr(0, 10), "RTP ports ");
  EXPECT_EQ(reason([](ServerConfig& c) { c.threads = 0; }), "a media server needs a worker thread");
  EXPECT_EQ(reason([](ServerConfig& c) { c.heartbeat = milliseconds{0}; }), "heartbeat of 0 ms is not positive");
  EXPECT_EQ(reason([](ServerConfig&) {}), "");
}

TEST_F(Ports, AnOddLowerEndCountsFromTheNextEvenPort) {
  ServerConfig config = Config(2);
  config.rtp_port_min = static_cast<uint16_t>(config.rtp_port_min + 1);
  const auto server = Open(config);
  const auto session = NewSession(*server);
  Leg one = NewLeg(*session), two = NewLeg(*session);
  ASSERT_TRUE(Describe(one).ok);
  EXPECT_EQ(one.local.rtp_port, config.rtp_port_min + 1);
  EXPECT_FALSE(Describe(two).ok);
}

}  // namespace
}  // namespace media_engine_test
