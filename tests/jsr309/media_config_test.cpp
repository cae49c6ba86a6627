#include "kelvaro/jsr309/media_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using kelvaro::jsr309::MediaConfig;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

TEST(MediaConfig, RemembersNothingThatWasNotSet) {
  const MediaConfig config;
  EXPECT_EQ(config.GetIPAddress(), nullptr);
  EXPECT_EQ(config.GetPublicIPAddress(), nullptr);
  EXPECT_EQ(config.GetRtpPort(), 0);
  EXPECT_EQ(config.GetRtcpPort(), 0);
  EXPECT_EQ(config.GetCname(), nullptr);
  EXPECT_THAT(config.GetCodecs(), IsEmpty());
  EXPECT_EQ(config.GetG729AnnexBFlag(), std::nullopt);
  EXPECT_EQ(config.GetRfc2833Flag(), std::nullopt);
  EXPECT_EQ(config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE), std::nullopt);
  EXPECT_EQ(config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING), std::nullopt);
  EXPECT_FALSE(config.HasIpv4Tos());
  EXPECT_EQ(config.GetIpv4Tos(), 0);
  EXPECT_FALSE(config.GetCrypto().has_value());
  EXPECT_FALSE(config.GetUdpPassThru());
  EXPECT_FALSE(config.GetUdpPassThruPeer().has_value());
  EXPECT_EQ(config.GetJitterMode(), std::nullopt);
}

TEST(MediaConfig, TellsFalseFromUntouched) {
  MediaConfig config;
  config.SetG729AnnexBFlag(false);
  EXPECT_EQ(config.GetG729AnnexBFlag(), false);
  EXPECT_EQ(config.GetG723AnnexAFlag(), std::nullopt);
  config.SetIpv4Tos(0);
  EXPECT_TRUE(config.HasIpv4Tos());
  config.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 0);
  EXPECT_EQ(config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING), 0u);
}

TEST(MediaConfig, TakesTheBracketsOffAnIpv6Literal) {
  MediaConfig config;
  config.SetIPAddress("[::1]");
  EXPECT_STREQ(config.GetIPAddress(), "::1");
  config.SetIPAddress("192.0.2.1");
  EXPECT_STREQ(config.GetIPAddress(), "192.0.2.1");
  config.SetIPAddress(nullptr);
  EXPECT_EQ(config.GetIPAddress(), nullptr);
  config.SetUdpPassThruPeerRemoteIPAddress("[2001:db8::7]");
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_ip_address, "2001:db8::7");
}

TEST(MediaConfig, OwnsItsTexts) {
  auto source = std::make_unique<std::string>("session@leg");
  MediaConfig config;
  config.SetCname(source->c_str());
  config.SetFaxModeAutoSwitchMask(source->c_str());
  source.reset();
  EXPECT_STREQ(config.GetCname(), "session@leg");
  auto original = std::make_unique<MediaConfig>(config);
  const MediaConfig copy = *original;
  original.reset();
  EXPECT_STREQ(copy.GetFaxModeAutoSwitchMask(), "session@leg");
}

TEST(MediaConfig, KeepsCodecsInTheOrderTheyCame) {
  MediaConfig config;
  config.AddCodec("PCMA", 8, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  config.AddCodec("AMR", 96, 40, 8000, 12200, false, 0, 0, 0, "octet-align=1", 1, 1.0);
  ASSERT_THAT(config.GetCodecs(), SizeIs(2));
  const MediaConfig::Codec& first = config.GetCodecs()[0];
  EXPECT_EQ(first.name, "PCMA");
  EXPECT_EQ(first.payload_type, 8);
  EXPECT_EQ(first.packet_time_ms, 20);
  EXPECT_EQ(first.sample_rate, 8000);
  EXPECT_EQ(first.bit_rate, 64000);
  EXPECT_FALSE(first.video);
  EXPECT_EQ(first.format_parameters, std::nullopt);
  EXPECT_EQ(config.GetCodecs()[1].name, "AMR");
  EXPECT_EQ(config.GetCodecs()[1].format_parameters, "octet-align=1");
}

TEST(MediaConfig, KeepsAKeyOfAnyBytes) {
  const unsigned char key[] = {0, 1, 0, 255};
  MediaConfig config;
  config.SetCrypto("AES_CM_128_HMAC_SHA1_80", key, sizeof(key), 31, "1:4");
  ASSERT_TRUE(config.GetCrypto().has_value());
  EXPECT_EQ(config.GetCrypto()->suite, "AES_CM_128_HMAC_SHA1_80");
  EXPECT_THAT(config.GetCrypto()->key, ElementsAre(0, 1, 0, 255));
  EXPECT_EQ(config.GetCrypto()->lifetime_exponent, 31);
  EXPECT_EQ(config.GetCrypto()->mki_length, "1:4");
  config.SetCrypto("NO_CRYPTO", nullptr, 0, 0, nullptr);
  EXPECT_EQ(config.GetCrypto()->suite, "NO_CRYPTO");
  EXPECT_THAT(config.GetCrypto()->key, IsEmpty());
  EXPECT_EQ(config.GetCrypto()->mki_length, std::nullopt);
}

TEST(MediaConfig, AcceptsAPassThruPeerThatHasNoImageStream) {
  MediaConfig config;
  config.SetUdpPassThruPeerRemotePort(0);
  config.SetUdpPassThruPeerRemoteIPAddress(nullptr);
  config.SetUdpPassThruPeerLocalIPAddress(nullptr);
  ASSERT_TRUE(config.GetUdpPassThruPeer().has_value());
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_port, 0);
  EXPECT_EQ(config.GetUdpPassThruPeer()->remote_ip_address, std::nullopt);
}

TEST(JitterMode, IsReadFromItsNameInAnyCase) {
  EXPECT_EQ(MediaConfig::JitterModeFromStr("none"), MediaConfig::JITTER_MODE_NONE);
  EXPECT_EQ(MediaConfig::JitterModeFromStr("Static"), MediaConfig::JITTER_MODE_STATIC);
  EXPECT_EQ(MediaConfig::JitterModeFromStr("ADAPTIVE"), MediaConfig::JITTER_MODE_ADAPTIVE);
}

TEST(JitterMode, IsInvalidForAnythingElse) {
  for (const char* text : {"", "adaptiv", "adaptive ", "0", "invalid", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(MediaConfig::JitterModeFromStr(text), MediaConfig::JITTER_MODE_INVALID);
  }
}

TEST(JitterMode, IsWrittenAsItIsRead) {
  for (const auto mode :
       {MediaConfig::JITTER_MODE_NONE, MediaConfig::JITTER_MODE_STATIC, MediaConfig::JITTER_MODE_ADAPTIVE}) {
    EXPECT_EQ(MediaConfig::JitterModeFromStr(MediaConfig::JitterModeToStr(mode)), mode);
  }
  EXPECT_STREQ(MediaConfig::JitterModeToStr(MediaConfig::JITTER_MODE_INVALID), "invalid");
}

}  // namespace
