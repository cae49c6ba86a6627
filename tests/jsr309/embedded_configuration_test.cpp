// What the configuration says to embedded media servers: ports and their rest, addresses, bad values.
#include "embedded_clock_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using test_support::EmbeddedOptions;
using testing::ElementsAre;
using testing::EndsWith;

class EmbeddedConfiguration : public test_support::EmbeddedClockTest {
 protected:
  std::string Element(const std::string& name) const {
    return "Configuration file " + path() + ", element jsr309.media_servers.media_server[1]." + name;
  }
  void ExpectRefused(const EmbeddedOptions& options, const std::string& name, const std::string& value,
                     const std::string& reason) {
    const size_t before = logger().Messages(kelvaro::ERROR_LOG_LEVEL).size();
    EXPECT_FALSE(Init(options));
    const auto errors = logger().Messages(kelvaro::ERROR_LOG_LEVEL);
    ASSERT_EQ(errors.size(), before + 1);
    EXPECT_THAT(errors.back(), EndsWith(Element(name) + ", value \"" + value + "\": " + reason));
  }
  bool GetsAPort(const SessionPtr& session, MediaConfig& local) {
    const ConnectionPtr connection = NewConnection(session);
    AddCodec(local);
    return connection && connection->GetLocalOffer(local);
  }
};

TEST_F(EmbeddedConfiguration, ABadRestOfPortsIsRefusedByFileElementAndValue) {
  for (const char* value : {"soon", "-1", "600001", "1000000", "1.5"}) {
    EmbeddedOptions options;
    options.port_quarantine_ms = value;
    ExpectRefused(options, "port_quarantine_ms", value, "not a number of milliseconds from 0 to 600000");
  }
  for (const char* value : {"0", "600000"}) {
    EmbeddedOptions options;
    options.port_quarantine_ms = value;
    EXPECT_TRUE(Init(options)) << value;
  }
}

TEST_F(EmbeddedConfiguration, ABadCoalescingIsRefusedByFileElementAndValue) {
  for (const char* value : {"little", "-1", "5001", "0.3"}) {
    EmbeddedOptions options;
    options.coalescing_us = value;
    ExpectRefused(options, "coalescing_us", value, "not a number of microseconds from 0 to 5000");
  }
  for (const char* value : {"0", "300", "5000"}) {
    EmbeddedOptions options;
    options.coalescing_us = value;
    EXPECT_TRUE(Init(options)) << value;
  }
}

TEST_F(EmbeddedConfiguration, ABadHeartbeatIsRefusedByFileElementAndValue) {
  EmbeddedOptions options;
  options.heartbeat_ms = "19";
  ExpectRefused(options, "heartbeat_ms", "19", "not a number of milliseconds from 20 to 600000");
}

TEST_F(EmbeddedConfiguration, AnAddressThatCannotBeServedIsRefusedByFileElementAndValue) {
  EmbeddedOptions options;
  options.addresses = {"192.0.2.1"};
  ExpectRefused(options, "address", "192.0.2.1",
                "address '192.0.2.1' cannot be bound: Cannot assign requested address");
  options.addresses = {"127.0.0.1"};
  options.extra = "<address>0.0.0.0</address>";
  ExpectRefused(options, "address", "0.0.0.0", "address '0.0.0.0' is not the address of one host");
}

TEST_F(EmbeddedConfiguration, PortsWithoutAnEvenOneAndTheOddOneAboveAreRefusedByFileElementAndValue) {
  EmbeddedOptions options;
  options.rtp_ports = {20001, 20002};
  ExpectRefused(options, "rtp_port_min", "20001",
                "no even port with the odd one above it up to rtp_port_max, which is 20002");
}

TEST_F(EmbeddedConfiguration, PortsRestAfterACallForAsLongAsIsSaid) {
  EmbeddedOptions options = ByTheClock();
  options.pairs = 2;
  options.port_quarantine_ms = "700";
  Start(options);
  const auto session = NewSession();
  const Leg stays = NewLeg(session), goes = NewLeg(session);
  goes.connection->Close();
  EXPECT_TRUE(test_support::udp_port_is_free(goes.local.GetRtpPort()));
  Pass(milliseconds(699), stays);
  MediaConfig local;
  EXPECT_FALSE(GetsAPort(session, local));
  EXPECT_EQ(local.GetRtpPort(), 0);
  EXPECT_TRUE(
      logger().Has(kelvaro::ERROR_LOG_LEVEL, "1 serve calls and 0 are held by other programs, 1 rest for 700 ms"));
  Pass(milliseconds(1), stays);
  EXPECT_TRUE(GetsAPort(session, local));
  EXPECT_EQ(local.GetRtpPort(), goes.local.GetRtpPort());
}

TEST_F(EmbeddedConfiguration, PortsRestForTwoSecondsWhenNothingIsSaid) {
  EmbeddedOptions options = ByTheClock();
  options.pairs = 2;
  options.port_quarantine_ms = "";
  Start(options);
  const auto session = NewSession();
  const Leg stays = NewLeg(session), goes = NewLeg(session);
  goes.connection->Close();
  MediaConfig local;
  Pass(milliseconds(1999), stays);
  EXPECT_FALSE(GetsAPort(session, local));
  Pass(milliseconds(1), stays);
  EXPECT_TRUE(GetsAPort(session, local));
}

TEST_F(EmbeddedConfiguration, AnIpv6ServerTellsItsAddressAndTakesBracketedOnes) {
  EmbeddedOptions options;
  options.addresses = {"::1"};
  Start(options);
  const auto session = NewSession();
  Leg leg;
  leg.connection = NewConnection(session);
  AddCodec(leg.local);
  ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
  EXPECT_STREQ(leg.local.GetIPAddress(), "::1");
  EXPECT_EQ(leg.local.GetRtcpPort(), leg.local.GetRtpPort() + 1);
  MediaConfig remote = RemoteOf(leg);
  remote.SetIPAddress("[::1]");
  EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
  remote.SetIPAddress("127.0.0.1");
  EXPECT_FALSE(leg.connection->SetRemoteAnswer(remote));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           "remote address 127.0.0.1 and local address ::1 are of different families"));
}

}  // namespace
