#include "sip/srtp_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace kvx_switch {
namespace {

// The octets 0x00 to 0x1d, encoded by hand.
constexpr const char* kCounting = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwd";

std::string Line(const std::string& key_parameter, const std::string& suite = "AES_CM_128_HMAC_SHA1_80") {
  return "1 " + suite + " inline:" + key_parameter;
}

TEST(SrtpKeys, ReadsKeyLifetimeAndMki) {
  std::string problem;
  auto key = ParseCrypto("7 aes_cm_128_hmac_sha1_32 inline:" + std::string(kCounting) + "|2^20|1:4 WSH=128", problem);
  ASSERT_TRUE(key) << problem;
  EXPECT_EQ(key->tag, "7");
  EXPECT_EQ(key->suite, SrtpSuite::kAesCm128Sha1_32);
  for (size_t i = 0; i < key->block.size(); ++i) EXPECT_EQ(key->block[i], i);
  EXPECT_EQ(key->lifetime_exponent, 20);
  EXPECT_EQ(key->mki_and_length, "1:4");
  EXPECT_EQ(CryptoText(*key), "7 AES_CM_128_HMAC_SHA1_32 inline:" + std::string(kCounting) + "|2^20|1:4");
}

TEST(SrtpKeys, LifetimeMayBeWrittenOutOrLeftOut) {
  std::string problem;
  EXPECT_EQ(ParseCrypto(Line(std::string(kCounting) + "|1048576"), problem)->lifetime_exponent, 20);
  EXPECT_EQ(ParseCrypto(Line(kCounting), problem)->lifetime_exponent, 0);
  EXPECT_EQ(ParseCrypto(Line(std::string(kCounting) + "|3:2"), problem)->mki_and_length, "3:2");
}

TEST(SrtpKeys, WhatCannotBeUsedIsNamedWithoutTheKey) {
  const std::string key = kCounting;
  const struct {
    std::string value;
    const char* problem;
  } kMistakes[] = {
      {"", "the tag is no number of 1 to 9 digits"},
      {"x AES_CM_128_HMAC_SHA1_80 inline:" + key, "the tag is no number of 1 to 9 digits"},
      {"1234567890 AES_CM_128_HMAC_SHA1_80 inline:" + key, "the tag is no number of 1 to 9 digits"},
      {Line(key, "AEAD_AES_256_GCM"), "suite \"AEAD_AES_256_GCM\" is not supported"},
      {"1 AES_CM_128_HMAC_SHA1_80", "the key is not \"inline:\""},
      {"1 AES_CM_128_HMAC_SHA1_80 prompt:" + key, "the key is not \"inline:\""},
      {Line(key.substr(1)), "the key is not 30 octets in base64"},
      {Line(key + "A"), "the key is not 30 octets in base64"},
      {Line(key.substr(1) + "="), "the key is not 30 octets in base64"},
      {Line(key + ";inline:" + key), "more than one key"},
      {Line(key + "|2^49"), "lifetime \"2^49\" is no power of 2"},
      {Line(key + "|1000"), "lifetime \"1000\" is no power of 2"},
      {Line(key + "|x:4"), "MKI \"x:4\" is not value:length"},
      {Line(key + "|1:129"), "MKI \"1:129\" is not value:length"},
      {Line(key) + " UNENCRYPTED_SRTP", "session parameter \"UNENCRYPTED_SRTP\" is not supported"},
      {Line(key) + " WSH=64 KDR=1", "session parameter \"KDR=1\" is not supported"},
  };
  for (const auto& mistake : kMistakes) {
    std::string problem;
    EXPECT_FALSE(ParseCrypto(mistake.value, problem)) << mistake.value;
    EXPECT_EQ(problem, mistake.problem) << mistake.value;
    EXPECT_EQ(problem.find(key.substr(2, 20)), std::string::npos);
  }
}

TEST(SrtpKeys, EveryKeyOfOursIsNewAndReadsBack) {
  std::set<std::string> texts;
  for (int i = 0; i < 100; ++i) {
    const SrtpKey made = MakeSrtpKey(SrtpSuite::kAesCm128Sha1_80, "1");
    texts.insert(CryptoText(made));
    std::string problem;
    auto read = ParseCrypto(CryptoText(made), problem);
    ASSERT_TRUE(read) << problem;
    EXPECT_EQ(read->block, made.block);
  }
  EXPECT_EQ(texts.size(), 100u);
}

SdpMedia Stream(const std::string& protocol, std::vector<std::string> cryptos) {
  SdpMedia stream;
  stream.kind = "audio";
  stream.protocol = protocol;
  stream.cryptos = std::move(cryptos);
  return stream;
}

SecurityWish Wish(SecureMedia wanted) {
  SecurityWish wish;
  wish.wanted = wanted;
  return wish;
}

TEST(SrtpOffer, IsTakenAsTheWishSays) {
  const SdpMedia clear = Stream("RTP/AVP", {});
  const SdpMedia willing = Stream("RTP/AVP", {Line(kCounting)});
  const SdpMedia secure = Stream("RTP/SAVP", {Line(kCounting)});
  const struct {
    SecureMedia wanted;
    const SdpMedia* stream;
    bool encrypted;
    const char* problem;
  } kCases[] = {
      {SecureMedia::kOff, &clear, false, ""},
      {SecureMedia::kOff, &willing, false, ""},
      {SecureMedia::kOff, &secure, false, "SRTP is switched off"},
      {SecureMedia::kOptional, &clear, false, ""},
      {SecureMedia::kOptional, &willing, true, ""},
      {SecureMedia::kOptional, &secure, true, ""},
      {SecureMedia::kMandatory, &clear, false, "SRTP is mandatory: no key is offered"},
      {SecureMedia::kMandatory, &willing, true, ""},
      {SecureMedia::kMandatory, &secure, true, ""},
  };
  for (const auto& one : kCases) {
    const StreamSecurity security = SecurityOfOffer(*one.stream, Wish(one.wanted));
    EXPECT_EQ(security.problem, one.problem);
    EXPECT_EQ(security.remote.has_value(), one.encrypted);
  }
}

TEST(SrtpOffer, TheFirstUsableKeyOfItsListIsTaken) {
  const SdpMedia stream = Stream("RTP/SAVP", {"1 AEAD_AES_256_GCM inline:x", "2 AES_CM_128_HMAC_SHA1_32 inline:short",
                                              "3 AES_CM_128_HMAC_SHA1_32 inline:" + std::string(kCounting)});
  const StreamSecurity security = SecurityOfOffer(stream, Wish(SecureMedia::kOptional));
  ASSERT_TRUE(security.remote) << security.problem;
  EXPECT_EQ(security.remote->tag, "3");
  SecurityWish long_tags = Wish(SecureMedia::kMandatory);
  long_tags.suites = {SrtpSuite::kAesCm128Sha1_80};
  EXPECT_EQ(SecurityOfOffer(stream, long_tags).problem,
            "no usable SRTP key: suite \"AES_CM_128_HMAC_SHA1_32\" is not among those of the profile");
}

TEST(SrtpAnswer, NeedsTheTagAndSuiteOfTheOffer) {
  SrtpKey offered = MakeSrtpKey(SrtpSuite::kAesCm128Sha1_80, "1");
  EXPECT_TRUE(SecurityOfAnswer(Stream("RTP/SAVP", {Line(kCounting)}), "RTP/SAVP", &offered).remote);
  EXPECT_EQ(SecurityOfAnswer(Stream("RTP/SAVP", {}), "RTP/SAVP", &offered).problem,
            "no usable SRTP key: no key is given");
  EXPECT_EQ(SecurityOfAnswer(Stream("RTP/AVP", {}), "RTP/SAVP", &offered).problem, "it answers RTP/SAVP with RTP/AVP");
  EXPECT_EQ(
      SecurityOfAnswer(Stream("RTP/SAVP", {Line(kCounting, "AES_CM_128_HMAC_SHA1_32")}), "RTP/SAVP", &offered).problem,
      "no usable SRTP key: tag and suite are not those of the offer");
}

TEST(SrtpAnswer, MayDeclineWhatWasOnlyOptional) {
  SrtpKey offered = MakeSrtpKey(SrtpSuite::kAesCm128Sha1_80, "1");
  const StreamSecurity declined = SecurityOfAnswer(Stream("RTP/AVP", {}), "RTP/AVP", &offered);
  EXPECT_EQ(declined.problem, "");
  EXPECT_FALSE(declined.remote);
  EXPECT_NE(SecurityOfAnswer(Stream("RTP/AVP", {"1 AES_CM_128_HMAC_SHA1_80 inline:x"}), "RTP/AVP", &offered).problem,
            "")
      << "a key that cannot be read is no refusal";
}

}  // namespace
}  // namespace kvx_switch
