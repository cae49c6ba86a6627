// Fax calls (ITU-T T.38) through the whole control library, in the order in which a switch asks for them.
#include "contract_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using testing::ElementsAre;
using testing::HasSubstr;

class FaxContract : public test_support::ContractTest {
 protected:
  using Bytes = std::vector<std::uint8_t>;

  /// A call that speaks: A called, B was called.
  void Call(const EmbeddedOptions& options = {}) {
    Start(options);
    session_ = NewSession();
    a_.connection = NewConnection(session_);
    ASSERT_TRUE(a_.connection->SetRemoteOffer(RemoteOf(a_)));
    b_.connection = NewConnection(session_);
    ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_)));
    ASSERT_TRUE(b_.connection->SetRemoteAnswer(RemoteOf(b_)));
    ASSERT_TRUE(a_.connection->GetLocalAnswer(Local(a_)));
    ASSERT_TRUE(Join(a_, b_));
    ASSERT_TRUE(Talks());
  }

  /// What a switch wishes for in every local description.
  static MediaConfig& Local(Leg& leg, bool fax = false) {
    leg.local = MediaConfig();
    leg.local.SetIpv4Tos(0xb8);
    leg.local.SetIpv6TrafficClass(0x88);
    leg.local.SetIpv4TimeToLive(61);
    leg.local.SetIpv6HopLimit(62);
    leg.local.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE, 300);
    leg.local.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
    if (fax) leg.local.SetUdpPassThru();
    AddCodec(leg.local);
    return leg.local;
  }
  static MediaConfig RemoteFaxOffer(const Leg& leg) {
    MediaConfig remote;
    remote.SetUdpPassThru();
    remote.SetIPAddress("127.0.0.1");
    remote.SetRtpPort(leg.far_end->Port());
    remote.SetRtcpFlag(true);
    remote.SetRtcpPort(static_cast<std::uint16_t>(leg.far_end->Port() + 1));
    remote.SetCname("call@leg");
    remote.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
    return remote;
  }
  /// The answer of a leg's far end, with the image stream of the other leg as its peer.
  static MediaConfig RemoteFaxAnswer(const Leg& leg, const Leg& peer) {
    MediaConfig remote, local, answer;
    answer.SetUdpPassThru();
    peer.connection->GetRemoteImageConfig(remote);
    peer.connection->GetLocalImageConfig(local);
    answer.SetUdpPassThruPeerRemotePort(remote.GetRtpPort());
    answer.SetUdpPassThruPeerRemoteIPAddress(remote.GetIPAddress());
    answer.SetUdpPassThruPeerLocalPort(local.GetRtpPort());
    answer.SetUdpPassThruPeerLocalIPAddress(local.GetIPAddress());
    answer.SetUdpPassThruPeerLocalTos(local.GetIpv4Tos());
    answer.SetUdpPassThruPeerLocalTrafficClass(local.GetIpv6TrafficClass());
    answer.SetUdpPassThruPeerLocalTimeToLive(local.GetIpv4TimeToLive());
    answer.SetUdpPassThruPeerLocalHopLimit(local.GetIpv6HopLimit());
    answer.SetIPAddress("127.0.0.1");
    answer.SetRtpPort(leg.far_end->Port());
    return answer;
  }
  /// One leg's far end asks for fax, the other's takes it.
  void ChangeToFax(Leg& asking, Leg& asked) {
    ASSERT_TRUE(asking.connection->SetRemoteOffer(RemoteFaxOffer(asking)));
    ASSERT_TRUE(asked.connection->GetLocalOffer(Local(asked, true)));
    asked.connection->Unjoin(asking.connection);
    ASSERT_TRUE(asked.connection->SetRemoteAnswer(RemoteFaxAnswer(asked, asking)));
    ASSERT_TRUE(asking.connection->GetLocalAnswer(Local(asking, true)));
  }
  /// And back.
  void ChangeToSpeech(Leg& asking, Leg& asked) {
    ASSERT_TRUE(asking.connection->SetRemoteOffer(RemoteOf(asking)));
    ASSERT_TRUE(asked.connection->GetLocalOffer(Local(asked)));
    ASSERT_TRUE(asked.connection->SetRemoteAnswer(RemoteOf(asked)));
    ASSERT_TRUE(asking.connection->GetLocalAnswer(Local(asking)));
    ASSERT_TRUE(Join(asking, asked));
  }

  static std::optional<Bytes> Receive(const Leg& leg, int patience_ms = 5000) {
    pollfd waiting{leg.far_end->Descriptor(), POLLIN, 0};
    if (poll(&waiting, 1, patience_ms) <= 0) return std::nullopt;
    const auto datagram = leg.far_end->Receive();
    return datagram ? std::make_optional(datagram->data) : std::nullopt;
  }
  static bool Relays(const Leg& from, const Leg& to, const Bytes& data) {
    return from.far_end->SendTo(from.target(), data) && Receive(to) == data;
  }
  /// A page both ways: IFP packets as fax machines send them, and some that look like something else.
  bool Faxes() {
    const Bytes packets[] = {{0x00, 0x01, 0x01, 0x06, 0x00, 0x00},
                             {0x80, 0x00, 0x00, 0x01, 0, 0, 0, 1, 0, 0, 0, 2, 9},
                             Bytes(1400, 0x5a),
                             {0}};
    for (const Bytes& packet : packets) {
      if (!Relays(a_, b_, packet) || !Relays(b_, a_, packet)) return false;
    }
    return true;
  }
  bool Talks() {
    number_ = static_cast<std::uint16_t>(number_ + 2);
    return Flows(a_, b_, number_) && Flows(b_, a_, static_cast<std::uint16_t>(number_ + 1));
  }

  SessionPtr session_;
  Leg a_, b_;
  std::uint16_t number_ = 0;
};

TEST_P(FaxContract, TakesOverFromSpeechAndGivesBackWhicheverFarEndAsks) {
  Call();
  for (auto [asking, asked] : {std::pair(&a_, &b_), std::pair(&b_, &a_), std::pair(&a_, &b_)}) {
    ChangeToFax(*asking, *asked);
    EXPECT_TRUE(Faxes());
    ChangeToSpeech(*asking, *asked);
    EXPECT_TRUE(Talks());
  }
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
  EXPECT_THAT(logger().Messages(kelvaro::WARN_LOG_LEVEL), ElementsAre());
}

TEST_P(FaxContract, MayBeTheWholeCall) {
  Start();
  session_ = NewSession();
  a_.connection = NewConnection(session_);
  b_.connection = NewConnection(session_);
  ChangeToFax(a_, b_);
  EXPECT_TRUE(Faxes());
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), ElementsAre());
}

TEST_P(FaxContract, SpeechGoesOnWhileItIsAskedForAndWhenItIsDeclined) {
  Call();
  ASSERT_TRUE(a_.connection->SetRemoteOffer(RemoteFaxOffer(a_)));
  EXPECT_TRUE(Talks());
  ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_, true)));
  EXPECT_TRUE(Talks());
  // B's far end says 488, and so does the switch to A's: nothing more is said to the media server.
  EXPECT_TRUE(Talks());
  // Then B's far end asks, and A's takes it.
  ChangeToFax(b_, a_);
  EXPECT_TRUE(Faxes());
}

TEST_P(FaxContract, TellsTheImageStreamsThatAreDescribed) {
  Call();
  MediaConfig none;
  EXPECT_FALSE(a_.connection->GetLocalImageConfig(none));
  EXPECT_FALSE(a_.connection->GetRemoteImageConfig(none));
  EXPECT_EQ(none.GetRtpPort(), 0);
  EXPECT_EQ(none.GetIPAddress(), nullptr);

  ASSERT_TRUE(a_.connection->SetRemoteOffer(RemoteFaxOffer(a_)));
  MediaConfig local, remote;
  EXPECT_TRUE(a_.connection->GetLocalImageConfig(local));
  EXPECT_TRUE(a_.connection->GetRemoteImageConfig(remote));
  EXPECT_EQ(local.GetIPAddress(), Address());
  EXPECT_EQ(local.GetRtpPort(), a_.local.GetRtpPort());
  EXPECT_STREQ(remote.GetIPAddress(), "127.0.0.1");
  EXPECT_EQ(remote.GetRtpPort(), a_.far_end->Port());
  for (const MediaConfig& image : {local, remote}) {
    EXPECT_EQ(image.GetIpv4Tos(), 0xb8);
    EXPECT_EQ(image.GetIpv6TrafficClass(), 0x88);
    EXPECT_EQ(image.GetIpv4TimeToLive(), 61);
    EXPECT_EQ(image.GetIpv6HopLimit(), 62);
  }

  ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_, true)));
  EXPECT_TRUE(b_.connection->GetLocalImageConfig(local));
  EXPECT_EQ(local.GetRtpPort(), b_.local.GetRtpPort());
  EXPECT_FALSE(b_.connection->GetRemoteImageConfig(none));
  EXPECT_EQ(none.GetIPAddress(), nullptr);
}

TEST_P(FaxContract, StrangersGetNowhere) {
  Call();
  ChangeToFax(a_, b_);
  ASSERT_TRUE(a_.connection->SetRemoteAddressDetection());
  test_support::UdpSocket stranger;
  ASSERT_TRUE(stranger.SendTo(a_.target(), {1, 2, 3}));
  EXPECT_TRUE(NothingComes(a_, b_));
  EXPECT_TRUE(Faxes());
  EXPECT_FALSE(stranger.Receive());
}

TEST_P(FaxContract, MandatoryCryptoRefusesIt) {
  Call();
  Leg of_b = b_;
  MediaConfig& local = Local(of_b, true);
  local.SetCryptoMandFlag(true);
  EXPECT_FALSE(b_.connection->GetLocalOffer(local));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           "Refused local offer: crypto is mandatory and UDP pass-through relays packets as they are"));
  MediaConfig remote = RemoteFaxOffer(a_);
  remote.SetCryptoMandFlag(true);
  EXPECT_FALSE(a_.connection->SetRemoteOffer(remote));
  EXPECT_TRUE(Talks());
}

TEST_P(FaxContract, APeerWithoutAnImageStreamIsTakenAndNamedInTheLog) {
  Call();
  ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_, true)));
  ASSERT_TRUE(b_.connection->Unjoin(a_.connection));
  EXPECT_TRUE(b_.connection->SetRemoteAnswer(RemoteFaxAnswer(b_, a_)));
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "he other leg has no image stream; nothing is relayed until"));
  ASSERT_TRUE(a_.connection->SetRemoteOffer(RemoteFaxOffer(a_)));
  ASSERT_TRUE(a_.connection->GetLocalAnswer(Local(a_, true)));
  ASSERT_TRUE(Join(a_, b_));
  EXPECT_TRUE(Faxes());
}

TEST_P(FaxContract, APeerThatIsNotThereIsRefusedByItsAddress) {
  Call();
  ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_, true)));
  MediaConfig answer = RemoteFaxAnswer(b_, a_);
  answer.SetUdpPassThruPeerLocalIPAddress("127.0.0.1");
  answer.SetUdpPassThruPeerLocalPort(a_.far_end->Port());
  EXPECT_FALSE(b_.connection->SetRemoteAnswer(answer));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL, "Refused remote answer: the UDP pass-through peer 127.0.0.1:" +
                                                         std::to_string(a_.far_end->Port()) +
                                                         " is no endpoint of the session"));
  EXPECT_TRUE(Talks());
}

TEST_P(FaxContract, GoesBetweenServersAfterATransfer) {
  Start({}, 2);
  session_ = NewSession();
  const auto former = NewSession();
  a_ = NewLeg(session_);
  b_ = NewLeg(former);
  ASSERT_STRNE(a_.local.GetIPAddress(), b_.local.GetIPAddress());
  const ConnectionPtr imported(session_->ImportNetworkConnection(b_.connection));
  ASSERT_TRUE(imported && Join(a_, b_));
  ChangeToFax(a_, b_);
  EXPECT_TRUE(Faxes());
  ChangeToSpeech(b_, a_);
  EXPECT_TRUE(Talks());
}

TEST_P(FaxContract, ANewLocalPortKeepsTheRelay) {
  Call();
  ASSERT_TRUE(a_.connection->SetRemoteOffer(RemoteFaxOffer(a_)));
  ASSERT_TRUE(b_.connection->GetLocalOffer(Local(b_, true)));
  ASSERT_TRUE(b_.connection->Unjoin(a_.connection));
  ASSERT_TRUE(b_.connection->SetRemoteAnswer(RemoteFaxAnswer(b_, a_)));
  const auto former = a_.local.GetRtpPort();
  Local(a_, true).SetAutoLocalPortRenew(true);
  ASSERT_TRUE(a_.connection->GetLocalAnswer(a_.local));
  EXPECT_NE(a_.local.GetRtpPort(), former);
  EXPECT_TRUE(Faxes());
}

TEST_P(FaxContract, EndsWithEitherLegAndGivesItsPortsBack) {
  Call();
  ChangeToFax(a_, b_);
  a_.connection->Close();
  EXPECT_TRUE(PortIsFree(a_));
  ASSERT_TRUE(b_.far_end->SendTo(b_.target(), {1, 2, 3}));
  EXPECT_TRUE(NothingComes(b_, a_));
  b_.connection->Close();
  EXPECT_TRUE(PortIsFree(b_));
}

INSTANTIATE_TEST_SUITE_P(MediaServers, FaxContract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
