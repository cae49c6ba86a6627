// SRTP through the whole control library: records in, protected packets on the wire.
#include "contract_srtp_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::kLongTag;
using test_support::kShortTag;
using test_support::SrtpContract;
using test_support::SrtpPeer;
using test_support::SrtpPeerKey;
using test_support::SrtpPeerKeys;
using testing::HasSubstr;
using testing::Not;

TEST_P(SrtpContract, CarriesBothDirectionsBetweenProtectedLegs) {
  Start();
  const auto session = NewSession();
  const SecureLeg a = NewSecureLeg(session, 1, 2, kLongTag), b = NewSecureLeg(session, 3, 4, kShortTag);
  ASSERT_TRUE(Join(a.leg, b.leg));
  for (std::uint16_t number = 1; number <= 50; ++number) {
    a.Send(number);
    EXPECT_EQ(b.Receive(), Payload(number));
    b.Send(number);
    EXPECT_EQ(a.Receive(), Payload(number));
  }
  EXPECT_THAT(logger().Messages(kelvaro::ERROR_LOG_LEVEL), testing::IsEmpty());
}

TEST_P(SrtpContract, AProtectedLegIsJoinedWithOneInTheClear) {
  Start();
  const auto session = NewSession();
  const SecureLeg a = NewSecureLeg(session, 1, 2);
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a.leg, b));
  a.Send(1);
  EXPECT_EQ(b.Receive().value().payload, Payload(1));
  b.Send(2);
  EXPECT_EQ(a.Receive(), Payload(2));
}

TEST_P(SrtpContract, AnAnsweredLegTakesTheOfferedKeys) {
  Start();
  const auto session = NewSession();
  SecureLeg a;
  a.leg.connection = NewConnection(session);
  MediaConfig offer = RemoteOf(a.leg);
  SetKeys(offer, 2, kLongTag, 20, "1:4");
  ASSERT_TRUE(a.leg.connection->SetRemoteOffer(offer));
  AddCodec(a.leg.local);
  SetKeys(a.leg.local, 1, kLongTag, 20, "7:1");
  ASSERT_TRUE(a.leg.connection->GetLocalAnswer(a.leg.local));
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, SrtpPeerKeys{SrtpPeerKey(2), false, {0, 0, 0, 1}});
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, SrtpPeerKeys{SrtpPeerKey(1), false, {7}});
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(b, a.leg));
  a.Send(1);
  EXPECT_EQ(b.Receive().value().payload, Payload(1));
  b.Send(2);
  EXPECT_EQ(a.Receive(), Payload(2));
}

TEST_P(SrtpContract, KeysThatTheFarEndDoesNotAnswerWithAreNotUsed) {
  Start();
  const auto session = NewSession();
  for (const bool says_so : {true, false}) {
    Leg a;
    a.connection = NewConnection(session);
    AddCodec(a.local);
    SetKeys(a.local, 1);
    ASSERT_TRUE(a.connection->GetLocalOffer(a.local));
    MediaConfig remote = RemoteOf(a);
    if (says_so) remote.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
    ASSERT_TRUE(a.connection->SetRemoteAnswer(remote));
    const Leg b = NewLeg(session);
    ASSERT_TRUE(Join(a, b));
    EXPECT_TRUE(Flows(a, b, 1));
    EXPECT_TRUE(Flows(b, a, 2));
  }
}

TEST_P(SrtpContract, MandatoryCryptoIsRefusedRatherThanDoneWithout) {
  Start();
  const auto session = NewSession();
  Leg leg;
  leg.connection = NewConnection(session);
  MediaConfig mandatory;
  AddCodec(mandatory);
  mandatory.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
  mandatory.SetCryptoMandFlag(true);
  EXPECT_THAT(Refusal([&] { return leg.connection->GetLocalOffer(mandatory); }),
              HasSubstr("Refused local offer: crypto is mandatory and the local description has no keys"));
  SetKeys(mandatory, 1);
  ASSERT_TRUE(leg.connection->GetLocalOffer(mandatory));
  MediaConfig remote = RemoteOf(leg);
  const std::string reason = "Refused remote answer: crypto is mandatory and the far end's description has no keys";
  EXPECT_THAT(Refusal([&] { return leg.connection->SetRemoteAnswer(remote); }), HasSubstr(reason));
  remote.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
  EXPECT_THAT(Refusal([&] { return leg.connection->SetRemoteAnswer(remote); }), HasSubstr(reason));
  SetKeys(remote, 2);
  EXPECT_TRUE(leg.connection->SetRemoteAnswer(remote));
}

TEST_P(SrtpContract, WhatIsWrongWithKeysIsNamedAndTheKeysAreNot) {
  Start();
  const auto session = NewSession();
  Leg leg;
  leg.connection = NewConnection(session);
  const std::string key = "thirty octets to be kept quiet";
  const auto refusal = [&](const char* suite, int length, int exponent, const char* mki) {
    MediaConfig config;
    AddCodec(config);
    config.SetCrypto(suite, key.data(), length, exponent, mki);
    MediaConfig remote = RemoteOf(leg);
    remote.SetCrypto(suite, key.data(), length, exponent, mki);
    const std::string local = Refusal([&] { return leg.connection->GetLocalOffer(config); });
    const std::string offered = Refusal([&] { return leg.connection->SetRemoteOffer(remote); });
    const std::string prefix = "Refused local offer: ";
    EXPECT_THAT(offered, HasSubstr(local.substr(local.find(prefix) + prefix.size())));
    return local;
  };
  EXPECT_THAT(refusal("AEAD_AES_128_GCM", 30, 0, nullptr), HasSubstr("crypto suite 'AEAD_AES_128_GCM' is not known"));
  EXPECT_THAT(refusal(kLongTag, 16, 0, nullptr), HasSubstr(std::string(kLongTag) + ": a key of 16 octets, not 30"));
  EXPECT_THAT(refusal(kLongTag, 30, 49, nullptr), HasSubstr("lifetime exponent 49 is not in 0-48"));
  EXPECT_THAT(refusal(kLongTag, 30, 0, "1:200"), HasSubstr("MKI '1:200' is not a value and its length"));
  EXPECT_THAT(refusal(kLongTag, 30, 0, key.c_str()), HasSubstr("MKI of 30 characters is not"));
  for (const auto level : {kelvaro::ERROR_LOG_LEVEL, kelvaro::WARN_LOG_LEVEL, kelvaro::INFO_LOG_LEVEL,
                           kelvaro::DEBUG_LOG_LEVEL, kelvaro::TRACE_LOG_LEVEL}) {
    for (const std::string& message : logger().Messages(level)) EXPECT_THAT(message, Not(HasSubstr("thirty octets")));
  }
}

TEST_P(SrtpContract, ALocalRecordWithoutAKeyGetsOne) {
  Start();
  const auto session = NewSession();
  SecureLeg a;
  a.leg.connection = NewConnection(session);
  AddCodec(a.leg.local);
  a.leg.local.SetCrypto(kShortTag, nullptr, 0, 31, "1:4");
  ASSERT_TRUE(a.leg.connection->GetLocalOffer(a.leg.local));
  const auto made = a.leg.local.GetCrypto().value();
  EXPECT_EQ(made.suite, kShortTag);
  EXPECT_EQ(made.lifetime_exponent, 31);
  EXPECT_EQ(made.mki_length, "1:4");
  ASSERT_EQ(made.key.size(), 30u);
  MediaConfig again;
  AddCodec(again);
  again.SetCrypto(kShortTag, nullptr, 0, 31, "1:4");
  ASSERT_TRUE(a.leg.connection->GetLocalOffer(again));
  EXPECT_EQ(again.GetCrypto()->key, made.key);
  MediaConfig remote = RemoteOf(a.leg);
  SetKeys(remote, 2, kShortTag);
  ASSERT_TRUE(a.leg.connection->SetRemoteAnswer(remote));
  const SrtpPeerKeys keys{{made.key.begin(), made.key.end()}, true, {0, 0, 0, 1}};
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, keys);
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a.leg, b));
  b.Send(1);
  EXPECT_EQ(a.Receive(), Payload(1));
  // One that was given stands as it was given.
  SetKeys(again, 5);
  ASSERT_TRUE(a.leg.connection->GetLocalOffer(again));
  const auto given = SrtpPeerKey(5);
  EXPECT_TRUE(std::equal(given.begin(), given.end(), again.GetCrypto()->key.begin(), again.GetCrypto()->key.end()));
}

TEST_P(SrtpContract, NewKeysInANewDescriptionKeepTheCall) {
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
  a.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, SrtpPeerKeys{SrtpPeerKey(6), false, {}});
  a.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, SrtpPeerKeys{SrtpPeerKey(5), false, {}});
  a.Send(2);
  EXPECT_EQ(b.Receive().value().payload, Payload(2));
  b.Send(2);
  EXPECT_EQ(a.Receive(), Payload(2));
}

TEST_P(SrtpContract, AnImportedConnectionKeepsItsKeys) {
  Start();
  const auto there = NewSession(), here = NewSession();
  const SecureLeg b = NewSecureLeg(there, 3, 4);
  const Leg a = NewLeg(here);
  const ConnectionPtr imported(here->ImportNetworkConnection(b.leg.connection));
  ASSERT_TRUE(imported);
  ASSERT_TRUE(Join(a, b.leg));
  a.Send(1);
  EXPECT_EQ(b.Receive(), Payload(1));
  b.Send(1);
  EXPECT_EQ(a.Receive().value().payload, Payload(1));
}

INSTANTIATE_TEST_SUITE_P(MediaServers, SrtpContract, test_support::EveryMediaServer(), test_support::NameOf);

}  // namespace
