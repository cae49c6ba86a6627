// Between descriptions and packets: when what is protected.
#include "endpoint_crypto_fixture.h"

namespace media_engine_test {
namespace {

using Crypto = CryptoTest;

TEST_F(Crypto, WithoutKeysEverythingGoesInTheClear) {
  const Bytes packet = NumberedPacket(1);
  EXPECT_EQ(Sent(packet), packet);
  EXPECT_TRUE(Takes(packet, packet));
  ASSERT_TRUE(Local(NoKeys()).ok);
  ASSERT_TRUE(Remote(NoKeys()).ok);
  EXPECT_EQ(Sent(packet), packet);
  EXPECT_TRUE(Takes(packet, packet));
}

TEST_F(Crypto, KeysOfOneSideAloneAreNotUsed) {
  const Bytes packet = NumberedPacket(1);
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  EXPECT_EQ(Sent(packet), packet);
  ASSERT_TRUE(Remote(NoKeys()).ok);
  EXPECT_EQ(Sent(packet), packet);
  EXPECT_TRUE(Takes(packet, packet));
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  ASSERT_TRUE(Local(NoKeys()).ok);
  EXPECT_EQ(Sent(packet), packet);
  EXPECT_TRUE(Takes(packet, packet));
}

TEST_F(Crypto, WithKeysOfBothSidesNothingGoesInTheClear) {
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Remote(KeysOf(2)).ok);  // an offer, and then our answer
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  EXPECT_TRUE(Arrives(receives, 1));
  EXPECT_TRUE(Comes(sends, 1));
  EXPECT_FALSE(Takes(NumberedPacket(2), NumberedPacket(2)));
  EXPECT_EQ(Counted().srtp_unauthentic, 1u);
}

TEST_F(Crypto, RtcpIsProtectedWithTheSameKeys) {
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  const Bytes report = {0x81, 201, 0, 1, 0x11, 0x11, 0x11, 0x11};
  Bytes data = report;
  data.resize(report.size() + kSrtpTrailerRoom);
  std::size_t length = report.size();
  ASSERT_TRUE(crypto_.ProtectRtcp(data.data(), length));
  data.resize(length);
  EXPECT_EQ(receives.Rtcp(data), report);

  Bytes came = sends.Rtcp(report).value();
  const Bytes again = came;
  length = came.size();
  ASSERT_TRUE(crypto_.UnprotectRtcp(came.data(), length, At(0)));
  EXPECT_EQ(Bytes(came.begin(), came.begin() + static_cast<std::ptrdiff_t>(length)), report);
  for (Bytes wrong : {again, report, Bytes()}) {
    length = wrong.size();
    EXPECT_FALSE(crypto_.UnprotectRtcp(wrong.data(), length, At(0)));
  }
  EXPECT_EQ(Counted().srtp_replayed, 1u);
  EXPECT_EQ(Counted().srtp_unauthentic, 2u);
}

TEST_F(Crypto, WhereItIsMandatoryADescriptionWithoutKeysIsRefused) {
  CryptoSettings mandatory = KeysOf(1);
  mandatory.mandatory = true;
  EXPECT_EQ(Local(NoKeys(true)).reason, "crypto is mandatory and the local description has no keys");
  EXPECT_EQ(Remote(NoKeys(true)).reason, "crypto is mandatory and the far end's description has no keys");
  EXPECT_FALSE(crypto_.blocked());  // the refused ones changed nothing
  ASSERT_TRUE(Local(mandatory, true).ok);
  EXPECT_EQ(Remote(NoKeys()).reason, "crypto is mandatory and the far end's description has no keys");
  EXPECT_EQ(Remote(CryptoSettings()).reason, "crypto is mandatory and the far end's description has no keys");
  EXPECT_TRUE(Remote(KeysOf(2)).ok);
  // And once it was said it stays so.
  EXPECT_EQ(Remote(NoKeys()).reason, "crypto is mandatory and the far end's description has no keys");
  EXPECT_EQ(Local(NoKeys()).reason, "crypto is mandatory and the local description has no keys");
}

TEST_F(Crypto, WhereItIsMandatoryNothingGoesUntilBothSidesHaveKeys) {
  CryptoSettings mandatory = KeysOf(1);
  mandatory.mandatory = true;
  ASSERT_TRUE(Local(mandatory, true).ok);
  EXPECT_TRUE(crypto_.blocked());
  EXPECT_FALSE(Sent(NumberedPacket(1)));
  EXPECT_FALSE(Takes(NumberedPacket(1), NumberedPacket(1)));
  EXPECT_EQ(Counted().srtp_missing, 2u);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  EXPECT_TRUE(Arrives(receives, 1));
}

TEST_F(Crypto, ACallInTheClearCanBecomeMandatory) {
  ASSERT_TRUE(Local(NoKeys()).ok);
  ASSERT_TRUE(Remote(NoKeys()).ok);
  CryptoSettings offered = KeysOf(2);
  offered.mandatory = true;
  ASSERT_TRUE(Remote(offered).ok);
  EXPECT_FALSE(Sent(NumberedPacket(1)));
  EXPECT_FALSE(Takes(NumberedPacket(1), NumberedPacket(1)));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2));
  EXPECT_TRUE(Comes(sends, 1));
}

TEST_F(Crypto, AMandatoryAnswerToAnOfferWithoutKeysIsRefused) {
  ASSERT_TRUE(Remote(CryptoSettings()).ok);
  CryptoSettings mandatory = KeysOf(1);
  mandatory.mandatory = true;
  EXPECT_EQ(Local(mandatory).reason, "crypto is mandatory and the far end's description has no keys");
  EXPECT_TRUE(Local(mandatory, true).ok);  // as an offer it may be answered with keys
}

TEST_F(Crypto, MandatoryCryptoAndPassThroughExcludeEachOther) {
  LocalSettings local;
  local.crypto = KeysOf(1);
  local.crypto.mandatory = true;
  local.udp_pass_through = true;
  const std::string reason = "crypto is mandatory and UDP pass-through relays packets as they are";
  EXPECT_EQ(crypto_.DescribeLocal(local, false).reason, reason);
  local.udp_pass_through = false;
  ASSERT_TRUE(crypto_.DescribeLocal(local, false).ok);
  RemoteDescription remote;
  remote.crypto = KeysOf(2);
  remote.udp_pass_through = true;
  EXPECT_EQ(crypto_.DescribeRemote(remote).reason, reason);
}

TEST_F(Crypto, ARefusedDescriptionLeavesTheKeysThatStand) {
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  EXPECT_FALSE(Local(KeysOf(3, kLongTagSuite, "nonsense")).ok);
  EXPECT_FALSE(Remote(KeysOf(4, "AES_CM_128_HMAC_MD5")).ok);
  CryptoSettings no_key = KeysOf(4);
  no_key.key.clear();
  EXPECT_EQ(Remote(no_key).reason, "crypto suite AES_CM_128_HMAC_SHA1_80: the far end's description has no key");
  EXPECT_TRUE(Arrives(receives, 1));
  EXPECT_TRUE(Comes(sends, 1));
}

TEST_F(Crypto, AMissingKeyOfOursIsMadeOnceAndKept) {
  CryptoSettings settings = KeysOf(1);
  settings.key.clear();
  ASSERT_TRUE(Local(settings).ok);
  const SecretBytes made = crypto_.LocalKey();
  ASSERT_EQ(made.size(), 30u);
  ASSERT_TRUE(Local(settings).ok);
  EXPECT_EQ(crypto_.LocalKey(), made);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  SrtpPeer receives(SrtpPeer::Way::kReceives, {Bytes(made.begin(), made.end()), false, {}});
  EXPECT_TRUE(Arrives(receives, 1));
  settings.suite = kShortTagSuite;
  ASSERT_TRUE(Local(settings).ok);
  EXPECT_NE(crypto_.LocalKey(), made);
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  EXPECT_EQ(crypto_.LocalKey(), KeysOf(1).key);
  ASSERT_TRUE(Local(NoKeys()).ok);
  EXPECT_TRUE(crypto_.LocalKey().empty());
}

TEST_F(Crypto, TheEndOfAKeysLifeIsToldOnceAndNewKeysGoOn) {
  CryptoSettings ours = KeysOf(1), theirs = KeysOf(2);
  ours.lifetime_exponent = theirs.lifetime_exponent = 2;
  SrtpPeer sends(SrtpPeer::Way::kSends, PeerKeysOf(2)), receives(SrtpPeer::Way::kReceives, PeerKeysOf(1));
  ASSERT_TRUE(Local(ours).ok);
  ASSERT_TRUE(Remote(theirs).ok);
  for (uint16_t number = 1; number <= 4; ++number) {
    EXPECT_TRUE(Arrives(receives, number));
    EXPECT_TRUE(Comes(sends, number));
  }
  EXPECT_THAT(warnings_, testing::IsEmpty());
  for (uint16_t number = 5; number <= 7; ++number) {
    EXPECT_FALSE(Sent(NumberedPacket(number)));
    EXPECT_FALSE(Comes(sends, number));
    EXPECT_FALSE(Takes(NumberedPacket(number), NumberedPacket(number)));  // nor in the clear
  }
  EXPECT_EQ(Counted().srtp_key_expired, 9u);
  EXPECT_THAT(warnings_, testing::ElementsAre(
                             "the keys we send with have served their time: dropped, and from now on only counted",
                             "the far end's keys have served their time: dropped, and from now on only counted"));
  // The same again with a longer life, or others.
  ours.lifetime_exponent = 3;
  ASSERT_TRUE(Local(ours).ok);
  EXPECT_TRUE(Arrives(receives, 8));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  SrtpPeer fresh(SrtpPeer::Way::kSends, PeerKeysOf(3));
  EXPECT_TRUE(Comes(fresh, 8));
}

TEST_F(Crypto, PacketsThatAreNotAuthenticAreToldOfOncePerKeys) {
  ASSERT_TRUE(Local(KeysOf(1)).ok);
  ASSERT_TRUE(Remote(KeysOf(2)).ok);
  for (uint16_t number = 1; number <= 5; ++number) EXPECT_FALSE(Takes(NumberedPacket(number), NumberedPacket(number)));
  EXPECT_THAT(warnings_,
              testing::ElementsAre("a packet is not protected with the far end's keys: dropped, and from now "
                                   "on only counted"));
  ASSERT_TRUE(Remote(KeysOf(3)).ok);
  EXPECT_FALSE(Takes(NumberedPacket(6), NumberedPacket(6)));
  EXPECT_EQ(warnings_.size(), 2u);
  EXPECT_EQ(Counted().srtp_unauthentic, 6u);
}

}  // namespace
}  // namespace media_engine_test
