// Ports that rest after a call, with a clock of the test's own, over IPv4 and IPv6; and what is set on their sockets.
#include <netinet/in.h>

#include <set>

#include "engine_fixture.h"
#include "port_pool.h"

namespace media_engine_test {
namespace {

using media_engine::PortPair;
using media_engine::PortPool;

class PortQuarantine : public EngineTest, public testing::WithParamInterface<const char*> {
 protected:
  static constexpr milliseconds kRest{2000};

  void OpenWith(unsigned pairs, milliseconds rest = kRest) {
    config_ = Config(pairs);
    config_.addresses = {GetParam()};
    config_.port_quarantine = rest;
    server_ = Open(config_);
    session_ = NewSession(*server_);
  }
  Outcome Describe(Leg& leg, bool renew = false) {
    LocalSettings settings = LocalFor(Pcmu());
    settings.renew_ports = renew;
    return leg.endpoint->DescribeLocal(settings, leg.local, kLimit);
  }
  /// The port that an endpoint gets, which ends at once; none when it is refused.
  std::optional<uint16_t> PortOfAShortCall() {
    Leg leg = NewLeg(*session_, GetParam());
    if (!Describe(leg)) return std::nullopt;
    EXPECT_TRUE(leg.endpoint->Close(kLimit).ok);
    return leg.local.rtp_port;
  }
  static bool CanBind(uint16_t port) {
    media_engine::UdpSocket socket;
    return socket.Bind(*SocketAddress::Parse(GetParam(), port)) == 0;
  }

  ServerConfig config_;
  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

TEST_P(PortQuarantine, APairThatHasServedIsUnboundAndComesBackOnlyAfterItsRest) {
  OpenWith(1);
  const auto port = PortOfAShortCall();
  ASSERT_TRUE(port);
  EXPECT_TRUE(CanBind(*port));
  EXPECT_TRUE(CanBind(static_cast<uint16_t>(*port + 1)));
  EXPECT_EQ(server_->Usage().port_pairs, 0u);
  clock_->Advance(kRest - milliseconds{1});
  EXPECT_FALSE(PortOfAShortCall());
  clock_->Advance(milliseconds{1});
  EXPECT_EQ(PortOfAShortCall(), port);
}

TEST_P(PortQuarantine, WhenAllFreePairsRestAnEndpointIsRefusedByNameAndServedLater) {
  OpenWith(3);
  std::vector<Leg> legs;
  for (int i = 0; i < 3; ++i) {
    legs.push_back(NewLeg(*session_, GetParam()));
    ASSERT_TRUE(Describe(legs.back()).ok);
  }
  for (int i : {0, 1}) ASSERT_TRUE(legs[static_cast<std::size_t>(i)].endpoint->Close(kLimit).ok);
  Leg waiting = NewLeg(*session_, GetParam());
  EXPECT_EQ(Describe(waiting).reason,
            "no free RTP port pair in " + std::to_string(config_.rtp_port_min) + "-" +
                std::to_string(config_.rtp_port_max) + " on " + GetParam() +
                ": of 3 pairs 1 serve calls and 0 are held by other programs, 2 rest for 2000 ms after their call");
  EXPECT_EQ(server_->Usage().port_pairs, 1u);
  clock_->Advance(kRest);
  EXPECT_TRUE(Describe(waiting).ok);
  Leg another = NewLeg(*session_, GetParam());
  EXPECT_TRUE(Describe(another).ok);
  EXPECT_FALSE(PortOfAShortCall());
}

TEST_P(PortQuarantine, EachPairRestsForItsOwnTime) {
  OpenWith(2);
  const auto first = PortOfAShortCall();
  clock_->Advance(milliseconds{1500});
  const auto second = PortOfAShortCall();
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second);
  clock_->Advance(milliseconds{500});
  EXPECT_EQ(PortOfAShortCall(), first);
  EXPECT_FALSE(PortOfAShortCall());
  clock_->Advance(milliseconds{1500});
  EXPECT_EQ(PortOfAShortCall(), second);
}

TEST_P(PortQuarantine, ARenewedPairRestsAndWhatNobodyGotDoesNot) {
  OpenWith(2);
  Leg leg = NewLeg(*session_, GetParam());
  ASSERT_TRUE(Describe(leg).ok);
  const uint16_t former = leg.local.rtp_port;
  ASSERT_TRUE(Describe(leg, true).ok);
  EXPECT_TRUE(CanBind(former));
  EXPECT_FALSE(PortOfAShortCall());
  clock_->Advance(kRest);
  // Refused descriptions have not given the pair to anybody.
  Leg refused = NewLeg(*session_, GetParam());
  LocalSettings wrong = LocalFor(MakeCodec("AMR", 128));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(refused.endpoint->DescribeLocal(wrong, refused.local, kLimit).reason,
              "codec AMR: payload type 128 is not in 0-127");
  }
  EXPECT_EQ(PortOfAShortCall(), former);
}

TEST_P(PortQuarantine, OfNoTimeGivesPortsBackAtOnce) {
  OpenWith(1, milliseconds{0});
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(PortOfAShortCall()) << i;
}

TEST_P(PortQuarantine, EveryPairComesBackAfterExhaustionHoweverItEnded) {
  OpenWith(8);
  for (int round = 0; round < 5; ++round) {
    std::vector<Leg> legs;
    std::set<uint16_t> ports;
    for (int i = 0; i < 8; ++i) {
      legs.push_back(NewLeg(*session_, GetParam()));
      ASSERT_TRUE(Describe(legs.back()).ok) << round << " " << i;
      EXPECT_EQ(legs.back().local.rtp_port % 2, 0);
      EXPECT_EQ(legs.back().local.rtcp_port, legs.back().local.rtp_port + 1);
      ports.insert(legs.back().local.rtp_port);
    }
    EXPECT_EQ(ports.size(), 8u);
    EXPECT_FALSE(PortOfAShortCall());
    for (std::size_t i = 0; i < 4; ++i) ASSERT_TRUE(legs[i].endpoint->Close(kLimit).ok);
    legs.clear();
    session_ = NewSession(*server_);
    ASSERT_TRUE(Eventually([&] { return server_->Usage().port_pairs == 0; }));
    EXPECT_FALSE(PortOfAShortCall());
    clock_->Advance(kRest);
  }
}

INSTANTIATE_TEST_SUITE_P(Families, PortQuarantine, testing::Values("127.0.0.1", "::1"),
                         [](const auto& family) { return std::string(family.index == 0 ? "Ipv4" : "Ipv6"); });

TEST(PortPools, LetAPairRestOnlyAfterAnEndpointHadIt) {
  const auto clock = std::make_shared<ManualClock>();
  const auto [first, last] = FreePortRange(1);
  const auto pool =
      std::make_shared<PortPool>(*SocketAddress::Parse("127.0.0.1", 0), first, last, milliseconds{100}, clock);
  std::string reason;
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(pool->Acquire(reason)) << reason;
  {
    const std::unique_ptr<PortPair> pair = pool->Acquire(reason);
    ASSERT_TRUE(pair);
    pair->MarkUsed();
  }
  EXPECT_EQ(pool->in_use(), 0u);
  EXPECT_FALSE(pool->Acquire(reason));
  clock->Advance(milliseconds{100});
  EXPECT_TRUE(pool->Acquire(reason));
}

TEST(IpHeaderFields, AreSetOnTheSocketsOfRtpAndOfRtcp) {
  for (const char* address : {"127.0.0.1", "::1"}) {
    const auto [first, last] = FreePortRange(1);
    const auto pool = std::make_shared<PortPool>(*SocketAddress::Parse(address, 0), first, last);
    std::string reason;
    const std::unique_ptr<PortPair> pair = pool->Acquire(reason);
    ASSERT_TRUE(pair) << reason;
    const int family = pair->address().family();
    const bool v6 = family == AF_INET6;
    for (const media_engine::UdpSocket* socket : {&pair->rtp(), &pair->rtcp()}) {
      const auto option = [&](int of_v6, int of_v4) {
        int value = -1;
        socklen_t length = sizeof value;
        EXPECT_EQ(getsockopt(socket->fd(), v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? of_v6 : of_v4, &value, &length), 0);
        return value;
      };
      const int hops_by_default = option(IPV6_UNICAST_HOPS, IP_TTL);
      EXPECT_EQ(socket->ApplyIpHeader(family, {0xb8, 17, 0x88, 23}), "");
      EXPECT_EQ(option(IPV6_TCLASS, IP_TOS), v6 ? 0x88 : 0xb8);
      EXPECT_EQ(option(IPV6_UNICAST_HOPS, IP_TTL), v6 ? 23 : 17);
      EXPECT_EQ(socket->ApplyIpHeader(family, {0, 0, 0, 0}), "");
      EXPECT_EQ(option(IPV6_TCLASS, IP_TOS), 0);
      EXPECT_EQ(option(IPV6_UNICAST_HOPS, IP_TTL), hops_by_default);
    }
  }
}

class RenewedPorts : public EngineTest {};

TEST_F(RenewedPorts, KeepTheHeaderFieldsThatWereSaidBefore) {
  const auto server = Open(Config());
  const auto session = NewSession(*server);
  Leg a = NewCallLeg(*session), b = NewCallLeg(*session);
  ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  LocalSettings settings = LocalFor(Pcmu());
  settings.ip_header.ipv4_tos = 0xb8;
  settings.ip_header.ipv4_time_to_live = 17;
  ASSERT_TRUE(b.endpoint->DescribeLocal(settings, b.local, kLimit).ok);
  LocalSettings renewed = LocalFor(Pcmu());
  renewed.renew_ports = true;
  renewed.ip_header.ipv4_time_to_live = 19;
  ASSERT_TRUE(b.endpoint->DescribeLocal(renewed, b.local, kLimit).ok);
  b.far_end->AskForHeader();
  a.SendRun(1, 1);
  a.Statistics();  // served after the packet
  const ReceivedHeader header = b.far_end->ReceiveHeader();
  EXPECT_EQ(header.traffic_class, 0xb8);
  EXPECT_EQ(header.hops, 19);
}

}  // namespace
}  // namespace media_engine_test
