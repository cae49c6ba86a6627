// Media servers with an IPv6 address.
#include "contract_fixture.h"

namespace {

using namespace kelvaro::jsr309;

class Ipv6Contract : public test_support::ContractTest {
 protected:
  static MediaConfig FarEndOf(const Leg& leg, const char* address = "::1") {
    MediaConfig remote = RemoteOf(leg);
    remote.SetIPAddress(address);
    return remote;
  }
  static Leg NewIpv6Leg(const SessionPtr& session) {
    Leg leg;
    leg.connection = NewConnection(session);
    leg.far_end = std::make_shared<test_support::UdpSocket>(std::uint16_t{0}, true);
    AddCodec(leg.local);
    EXPECT_TRUE(leg.connection->GetLocalOffer(leg.local));
    EXPECT_TRUE(leg.connection->SetRemoteAnswer(FarEndOf(leg)));
    return leg;
  }
};

TEST_P(Ipv6Contract, CarriesACallFromItsJoinToItsParting) {
  StartOnIpv6();
  const auto session = NewSession();
  const Leg a = NewIpv6Leg(session), b = NewIpv6Leg(session);
  EXPECT_STREQ(a.local.GetIPAddress(), "::1");
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_TRUE(Flows(b, a, 2));
  ASSERT_TRUE(a.connection->Unjoin(b.connection));
  a.Send(3);
  EXPECT_TRUE(NothingComes(a, b));
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 4));
  std::vector<RtcpStatsReport> reports;
  ASSERT_TRUE(b.connection->GetRtcpStatsReport(reports));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_GE(reports[0].lssRTPPacketsSent, 2u);
}

TEST_P(Ipv6Contract, MovesWithItsFarEndWhoseAddressMayStandInBrackets) {
  StartOnIpv6();
  const auto session = NewSession();
  const Leg a = NewIpv6Leg(session);
  Leg b = NewIpv6Leg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_TRUE(Flows(a, b, 1));
  const auto former = std::exchange(b.far_end, std::make_shared<test_support::UdpSocket>(std::uint16_t{0}, true));
  ASSERT_TRUE(b.connection->SetRemoteOffer(FarEndOf(b, "[::1]")));
  EXPECT_TRUE(Flows(a, b, 2));
  EXPECT_TRUE(Flows(b, a, 3));
  EXPECT_FALSE(former->Receive());
}

TEST_P(Ipv6Contract, AFarEndOfTheOtherFamilyIsRefusedAndTheCallGoesOn) {
  StartOnIpv6();
  const auto session = NewSession();
  const Leg a = NewIpv6Leg(session), b = NewIpv6Leg(session);
  ASSERT_TRUE(Join(a, b));
  EXPECT_FALSE(a.connection->SetRemoteOffer(FarEndOf(a, "127.0.0.1")));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           "remote address 127.0.0.1 and local address ::1 are of different families"));
  EXPECT_TRUE(Flows(a, b, 1));
  EXPECT_TRUE(Flows(b, a, 2));
}

INSTANTIATE_TEST_SUITE_P(MediaServers, Ipv6Contract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
