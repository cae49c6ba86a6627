// Image streams on the engine: datagrams relayed as they are between two peers.
#include "pass_through_fixture.h"

namespace media_engine_test {
namespace {

class PassThroughFamilies : public PassThrough, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override { OpenAt(GetParam()); }
};

TEST_P(PassThroughFamilies, RelaysEveryDatagramByteForByteBothWays) {
  ChangeToFax();
  std::vector<Bytes> datagrams = {
      {}, {0}, {0x80}, {0x80, 0x00, 0x00, 0x01}, Serialise({0, 5, 800, 9, true, PayloadOf(5)})};
  for (const std::size_t length : {2u, 3u, 172u, 1400u, 1472u, 2047u, 2048u}) {
    datagrams.push_back(PayloadOf(static_cast<uint16_t>(length), length));
  }
  Bytes every_octet;
  for (int octet = 0; octet < 256; ++octet) every_octet.push_back(static_cast<uint8_t>(octet));
  datagrams.push_back(every_octet);
  for (const Bytes& data : datagrams) {
    EXPECT_TRUE(Relays(a_, b_, data)) << data.size();
    EXPECT_TRUE(Relays(b_, a_, data)) << data.size();
  }
  EXPECT_EQ(a_.Statistics().datagrams_relayed, datagrams.size());
  EXPECT_EQ(b_.Statistics().datagrams_relayed, datagrams.size());
}

TEST_P(PassThroughFamilies, DropsAndCountsWhatIsLongerThanTheBound) {
  ChangeToFax();
  for (const std::size_t length : {2049u, 4000u, 60000u}) {
    ExpectDropped(a_, b_, PayloadOf(1, length), &EndpointStatistics::oversized);
  }
  EXPECT_TRUE(Relays(a_, b_, {1, 2, 3}));
}

TEST_P(PassThroughFamilies, DropsAndCountsStrangersWhoAreNeverLearned) {
  ChangeToFax();
  ASSERT_TRUE(a_.endpoint->DetectRemoteAddress(kLimit).ok);
  const FarEnd stranger(address_);
  const uint64_t before = a_.Statistics().strangers;
  stranger.SendRtp({0, 1, 160, 3, false, PayloadOf(1)}, a_.local.rtp_port);
  stranger.Send({1, 2, 3}, a_.local.rtp_port);
  EXPECT_TRUE(Eventually([&] { return a_.Statistics().strangers == before + 2; }));
  EXPECT_FALSE(b_.far_end->Receive(milliseconds{0}));
  EXPECT_TRUE(Relays(b_, a_, {4, 5, 6}));
  EXPECT_FALSE(stranger.Receive(milliseconds{0}));
}

TEST_P(PassThroughFamilies, TellsTheImageStreamsOfBothSides) {
  EXPECT_FALSE(LocalImage(a_));
  EXPECT_FALSE(RemoteImage(a_));
  const IpHeaderSettings header{0xb8, 60, 0x88, 61};
  ASSERT_TRUE(Local(a_, true, kOffer, header).ok);
  EXPECT_FALSE(RemoteImage(a_));
  ASSERT_TRUE(Remote(a_, true, kAnswer).ok);
  const auto local = LocalImage(a_), remote = RemoteImage(a_);
  ASSERT_TRUE(local && remote);
  EXPECT_EQ(local->address, address_);
  EXPECT_EQ(local->port, a_.local.rtp_port);
  EXPECT_EQ(remote->address, address_);
  EXPECT_EQ(remote->port, a_.far_end->port());
  for (const auto& image : {local, remote}) {
    EXPECT_EQ(image->ip_header.ipv4_tos, 0xb8);
    EXPECT_EQ(image->ip_header.ipv4_time_to_live, 60);
    EXPECT_EQ(image->ip_header.ipv6_traffic_class, 0x88);
    EXPECT_EQ(image->ip_header.ipv6_hop_limit, 61);
  }
}

TEST_P(PassThroughFamilies, SendsWithTheHeaderFieldsOfThePeer) {
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  ASSERT_TRUE(Local(b_, true, kOffer, {0x28, 33, 0x30, 35}).ok);
  PassThroughPeer peer = PeerOf(a_);
  peer.ip_header = {0xb8, 43, 0x88, 45};
  ASSERT_TRUE(AnswerWithPeer(b_, peer).ok);
  const bool v6 = address_ == "::1";
  const auto header_at = [](const Leg& from, const Leg& to) {
    to.far_end->AskForHeader();
    from.far_end->Send({1, 2, 3}, from.local.rtp_port);
    from.Statistics();  // served after the datagram
    return to.far_end->ReceiveHeader();
  };
  const ReceivedHeader at_a = header_at(b_, a_), at_b = header_at(a_, b_);
  EXPECT_EQ(at_a.traffic_class, v6 ? 0x88 : 0xb8);
  EXPECT_EQ(at_a.hops, v6 ? 45 : 43);
  EXPECT_EQ(at_b.traffic_class, v6 ? 0x30 : 0x28);
  EXPECT_EQ(at_b.hops, v6 ? 35 : 33);
}

INSTANTIATE_TEST_SUITE_P(Families, PassThroughFamilies, testing::Values("127.0.0.1", "::1"),
                         [](const auto& family) { return std::string(family.index == 0 ? "Ipv4" : "Ipv6"); });

TEST_F(PassThrough, RefusesPeersThatCannotBeAndChangesNothing) {
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  ASSERT_TRUE(Local(b_, true, kOffer).ok);
  JoinThem(a_, b_);
  const PassThroughPeer good = PeerOf(a_);
  const auto reason = [&](auto change) {
    PassThroughPeer peer = good;
    change(peer);
    const Outcome outcome = AnswerWithPeer(b_, peer);
    EXPECT_FALSE(outcome.ok);
    return outcome.reason;
  };
  const uint16_t nobody = b_.far_end->port();
  EXPECT_EQ(reason([&](PassThroughPeer& p) { p.local_port = nobody; }),
            "the UDP pass-through peer 127.0.0.1:" + std::to_string(nobody) + " is no endpoint of the session");
  EXPECT_EQ(reason([](PassThroughPeer& p) { p.local_address = "fax.example"; }),
            "the UDP pass-through peer 'fax.example' is no endpoint of the session");
  EXPECT_EQ(reason([](PassThroughPeer& p) { p.local_address.clear(); }),
            "the UDP pass-through peer '' is no endpoint of the session");
  EXPECT_EQ(reason([&](PassThroughPeer& p) { p.local_port = b_.local.rtp_port; }),
            "an endpoint cannot be its own UDP pass-through peer");
  EXPECT_EQ(reason([](PassThroughPeer& p) { p.remote_address = "fax.example"; }),
            "remote address 'fax.example' is not a numeric IPv4 or IPv6 address");
  EXPECT_EQ(reason([](PassThroughPeer& p) { p.remote_address = "::1"; }),
            "remote address ::1 and local address 127.0.0.1 are of different families");
  const auto other_session = NewSession(*server_);
  const Leg stranger = NewCallLeg(*other_session);
  EXPECT_NE(
      reason([&](PassThroughPeer& p) { p.local_port = stranger.local.rtp_port; }).find("no endpoint of the session"),
      std::string::npos);
  RemoteDescription audio = b_.far_end->Description(Pcmu());
  audio.pass_through_peer = good;
  EXPECT_EQ(b_.endpoint->DescribeRemote(audio, kLimit).reason, "a UDP pass-through peer without UDP pass-through");
  EXPECT_FALSE(RemoteImage(b_));
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
}

TEST_F(PassThrough, WithoutAPeerIsTakenAndRelaysOnceJoined) {
  ASSERT_TRUE(Local(b_, true, kOffer).ok);
  ASSERT_TRUE(AnswerWithPeer(b_, {}).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kWarning, "the other leg has no image stream; nothing is relayed until"));
  ExpectDropped(b_, a_, {1}, &EndpointStatistics::not_joined);
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  ASSERT_TRUE(Local(a_, true, kAnswer).ok);
  JoinThem(a_, b_);
  EXPECT_TRUE(Relays(a_, b_, {1, 2}));
  EXPECT_TRUE(Relays(b_, a_, {3, 4}));
}

TEST_F(PassThrough, IsRefusedWhereCryptoIsMandatory) {
  const std::string reason = "crypto is mandatory and UDP pass-through relays packets as they are";
  LocalSettings local = LocalFor(Pcmu());
  local.udp_pass_through = local.crypto.mandatory = true;
  EXPECT_EQ(a_.endpoint->DescribeLocal(local, a_.local, kLimit).reason, reason);
  RemoteDescription remote = RemoteImageOf(a_, kOffer);
  remote.crypto.mandatory = true;
  EXPECT_EQ(a_.endpoint->DescribeRemote(remote, kLimit).reason, reason);
  EXPECT_FALSE(LocalImage(a_));
}

TEST_F(PassThrough, DoesNotAskForKeys) {
  LocalSettings local = LocalFor(Pcmu());
  local.udp_pass_through = true;
  local.crypto.suite = "AES_CM_128_HMAC_SHA1_80";
  EXPECT_TRUE(a_.endpoint->DescribeLocal(local, a_.local, kLimit).ok);
}

TEST_F(PassThrough, ThePeersGoTheirWaysWithJoinUnjoinImportAndClose) {
  ChangeToFax();
  EXPECT_TRUE(a_.endpoint->Unjoin(*b_.endpoint, kLimit).ok);
  ExpectDropped(a_, b_, {1}, &EndpointStatistics::not_joined);

  ASSERT_TRUE(AnswerWithPeer(b_, PeerOf(a_)).ok);
  EXPECT_TRUE(Relays(a_, b_, {2}));
  Leg c = AudioLeg();
  ASSERT_TRUE(Remote(c, true, kOffer).ok);
  ASSERT_TRUE(Local(c, true, kAnswer).ok);
  JoinThem(c, b_);
  ExpectDropped(a_, b_, {3}, &EndpointStatistics::not_joined);
  EXPECT_TRUE(Relays(c, b_, {4}));

  ASSERT_TRUE(AnswerWithPeer(b_, PeerOf(a_)).ok);
  EXPECT_TRUE(Relays(b_, a_, {5}));
  const auto elsewhere = NewSession(*server_);
  ASSERT_TRUE(elsewhere->Import(*a_.endpoint).ok);
  ExpectDropped(a_, b_, {6}, &EndpointStatistics::not_joined);

  ASSERT_TRUE(session_->Import(*a_.endpoint).ok);
  ASSERT_TRUE(AnswerWithPeer(b_, PeerOf(a_)).ok);
  EXPECT_TRUE(Relays(b_, a_, {7}));
  ASSERT_TRUE(a_.endpoint->Close(kLimit).ok);
  b_.far_end->Send({8}, b_.local.rtp_port);
  EXPECT_TRUE(Eventually([&] { return b_.Statistics().not_joined == 1; }));
}

TEST_F(PassThrough, SendsNothingToAFarEndThatWantsNothing) {
  ChangeToFax();
  RemoteDescription held = RemoteImageOf(b_, kOffer);
  held.rtp_port = 0;
  ASSERT_TRUE(b_.endpoint->DescribeRemote(held, kLimit).ok);
  ASSERT_TRUE(Local(b_, true, kAnswer).ok);
  ExpectDropped(a_, b_, {1}, &EndpointStatistics::on_hold);
}

TEST_F(PassThrough, RelaysBetweenEndpointsOfTwoServersAndTwoFamilies) {
  ServerConfig config = Config();
  config.addresses = {"::1"};
  const auto other = Open(config);
  const auto there = NewSession(*other);
  b_ = NewLeg(*there, "::1");
  ASSERT_TRUE(session_->Import(*b_.endpoint).ok);
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1, 2}));
  EXPECT_TRUE(Relays(b_, a_, {3, 4}));
}

TEST_F(PassThrough, AFloodIsRelayedInOrderAndWithoutLoss) {
  ChangeToFax();
  for (uint16_t round = 0; round < 50; ++round) {
    for (uint16_t i = 0; i < 40; ++i)
      a_.far_end->Send(PayloadOf(static_cast<uint16_t>(40 * round + i), 300), a_.local.rtp_port);
    for (uint16_t i = 0; i < 40; ++i) {
      ASSERT_EQ(b_.far_end->Receive(), PayloadOf(static_cast<uint16_t>(40 * round + i), 300)) << round << " " << i;
    }
  }
}

}  // namespace
}  // namespace media_engine_test
