// kvx-switch --check: every mistake of every file, with its place, and nothing opened.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/free_ports.h"
#include "support/process_child.h"
#include "support/switch_process.h"
#include "support/switch_process_configuration.h"
#include "support/udp_socket.h"

namespace end_to_end {
namespace {

using testing::HasSubstr;

class ConfigurationCheck : public testing::Test {
 protected:
  struct Run {
    int code = -1;
    std::string output;
  };

  Run Switch(std::vector<std::string> more) {
    test_support::ChildSettings settings;
    settings.command = {test_support::built_program("kvx-switch").string(), "--conf", conf_.Path().string(), "--mod",
                        KVX_BUILD_DIR "/mod"};
    settings.command.insert(settings.command.end(), more.begin(), more.end());
    settings.output = directory_.Path() / "output";
    test_support::ChildProcess process(settings);
    const auto exit = process.WaitForExit(std::chrono::seconds(30));
    return {exit.value_or(test_support::ChildExit{}).code, process.Output()};
  }
  Run Check() { return Switch({"--check"}); }

  /// Where `text` first stands in a file, "FILE:LINE: ".
  std::string Place(const std::string& file, const std::string& text) const {
    const std::string content = test_support::read_text_file(conf_.File(file));
    const std::size_t at = content.find(text);
    if (at == std::string::npos) return "no \"" + text + "\" in " + file;
    const auto line = 1 + std::count(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(at), '\n');
    return conf_.File(file).string() + ":" + std::to_string(line) + ": ";
  }

  /// Puts `wrong` in place of `right`; the check is to say `what` where `wrong` stands.
  void Expect(const std::string& file, const std::string& right, const std::string& wrong, const std::string& what) {
    conf_.Replace(file, right, wrong);
    changed_.push_back({file, wrong, what});
  }

  void ExpectAllNamed() {
    const Run run = Check();
    for (const auto& [file, wrong, what] : changed_) {
      EXPECT_THAT(run.output, HasSubstr(Place(file, wrong) + what + "\n"));
    }
    EXPECT_THAT(run.output, HasSubstr(conf_.Path().string() + ": " + std::to_string(changed_.size()) + " mistake"));
    EXPECT_EQ(run.code, 2);
  }

  struct Change {
    std::string file, wrong, what;
  };
  test_support::ConfigurationCopy conf_;
  test_support::TemporaryDirectory directory_;
  std::vector<Change> changed_;
};

TEST_F(ConfigurationCheck, FindsNothingWrongWithTheSample) {
  const Run run = Check();
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.output, conf_.Path().string() + ": no mistake found\n");
}

TEST_F(ConfigurationCheck, OpensNoPort) {
  const test_support::UdpSocket sip;
  const test_support::OccupiedTcpPort event_socket;
  const Run run = Switch({"--check", "--set", "sip_port=" + std::to_string(sip.Port()), "--set",
                          "event_socket_port=" + std::to_string(event_socket.Port())});
  EXPECT_EQ(run.code, 0) << run.output;
}

TEST_F(ConfigurationCheck, NamesTheMistakesInTheSwitchsFiles) {
  Expect("vars.xml", "cmd=\"set\" data=\"sip_port=5060\"", "cmd=\"set\" data=\"sip_port 5060\"",
         "\"sip_port 5060\" is not name=value, ignored");
  Expect("autoload_configs/switch.conf.xml", "\"max-sessions\"", "\"max-session\"",
         "unknown parameter \"max-session\", ignored");
  Expect("autoload_configs/switch.conf.xml", "value=\"info\"", "value=\"loud\"",
         "\"loglevel\" is \"loud\", not a log level; ignored");
  Expect("autoload_configs/event_socket.conf.xml", "\"listen-ip\" value=\"127.0.0.1\"",
         "\"listen-ip\" value=\"localhst\"", "\"listen-ip\" is \"localhst\", not a numeric address or \"localhost\"");
  Expect("autoload_configs/event_socket.conf.xml", "name=\"password\"", "name=\"pasword\"",
         "unknown parameter \"pasword\", ignored");
  Expect("sip_profiles/internal.xml", "name=\"sid\" value=\"false\"", "name=\"sid\" value=\"fals\"",
         "\"sid\" is \"fals\", not \"true\" or \"false\"");
  Expect("sip_profiles/internal.xml", "name=\"leg-timeout\"", "name=\"leg-timeot\"",
         "unknown parameter \"leg-timeot\", ignored");
  Expect("sip_profiles/internal.xml", "\"$${local_ip}\"", "\"$${local_ipp}\"",
         "no variable \"local_ipp\", taken as empty");
  Expect("dialplan/default.xml", "application=\"export\"", "application=\"exprt\"",
         "there is no application \"exprt\"");
  Expect("dialplan/default.xml", "<condition field=\"destination_number\" expression=\"^1000$\"",
         "<condition field=\"destination_number\" expression=\"^(1000$\"",
         "expression \"^(1000$\": missing closing parenthesis at character 8");
  const Run run = Check();
  EXPECT_EQ(run.code, 2);
  for (const auto& [file, wrong, what] : changed_) {
    EXPECT_THAT(run.output, HasSubstr(Place(file, wrong) + what + "\n"));
  }
  EXPECT_THAT(run.output,
              HasSubstr(Place("autoload_configs/event_socket.conf.xml", "<settings>") + "no \"password\" given\n"));
}

TEST_F(ConfigurationCheck, NamesTheMistakesInTheModulesFiles) {
  Expect("autoload_configs/kelvaro_media_server.conf.xml", "name=\"enable_jsr309_trace\" value=\"false\"",
         "name=\"enable_jsr309_trace\" value=\"no\"",
         "\"enable_jsr309_trace\" is \"no\", not \"true\" or \"false\"; taken as false");
  Expect("jsr309.xml", "<GSM/>", "<GMS/>", "no codec \"GMS\", ignored");
  Expect("jsr309.xml", "<mac>02:00:00:00:00:02</mac>", "<mac>02:00:00:00:00</mac>",
         "element jsr309.media_servers.media_server[2].mac, value \"02:00:00:00:00\": not a MAC address");
  Expect("jsr309.xml", "<capacity>1000</capacity>", "<capacity>many</capacity>",
         "element jsr309.media_servers.media_server[1].capacity, value \"many\": not a number from 1 to 1000000");
  Expect("jsr309.xml", "<threads>2</threads>", "<treads>2</treads>",
         "element jsr309.media_servers.media_server[1].treads, value \"2\": not known to the embedded media server");
  Expect("statsconfig.xml", "<application>usage</application>", "<application>use</application>",
         "no report \"use\": it is usage, duration or hardware");
  Expect("statsconfig.xml", "<viewname>Active %</viewname>", "<view>Active %</view>",
         "expected <application> or <viewname> or <xmlviewname>, not <view>; ignored");
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, NamesWhatHasNoEffectInTheModulesFiles) {
  Expect("jsr309.xml", "<G722/>", "<G722 fast=\"1\"/>", "a <G722> has no attribute \"fast\"; ignored");
  Expect("jsr309.xml", "<G723/>", "<G723/> <PCMU/>", "codec \"PCMU\" stands here again; ignored");
  Expect("jsr309.xml", "<capacity>1000</capacity>", "<capacity unit=\"calls\">1000</capacity>",
         "a <capacity> has no attribute \"unit\"");
  Expect("jsr309.xml", "<media_server>", "<media_server name=\"first\">", "a <media_server> has no attribute \"name\"");
  Expect("jsr309.xml", "</audio>", "</audio><video/>", "expected <audio>, not <video>; ignored");
  Expect("statsconfig.xml", "<viewname>Max Calls</viewname>", "<viewname>Max. Calls</viewname>",
         "viewname \"Max. Calls\" has a point in it: text reports show no value under it");
  Expect("statsconfig.xml", "<viewname>Max %</viewname>", "<viewname>Active %</viewname><!-- -->",
         "viewname \"Active %\" is that of another figure of the same report");
  Expect("statsconfig.xml", "</statsconfig>", "<avg_duration/></statsconfig>",
         "a second <avg_duration>: the first counts for both; write it in capitals to show it twice");
  Expect("statsconfig.xml", "<!-- kvrms_stats duration -->",
         "<ACTIVE_CALLS><application>duration</application></ACTIVE_CALLS>",
         "no viewname and no xmlviewname in \"ACTIVE_CALLS\": no report shows it");
  Expect("statsconfig.xml", "<max_duration>\n    <application>duration</application>",
         "<max_duration>\n    <application>duration</application> <application>usage</application>",
         "a second <application>; ignored");
  const Run run = Check();
  EXPECT_EQ(run.code, 2);
  for (const auto& [file, wrong, what] : changed_) EXPECT_THAT(run.output, HasSubstr(": " + what + "\n"));
  EXPECT_THAT(run.output, HasSubstr(conf_.Path().string() + ": " + std::to_string(changed_.size()) + " mistakes\n"));
}

TEST_F(ConfigurationCheck, NamesWhatLeadsNowhereInTheDialplan) {
  Expect("dialplan/default.xml", "data=\"2000 XML default\"", "data=\"2999 XML default\"",
         "transfer: nothing in context \"default\" matches \"2999\"");
  Expect("dialplan/default.xml", "[leg_timeout=10]", "[leg_timeout=10s]",
         "bridge: leg_timeout is \"10s\", not a number from 1 to 3600");
  Expect("dialplan/default.xml", "jitterbuffer_mode=static", "jitterbuffer_mode=fixed",
         "export: jitterbuffer_mode is \"fixed\", not \"none\", \"static\" or \"adaptive\"");
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, CountsAMistakeOnce) {
  Expect(
      "autoload_configs/event_socket.conf.xml", "\"listen-ip\" value=\"127.0.0.1\"", "\"listen-ip\" value=\"0.0.0.0\"",
      "\"listen-ip\" is 0.0.0.0, which is not loopback, and the password \"kelvaro\" is one that everybody knows: set "
      "one of your own or listen on 127.0.0.1");
  ExpectAllNamed();
  conf_.Remove("autoload_configs/event_socket.conf.xml");
  EXPECT_EQ(Check().output, conf_.File("autoload_configs/event_socket.conf.xml").string() +
                                ": No such file or directory\n" + conf_.Path().string() + ": 1 mistake\n");
}

TEST_F(ConfigurationCheck, AFailedStartNamesEveryMistakeOfSipInTheSameWords) {
  conf_.Replace("dialplan/default.xml", "data=\"2000 XML default\"", "data=\"2999 XML default\"");
  conf_.Replace("sip_profiles/internal.xml", "name=\"sid\" value=\"false\"", "name=\"sid\" value=\"fals\"");
  conf_.Replace("sip_profiles/internal.xml", "name=\"context\" value=\"default\"",
                "name=\"context\" value=\"defualt\"");
  const Run check = Check();
  const Run start = Switch({"--set", "event_socket_port=0"});
  EXPECT_EQ(start.code, 1);
  EXPECT_THAT(check.output, HasSubstr(": 3 mistakes\n"));
  EXPECT_THAT(start.output, HasSubstr(check.output.substr(0, check.output.rfind(conf_.Path().string() + ": 3"))));
}

TEST_F(ConfigurationCheck, NamesRatesThatNoCodecHas) {
  Expect("jsr309.xml", "<AMR-WB>", "<AMR-WB><!-- -->",
         "no codec \"AMR-WB\" of sampling_rate \"16000\" and bit_rate \"9999\", ignored");
  conf_.Replace("jsr309.xml", "<bit_rate>23850</bit_rate>", "<bit_rate>9999</bit_rate>");
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, NamesPathsThatLeadNowhere) {
  Expect("autoload_configs/kelvaro_media_server.conf.xml", "value=\"$${conf_dir}/jsr309.xml\"", "value=\"jsr309.xml\"",
         "\"config\" is \"jsr309.xml\", not an absolute path");
  Expect("autoload_configs/kelvaro_media_server.conf.xml", "value=\"$${conf_dir}/statsconfig.xml\"",
         "value=\"/nowhere/statsconfig.xml\"",
         "\"statsfilter\" is \"/nowhere/statsconfig.xml\": No such file or directory");
  Expect("autoload_configs/modules.conf.xml", "</modules>", "<load module=\"mod_other\"/></modules>",
         "module \"mod_other\": " KVX_BUILD_DIR
         "/mod/mod_other.so: cannot open shared object file: No such file or "
         "directory");
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, NamesAContextThatIsNowhere) {
  Expect("sip_profiles/internal.xml", "name=\"context\" value=\"default\"", "name=\"context\" value=\"defualt\"",
         "context \"defualt\" is in no file of " + conf_.File("dialplan").string());
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, NamesAnAddressThatTwoProfilesWant) {
  const std::string profile = test_support::read_text_file(conf_.File("sip_profiles/internal.xml"));
  conf_.Write("sip_profiles/other.xml", profile);
  Expect("sip_profiles/other.xml", "name=\"sip-port\" value=\"$${sip_port}\"", "name=\"sip-port\" value=\"5060\"",
         "127.0.0.1:5060 is already that of " + conf_.File("sip_profiles/internal.xml").string());
  ExpectAllNamed();
}

TEST_F(ConfigurationCheck, AMalformedFileDoesNotHideTheOthers) {
  Expect("vars.xml", "</include>", "</inclde>", "mismatched tag");
  Expect("jsr309.xml", "</jsr309>", "</jsr310>", "mismatched tag");
  Expect("autoload_configs/modules.conf.xml",
         "<load module=", "<load modul=\"x\" module=", "a <load> has no attribute \"modul\", which is \"x\"; ignored");
  const Run run = Check();
  EXPECT_EQ(run.code, 2);
  for (const auto& [file, wrong, what] : changed_) EXPECT_THAT(run.output, HasSubstr(Place(file, wrong) + what + "\n"));
}

TEST_F(ConfigurationCheck, RefusesToSetAVariableThatNobodyKnows) {
  const std::string line = "--set phone_c=127.0.0.1:5090: no file in " + conf_.Path().string() +
                           " sets or uses \"phone_c\"; known are: conf_dir, event_socket_password, ";
  const Run check = Switch({"--check", "--set", "phone_c=127.0.0.1:5090"});
  EXPECT_EQ(check.code, 2);
  EXPECT_THAT(check.output, testing::StartsWith(line));
  const Run start = Switch({"--set", "phone_c=127.0.0.1:5090"});
  EXPECT_EQ(start.code, 1);
  EXPECT_THAT(start.output, HasSubstr("kvx-switch: " + line));
  EXPECT_THAT(start.output, testing::Not(HasSubstr("Ready")));
}

TEST_F(ConfigurationCheck, AStartNamesWhatTheModulePassesOver) {
  conf_.Replace("jsr309.xml", "<GSM/>", "<GMS/>");
  conf_.Replace("autoload_configs/kelvaro_media_server.conf.xml", "name=\"statsfilter\"", "name=\"statfilter\"");
  test_support::SwitchProcessSettings settings;
  settings.conf = conf_.Path();
  settings.directory = directory_.Path();
  test_support::SwitchProcess process(settings);
  ASSERT_NO_THROW(process.WaitReady());
  EXPECT_THAT(process.Log(), HasSubstr(Place("jsr309.xml", "<GMS/>") + "no codec \"GMS\", ignored\n"));
  EXPECT_THAT(process.Log(), HasSubstr(Place("autoload_configs/kelvaro_media_server.conf.xml", "statfilter") +
                                       "unknown parameter \"statfilter\", ignored\n"));
  ASSERT_NO_THROW(process.Stop(std::chrono::seconds(30)));
}

}  // namespace
}  // namespace end_to_end
