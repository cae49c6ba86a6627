// Keys as session descriptions give them.
#include "srtp_keys.h"
#include "srtp_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::MakeMasterKey;
using media_engine::NamesSuite;
using media_engine::ParseSrtpKeys;
using media_engine::SrtpKeys;
using media_engine::SrtpSuite;

SrtpKeys Parsed(const CryptoSettings& settings) {
  SrtpKeys keys;
  const Outcome outcome = ParseSrtpKeys(settings, keys);
  EXPECT_TRUE(outcome.ok) << outcome.reason;
  return keys;
}

std::string Refusal(const CryptoSettings& settings) {
  SrtpKeys keys;
  const Outcome outcome = ParseSrtpKeys(settings, keys);
  EXPECT_FALSE(outcome.ok);
  return outcome.reason;
}

TEST(SrtpKeys, BothSuitesAreKnownByName) {
  EXPECT_EQ(Parsed(KeysOf(1, kLongTagSuite)).suite, SrtpSuite::kAesCm128HmacSha1_80);
  EXPECT_EQ(Parsed(KeysOf(1, kShortTagSuite)).suite, SrtpSuite::kAesCm128HmacSha1_32);
  EXPECT_EQ(Parsed(KeysOf(1)).master, KeysOf(1).key);
  EXPECT_EQ(
      Refusal(KeysOf(1, "F8_128_HMAC_SHA1_80")),
      "crypto suite 'F8_128_HMAC_SHA1_80' is not known (known: AES_CM_128_HMAC_SHA1_80, AES_CM_128_HMAC_SHA1_32)");
  EXPECT_FALSE(NamesSuite(NoKeys()));
  EXPECT_FALSE(NamesSuite(CryptoSettings()));
  EXPECT_TRUE(NamesSuite(KeysOf(1)));
}

TEST(SrtpKeys, AKeyOfAnotherLengthIsRefusedByItsLength) {
  for (const std::size_t length : {1u, 16u, 29u, 31u, 40u}) {
    CryptoSettings settings = KeysOf(1);
    settings.key.assign(length, 7);
    EXPECT_EQ(Refusal(settings),
              "crypto suite AES_CM_128_HMAC_SHA1_80: a key of " + std::to_string(length) + " octets, not 30");
  }
}

TEST(SrtpKeys, AKeyThatNobodyFilledInIsRefused) {
  CryptoSettings settings = KeysOf(1);
  settings.key.assign(30, 0);
  EXPECT_EQ(Refusal(settings), "crypto suite AES_CM_128_HMAC_SHA1_80: the key is all zero: nobody has filled it in");
  settings.key[29] = 1;
  Parsed(settings);
}

TEST(SrtpKeys, TheLifetimeIsAPowerOfTwoAndRtcpHasFewerIndices) {
  const auto lifetimes = [](int exponent) {
    CryptoSettings settings = KeysOf(1);
    settings.lifetime_exponent = exponent;
    const SrtpKeys keys = Parsed(settings);
    return std::make_pair(keys.rtp_lifetime, keys.rtcp_lifetime);
  };
  EXPECT_EQ(lifetimes(1), std::make_pair(uint64_t{2}, uint64_t{2}));
  EXPECT_EQ(lifetimes(20), std::make_pair(uint64_t{1} << 20, uint64_t{1} << 20));
  EXPECT_EQ(lifetimes(31), std::make_pair(uint64_t{1} << 31, uint64_t{1} << 31));
  EXPECT_EQ(lifetimes(48), std::make_pair(uint64_t{1} << 48, uint64_t{1} << 31));
  EXPECT_EQ(lifetimes(0), lifetimes(48));
  for (const int exponent : {-1, 49, 64, 1000}) {
    CryptoSettings settings = KeysOf(1);
    settings.lifetime_exponent = exponent;
    EXPECT_EQ(Refusal(settings), "crypto suite AES_CM_128_HMAC_SHA1_80: lifetime exponent " + std::to_string(exponent) +
                                     " is not in 0-48");
  }
}

TEST(SrtpKeys, TheKeyIdentifierIsWrittenInAsManyOctetsAsItsLengthSays) {
  const auto mki = [](const std::string& text) { return Parsed(KeysOf(1, kLongTagSuite, text)).mki; };
  EXPECT_EQ(mki(""), Bytes());
  EXPECT_EQ(mki("1:4"), Bytes({0, 0, 0, 1}));
  EXPECT_EQ(mki("1:1"), Bytes({1}));
  EXPECT_EQ(mki("66051:4"), Bytes({0, 1, 2, 3}));
  EXPECT_EQ(mki("255:1"), Bytes({255}));
  EXPECT_EQ(mki("18446744073709551616:9"), Bytes({1, 0, 0, 0, 0, 0, 0, 0, 0}));
  Bytes longest(128, 0);
  longest.back() = 7;
  EXPECT_EQ(mki("7:128"), longest);
}

TEST(SrtpKeys, AKeyIdentifierThatMakesNoSenseIsRefusedByItsText) {
  for (const std::string text : {"1", ":", "1:", ":4", "1:0", "1:129", "1:1000", "256:1", "65536:2", "1:4:1"}) {
    EXPECT_EQ(Refusal(KeysOf(1, kLongTagSuite, text)),
              "crypto suite AES_CM_128_HMAC_SHA1_80: MKI '" + text +
                  "' is not a value and its length in octets, 1 to 128, as in '1:4'");
  }
}

TEST(SrtpKeys, WhatMayBeAKeyInTheWrongPlaceIsNotRepeated) {
  const std::string key = "WVNfX19zZW1jdGwgKCkgewkyMjA7fQp9CnVubGVz|2^20|1:4";
  const std::string reason = Refusal(KeysOf(1, kLongTagSuite, key));
  EXPECT_EQ(reason.find("WVNf"), std::string::npos) << reason;
  EXPECT_NE(reason.find("MKI of 49 characters is not"), std::string::npos) << reason;
}

TEST(SrtpKeys, AreTheSameWhenTheirPacketsAre) {
  const SrtpKeys keys = Parsed(KeysOf(1, kLongTagSuite, "1:4"));
  CryptoSettings longer = KeysOf(1, kLongTagSuite, "1:4");
  longer.lifetime_exponent = 20;
  EXPECT_TRUE(keys.SameAs(Parsed(longer)));
  EXPECT_FALSE(keys.SameAs(Parsed(KeysOf(2, kLongTagSuite, "1:4"))));
  EXPECT_FALSE(keys.SameAs(Parsed(KeysOf(1, kShortTagSuite, "1:4"))));
  EXPECT_FALSE(keys.SameAs(Parsed(KeysOf(1, kLongTagSuite, "2:4"))));
  EXPECT_FALSE(keys.SameAs(Parsed(KeysOf(1))));
}

TEST(SrtpKeys, AKeyThatIsMadeIsWholeAndNobodyElses) {
  SrtpKeys one, other;
  ASSERT_TRUE(MakeMasterKey(one).ok);
  ASSERT_TRUE(MakeMasterKey(other).ok);
  EXPECT_EQ(one.master.size(), 30u);
  EXPECT_NE(one.master, other.master);
}

}  // namespace
}  // namespace media_engine_test
