#include "sip/sip_profile.h"

#include <gtest/gtest.h>

#include <string>

#include "sip/sip_agent.h"
#include "sip_temporary_directory.h"
#include "support/free_ports.h"
#include "support/udp_socket.h"

namespace kvx_switch {
namespace {

class SipProfileFile : public testing::Test {
 protected:
  bool Load(const std::string& params) {
    path_ = directory_.Write("internal.xml",
                             "<profile name=\"internal\">\n<settings>\n" + params + "\n</settings>\n</profile>\n");
    return LoadSipProfile(path_, profile_, error_);
  }

  std::string Param(const std::string& name, const std::string& value) {
    return "<param name=\"" + name + "\" value=\"" + value + "\"/>\n";
  }

  TemporaryDirectory directory_;
  std::string path_;
  std::string error_;
  SipProfile profile_;
};

TEST_F(SipProfileFile, HasDefaultsForWhatItDoesNotSay) {
  ASSERT_TRUE(Load("")) << error_;
  EXPECT_EQ(profile_.name, "internal");
  EXPECT_EQ(profile_.sip_address, "127.0.0.1");
  EXPECT_EQ(profile_.sip_port, 5060);
  EXPECT_EQ(profile_.context, "default");
  EXPECT_EQ(profile_.leg_timeout_seconds, 60u);
  EXPECT_TRUE(profile_.codec_prefs.empty());
  EXPECT_TRUE(profile_.media.telephone_events);
  EXPECT_EQ(profile_.media.telephone_event_type, 101);
  EXPECT_FALSE(profile_.media.remote_address_detection);
}

TEST_F(SipProfileFile, SaysWhatEveryLegIsTold) {
  ASSERT_TRUE(Load(Param("sip-port", "0") + Param("codec-prefs", "PCMA, G729@30i,PCMU") + Param("dtmf-type", "none") +
                   Param("rfc2833-pt", "96") + Param("rtp-ipv4-tos", "184") + Param("rtp-hop-limit", "1") +
                   Param("rtp-timeout-sec", "0") + Param("remote-address-detection", "on") +
                   Param("g729-annexb", "no") + Param("rtp-secure-media", "Optional") +
                   Param("rtp-secure-media-suites", "aes_cm_128_hmac_sha1_32")))
      << error_;
  EXPECT_EQ(profile_.sip_port, 0);
  EXPECT_EQ(profile_.codec_prefs, (std::vector<std::string>{"PCMA", "G729@30i", "PCMU"}));
  EXPECT_FALSE(profile_.media.telephone_events);
  EXPECT_EQ(profile_.media.telephone_event_type, 96);
  EXPECT_EQ(profile_.media.ipv4_tos, 184);
  EXPECT_EQ(profile_.media.hop_limit, 1);
  EXPECT_EQ(profile_.media.rtp_timeout_seconds, 0u);
  EXPECT_TRUE(profile_.media.remote_address_detection);
  EXPECT_FALSE(profile_.media.g729_annex_b);
  EXPECT_EQ(profile_.media.security.wanted, SecureMedia::kOptional);
  EXPECT_EQ(profile_.media.security.suites, std::vector<SrtpSuite>{SrtpSuite::kAesCm128Sha1_32});
}

TEST_F(SipProfileFile, ValuesOutOfRangeAreNamedWithFileAndLine) {
  const struct {
    const char* name;
    const char* value;
    const char* expected;
  } kMistakes[] = {
      {"rtp-secure-media", "yes please", "\"off\", \"optional\" or \"mandatory\""},
      {"rtp-secure-media-suites", "", "a list of AES_CM_128_HMAC_SHA1_80 and AES_CM_128_HMAC_SHA1_32"},
      {"rtp-secure-media-suites", "AES_CM_128_HMAC_SHA1_80,AEAD_AES_256_GCM",
       "a list of AES_CM_128_HMAC_SHA1_80 and AES_CM_128_HMAC_SHA1_32"},
      {"sip-ip", "0.0.0.0", "one address of this machine"},
      {"sip-ip", "::", "one address of this machine"},
      {"codec-prefs", "PCMU@20q", "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b"},
      {"codec-prefs", "PCMU,G729@", "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b"},
      {"codec-prefs", "@20i", "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b"},
      {"codec-prefs", "PCMA,,PCMU", "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b without an empty place in it"},
      {"codec-prefs", "PCMA,", "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b without an empty place in it"},
      {"rtp-secure-media-suites", "AES_CM_128_HMAC_SHA1_80,",
       "a list of AES_CM_128_HMAC_SHA1_80 and AES_CM_128_HMAC_SHA1_32"},
      {"sip-port", "65536", "a number from 0 to 65535"},
      {"sip-port", "5060x", "a number from 0 to 65535"},
      {"sip-port", "", "a number from 0 to 65535"},
      {"sip-ip", "phone.example.org", "a numeric address"},
      {"context", "", "a word"},
      {"rfc2833-pt", "95", "a number from 96 to 127"},
      {"dtmf-type", "info", "\"rfc2833\" or \"none\""},
      {"rtp-hop-limit", "0", "a number from 1 to 255"},
      {"sid", "perhaps", "\"true\" or \"false\""},
      {"sid", "", "\"true\" or \"false\""},
      {"leg-timeout", "-1", "a number from 1 to 3600"},
  };
  for (const auto& mistake : kMistakes) {
    EXPECT_FALSE(Load("\n" + Param(mistake.name, mistake.value))) << mistake.name;
    EXPECT_EQ(error_, path_ + ":4: \"" + mistake.name + "\" is \"" + mistake.value + "\", not " + mistake.expected);
  }
}

TEST_F(SipProfileFile, EveryMistakeIsNamed) {
  EXPECT_FALSE(Load("\n" + Param("sip-port", "x") + "\n" + Param("sid", "y") + "\n<param name=\"context\"/>"));
  EXPECT_EQ(error_, path_ + ":4: \"sip-port\" is \"x\", not a number from 0 to 65535\n" + path_ +
                        ":6: \"sid\" is \"y\", not \"true\" or \"false\"\n" + path_ +
                        ":8: a \"param\" needs \"name\" and \"value\"");
}

TEST_F(SipProfileFile, AMistakeLeavesTheRestToBeLookedAt) {
  EXPECT_FALSE(Load(Param("sip-port", "x") + Param("context", "public") + Param("apply-inbound-acl", "")));
  EXPECT_EQ(profile_.sip_port, 0) << "no port is told apart from the usual one";
  EXPECT_EQ(profile_.context, "public");
  EXPECT_EQ(profile_.access_list, "");
  EXPECT_FALSE(Load(Param("context", "")));
  EXPECT_EQ(profile_.context, "");
  EXPECT_EQ(profile_.file, path_);
  EXPECT_FALSE(LoadSipProfile(directory_.Path() + "/none.xml", profile_, error_));
  EXPECT_EQ(profile_.file, "");
}

TEST_F(SipProfileFile, MalformedFilesAreNamedWithTheirLine) {
  EXPECT_FALSE(Load("<param name=\"sip-ip\" value=\"127.0.0.1\">"));
  EXPECT_EQ(error_, path_ + ":4: mismatched tag");
  EXPECT_FALSE(Load("<param name=\"sip-ip\"/>"));
  EXPECT_EQ(error_, path_ + ":3: a \"param\" needs \"name\" and \"value\"");
  path_ = directory_.Write("other.xml", "<profiles/>");
  EXPECT_FALSE(LoadSipProfile(path_, profile_, error_));
  EXPECT_EQ(error_, path_ + ":1: expected <profile name=\"...\">, not <profiles>");
  EXPECT_FALSE(LoadSipProfile(directory_.Path() + "/none.xml", profile_, error_));
  EXPECT_EQ(error_, directory_.Path() + "/none.xml: cannot be read: No such file or directory");
}

TEST_F(SipProfileFile, AgentNamesFileAddressAndPortThatIsInUse) {
  test_support::UdpSocket occupied;
  ASSERT_TRUE(Load(Param("sip-port", std::to_string(occupied.Port())))) << error_;
  EXPECT_EQ(SipAgent::Start(profile_, nullptr, error_), nullptr);
  EXPECT_EQ(error_,
            path_ + ": cannot listen on udp 127.0.0.1:" + std::to_string(occupied.Port()) + ": Address already in use");
}

TEST_F(SipProfileFile, AgentNamesTheTransportThatIsInUse) {
  test_support::OccupiedTcpPort occupied;
  ASSERT_TRUE(Load(Param("sip-port", std::to_string(occupied.Port())))) << error_;
  EXPECT_EQ(SipAgent::Start(profile_, nullptr, error_), nullptr);
  EXPECT_EQ(error_,
            path_ + ": cannot listen on tcp 127.0.0.1:" + std::to_string(occupied.Port()) + ": Address already in use");
  ASSERT_TRUE(Load(Param("sip-port", std::to_string(occupied.Port())) + Param("bind-params", "transport=udp")));
  std::shared_ptr<SipAgent> udp_alone = SipAgent::Start(profile_, nullptr, error_);
  ASSERT_TRUE(udp_alone) << error_;
  udp_alone->Stop();
}

TEST_F(SipProfileFile, NamesItsTransports) {
  ASSERT_TRUE(Load(""));
  EXPECT_TRUE(profile_.transports.udp && profile_.transports.tcp);
  ASSERT_TRUE(Load(Param("bind-params", "transport=tcp"))) << error_;
  EXPECT_FALSE(profile_.transports.udp);
  EXPECT_TRUE(profile_.transports.tcp);
  ASSERT_TRUE(Load(Param("bind-params", "transport=tcp,udp"))) << error_;
  EXPECT_EQ(profile_.transports.Names(), "udp and tcp");
  for (const char* value : {"", "udp", "transport=", "transport=sctp", "transport=udp,tls", "transport=udp,"}) {
    EXPECT_FALSE(Load(Param("bind-params", value))) << value;
    EXPECT_EQ(error_, path_ + ":3: \"bind-params\" is \"" + value +
                          "\", not \"transport=udp\", \"transport=tcp\" or \"transport=udp,tcp\"");
  }
}

TEST_F(SipProfileFile, AgentStartsOnAFreePortAndStops) {
  ASSERT_TRUE(Load(Param("sip-port", "0"))) << error_;
  std::shared_ptr<SipAgent> first = SipAgent::Start(profile_, nullptr, error_);
  ASSERT_TRUE(first) << error_;
  EXPECT_EQ(first->address().compare(0, 10, "127.0.0.1:"), 0) << first->address();
  EXPECT_NE(first->address(), "127.0.0.1:0");

  ASSERT_TRUE(Load(Param("sip-port", first->address().substr(10))));
  EXPECT_EQ(SipAgent::Start(profile_, nullptr, error_), nullptr);
  EXPECT_NE(error_.find("Address already in use"), std::string::npos) << error_;

  first->Stop();
  EXPECT_FALSE(first->Post([] {}));
  std::shared_ptr<SipAgent> again = SipAgent::Start(profile_, nullptr, error_);
  ASSERT_TRUE(again) << error_;
  again->Stop();
}

}  // namespace
}  // namespace kvx_switch
