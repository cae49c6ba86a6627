// What SRTP of embedded media servers has beyond the contract (contract_srtp_test.cpp).
#include "contract_srtp_fixture.h"
#include "support/hidden_key.h"

#include <string.h>

namespace {

using namespace kelvaro::jsr309;
using test_support::kLongTag;
using test_support::SrtpContract;
using test_support::SrtpPeer;
using test_support::SrtpPeerKey;
using test_support::SrtpPeerKeys;

class EmbeddedSrtp : public SrtpContract {};

TEST_P(EmbeddedSrtp, KeysServeWithTheIdentifierAndForThePacketsThatTheRecordSays) {
  Start();
  const auto session = NewSession();
  SecureLeg a;
  a.leg.connection = NewConnection(session);
  AddCodec(a.leg.local);
  SetKeys(a.leg.local, 1, kLongTag, 3, "7:2");
  MediaConfig remote = RemoteOf(a.leg);
  SetKeys(remote, 2, kLongTag, 3, "9:3");
  ASSERT_TRUE(a.leg.connection->GetLocalOffer(a.leg.local));
  ASSERT_TRUE(a.leg.connection->SetRemoteAnswer(remote));
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, SrtpPeerKeys{SrtpPeerKey(2), false, {0, 0, 9}});
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, SrtpPeerKeys{SrtpPeerKey(1), false, {0, 7}});
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a.leg, b));
  // Two to the power of three each way, and not one more.
  for (std::uint16_t number = 1; number <= 8; ++number) {
    a.Send(number);
    ASSERT_EQ(b.Receive().value().payload, Payload(number)) << number;
    b.Send(number);
    ASSERT_EQ(a.Receive(), Payload(number)) << number;
  }
  a.Send(9);
  b.Send(9);
  EXPECT_FALSE(b.Receive(50));
  pollfd waiting{a.leg.far_end->Descriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "the far end's keys have served their time"));
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "the keys we send with have served their time"));
}

TEST_P(EmbeddedSrtp, NoKeyStaysInMemoryWhenTheConnectionIsClosed) {
  Start();
  const auto session = NewSession();
  const auto use = [&](const test_support::HiddenKey& key) {
    Leg leg;
    leg.connection = NewConnection(session);
    MediaConfig remote = RemoteOf(leg);
    AddCodec(leg.local);
    std::array<std::uint8_t, test_support::HiddenKey::kLength> octets;
    for (std::size_t i = 0; i < octets.size(); ++i) octets[i] = key[i];
    for (MediaConfig* config : {&leg.local, &remote}) config->SetCrypto(kLongTag, octets.data(), 30, 31, nullptr);
    explicit_bzero(octets.data(), octets.size());
    ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
    ASSERT_TRUE(leg.connection->SetRemoteAnswer(remote));
    EXPECT_GE(key.CopiesInMemory(), 1u);
    leg.connection->Close();
  };
  const test_support::HiddenKey key;
  use(key);
  std::size_t copies = key.CopiesInMemory();
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  // Their runtimes put registers on stacks, and half a key is one register; the next call's work goes over that.
  for (int call = 0; copies != 0 && call < 3; ++call) {
    use(test_support::HiddenKey());
    copies = key.CopiesInMemory();
  }
#endif
  EXPECT_EQ(copies, 0u);
}

TEST_P(EmbeddedSrtp, NewKeysTakeOverWhileTheFarEndMaySendUnderItsFormerOnes) {
  Start();
  const auto session = NewSession();
  SecureLeg a = NewSecureLeg(session, 1, 2);
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a.leg, b));
  a.Send(1);
  EXPECT_EQ(b.Receive().value().payload, Payload(1));
  MediaConfig local;
  AddCodec(local);
  SetKeys(local, 5);
  ASSERT_TRUE(a.leg.connection->GetLocalOffer(local));
  b.Send(1);
  EXPECT_EQ(a.Receive(), Payload(1));  // the far end has not answered yet
  MediaConfig remote = RemoteOf(a.leg);
  SetKeys(remote, 6);
  ASSERT_TRUE(a.leg.connection->SetRemoteAnswer(remote));
  a.Send(2);
  EXPECT_EQ(b.Receive().value().payload, Payload(2));
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, SrtpPeerKeys{SrtpPeerKey(6), false, {}});
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, SrtpPeerKeys{SrtpPeerKey(5), false, {}});
  a.Send(3);
  EXPECT_EQ(b.Receive().value().payload, Payload(3));
  b.Send(2);
  EXPECT_EQ(a.Receive(), Payload(2));
}

INSTANTIATE_TEST_SUITE_P(MediaServers, EmbeddedSrtp, testing::Values(test_support::MediaServerKind::kEmbedded),
                         test_support::NameOf);

}  // namespace
