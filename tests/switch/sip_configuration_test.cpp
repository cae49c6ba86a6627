// The dialplan, the SIP profiles and the access lists as a whole: what one is wrong about does not hide what another
// is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core_fixture.h"
#include "sip/sip_check.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class SipConfigurationFiles : public core_test::RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    Write("dialplan/default.xml",
          "<context name='default'>\n<extension name='e'>\n<condition>\n<action application='answer'/>\n"
          "</condition></extension></context>");
    WriteProfile("internal", "");
  }

  void WriteProfile(const std::string& name, const std::string& params) {
    Write("sip_profiles/" + name + ".xml",
          "<profile name='" + name + "'>\n<settings>\n" + params + "</settings></profile>");
  }

  static std::string Param(const std::string& name, const std::string& value) {
    return "<param name='" + name + "' value='" + value + "'/>\n";
  }

  std::string Mistakes() {
    kvx_switch::SipConfiguration configuration;
    kvx_switch::AccessControl access;
    std::string error;
    const bool good = kvx_switch::ReadSipConfiguration(configuration, access, error);
    EXPECT_EQ(good, error.empty());
    return error;
  }

  bool Warned(const std::string& line) { return log().Has(test_support::warning_line(line + "\n")); }
};

TEST_F(SipConfigurationFiles, GoodOnesAreRead) {
  kvx_switch::SipConfiguration configuration;
  kvx_switch::AccessControl access;
  std::string error;
  ASSERT_TRUE(ReadSipConfiguration(configuration, access, error)) << error;
  EXPECT_TRUE(configuration.dialplan->HasContext("default"));
  ASSERT_EQ(configuration.profiles.size(), 1u);
  EXPECT_EQ(configuration.profiles.front().name, "internal");
}

TEST_F(SipConfigurationFiles, NothingHidesWhatDependsOnIt) {
  Write("dialplan/default.xml",
        "<context name='default'>\n<extension name='e'>\n<condition field='x' expression='('>\n"
        "<action application='fly'/>\n</condition></extension></context>");
  Write("autoload_configs/acl.conf.xml",
        "<configuration name='acl.conf'>\n<network-lists>\n<list name='lan' default='perhaps'/>\n"
        "</network-lists></configuration>");
  WriteProfile("internal", Param("sid", "perhaps") + Param("context", "public") + Param("apply-inbound-acl", "wan"));
  const std::string dialplan = PathOf("dialplan/default.xml");
  const std::string profile = PathOf("sip_profiles/internal.xml");
  const std::string lists = PathOf("autoload_configs/acl.conf.xml");
  EXPECT_EQ(Mistakes(), dialplan + ":3: expression \"(\": missing closing parenthesis at character 2\n" + dialplan +
                            ":4: there is no application \"fly\"\n" + profile +
                            ":3: \"sid\" is \"perhaps\", not \"true\" or \"false\"\n" + profile +
                            ":4: context \"public\" is in no file of " + PathOf("dialplan") + "\n" + lists +
                            ":3: \"default\" of \"list\" is \"perhaps\", not \"allow\" or \"deny\"\n" + profile +
                            ":5: \"apply-inbound-acl\" is \"wan\", a list that is not in " + lists);
}

TEST_F(SipConfigurationFiles, WhatCouldNotBeReadIsNotMissedElsewhere) {
  Write("dialplan/default.xml", "<context name='default'>\n");
  Write("autoload_configs/acl.conf.xml", "<configuration name='acl.conf'>\n");
  WriteProfile("internal", Param("context", "public") + Param("apply-inbound-acl", "wan"));
  EXPECT_EQ(Mistakes(), PathOf("dialplan/default.xml") + ":2: no element found\n" +
                            PathOf("autoload_configs/acl.conf.xml") + ":2: no element found");
}

TEST_F(SipConfigurationFiles, TwoProfilesDoNotShareAnAddress) {
  WriteProfile("internal", Param("sip-port", "5060"));
  WriteProfile("other", Param("sip-ip", "127.0.0.1"));
  EXPECT_EQ(Mistakes(), PathOf("sip_profiles/other.xml") + ": 127.0.0.1:5060 is already that of " +
                            PathOf("sip_profiles/internal.xml"));
  WriteProfile("other", Param("sip-port", "5061"));
  EXPECT_EQ(Mistakes(), "");
}

TEST_F(SipConfigurationFiles, TwoProfilesMayShareAPortOverDifferentTransports) {
  WriteProfile("internal", Param("bind-params", "transport=udp"));
  WriteProfile("other", Param("bind-params", "transport=tcp"));
  EXPECT_EQ(Mistakes(), "");
}

TEST_F(SipConfigurationFiles, AProfileWithABadPortIsNotTakenForOneWithTheUsual) {
  WriteProfile("other", Param("sip-port", "sixty"));
  EXPECT_THAT(Mistakes(), Not(HasSubstr("already that of")));
}

TEST_F(SipConfigurationFiles, WhatNobodyReadsInAProfileIsNamed) {
  const std::string path =
      Write("sip_profiles/internal.xml",
            "<profile name='a' domain='d'>\n<settings x='1'>\n<param name='sid' value='true' if='y'/>\n"
            "<param name='sid' value='false'/>\n<parm/>\n<param name='session-timeout' value='60'/>\n"
            "</settings>\n<gateways/>\n</profile>");
  EXPECT_EQ(Mistakes(), "");
  EXPECT_TRUE(Warned(path + ":1: a <profile> has no attribute \"domain\"; ignored"));
  EXPECT_TRUE(Warned(path + ":2: a <settings> has no attribute \"x\"; ignored"));
  EXPECT_TRUE(Warned(path + ":3: a <param> has no attribute \"if\"; ignored"));
  EXPECT_TRUE(Warned(path + ":4: \"sid\" stands here again; the last counts"));
  EXPECT_TRUE(Warned(path + ":5: expected <param>, not <parm>; ignored"));
  EXPECT_TRUE(Warned(path + ":8: expected <settings>, not <gateways>; ignored"));
  EXPECT_TRUE(
      Warned(path + ":6: \"session-timeout\" is 60, less than the 120 of \"minimum-session-expires\", which is taken"));
}

TEST_F(SipConfigurationFiles, NoProfileIsAMistake) {
  std::filesystem::remove(PathOf("sip_profiles/internal.xml"));
  EXPECT_EQ(Mistakes(), PathOf("sip_profiles") + ": there is no profile (*.xml)");
}

}  // namespace
