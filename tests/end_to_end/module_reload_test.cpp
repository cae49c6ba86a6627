// The module on the switch's console: what it offers, and that it can be exchanged between calls but not under one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using testing::HasSubstr;

constexpr char kReloaded[] = "+OK module reloaded\n";
constexpr char kInUse[] =
    "-ERR [Module mod_kelvaro_media_server cannot be unloaded: the media server kelvaro_media_server is in use]; 2 "
    "sessions are up\n";

class ModuleOnTheConsole : public SwitchCall {
 protected:
  CliRun Run(const std::string& command) { return Cli({"-x", command}); }
  CliRun Reload() { return Run("reload mod_kelvaro_media_server"); }
};

TEST_F(ModuleOnTheConsole, OffersTheCodecsOfTheSampleConfiguration) {
  StartSwitch();
  const CliRun codecs = Run("show codecs");
  EXPECT_EQ(codecs.code, 0);
  std::string expected = "type,name,ikey\n";
  for (const char* name : {"AMR", "AMR-WB 23.85k", "G.726 16k", "G.726 24k", "G.726 32k", "G.726 40k", "G722", "G722.1",
                           "G723", "G729", "GSM", "iLBC", "PCMA", "PCMU"}) {
    expected += std::string("codec,Kelvaro ") + name + ",mod_kelvaro_media_server\n";
  }
  EXPECT_EQ(codecs.output, expected + "\n14 total.\n");
  ExpectCleanStop();
}

TEST_F(ModuleOnTheConsole, OffersItsEightCommandsWithDescriptionAndSyntax) {
  StartSwitch();
  const std::string commands = Run("show api").output;
  const std::string selector = "<all|<ip <address>>|<mac <address>>>";
  const std::string stats = ",Kelvaro Media Server Statistics Report,<usage|duration> " + selector;
  const std::string control = ",Kelvaro Media Server Control Command,<service <up|down>>|<session term> " + selector;
  const std::string hardware = ",Kelvaro Media Server List Hardware Command," + selector;
  for (const std::string& command :
       {"kvrms_stats" + stats, "kvrms_stats_xml" + stats, "ms_count_show" + stats, "kvrms_control" + control,
        "kvrms_control_xml" + control, "kvrms_list_hardware" + hardware, "kvrms_list_hardware_xml" + hardware,
        std::string("kvrms_rtcp_stats,Kelvaro Media Server RTCP Statistics Command,<all|<uuid>>")}) {
    EXPECT_THAT(commands, HasSubstr("\n" + command + ",mod_kelvaro_media_server\n"));
  }
  ExpectCleanStop();
}

TEST_F(ModuleOnTheConsole, IsReloadedWithNoCallUpAndTakesCallsAgain) {
  CallTrialSettings settings;
  settings.talk = milliseconds(800);
  StartWithPhones(settings);
  for (int round = 0; round < 3; ++round) {
    const CliRun reload = Reload();
    EXPECT_EQ(reload.code, 0);
    EXPECT_EQ(reload.output, kReloaded);
    EXPECT_EQ(Run("ms_count_show").output, "Totally 0 MSs now!\n");
  }
  EXPECT_THAT(Run("status").output, HasSubstr("media server available"));
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(ModuleOnTheConsole, IsNotReloadedWhileACallIsUpWhichGoesOn) {
  CallTrialSettings settings;
  settings.talk = milliseconds(800);
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(30));
  for (const char* command : {"reload", "unload"}) {
    const CliRun refused = Run(std::string(command) + " mod_kelvaro_media_server");
    EXPECT_EQ(refused.code, 4) << command;
    EXPECT_EQ(refused.output, kInUse) << command;
  }
  const auto talk = trial_->Talk();
  ASSERT_EQ(talk.size(), 1u);
  EXPECT_TRUE(talk[0].to_callee.Passed()) << talk[0].to_callee.Reasons();
  EXPECT_TRUE(talk[0].to_caller.Passed()) << talk[0].to_caller.Reasons();
  EXPECT_EQ(Run("ms_count_show").output, "Totally 1 MSs now!\n");

  EXPECT_EQ(Run("hupall").code, 0);
  ExpectHungUp();
  ExpectAtRest();
  EXPECT_EQ(Reload().output, kReloaded);
  ExpectAtRest();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
