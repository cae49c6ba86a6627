#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "console/builtin_commands.h"
#include "console/console.h"
#include "console_switch.h"

namespace {

using console_test::ConsoleSwitch;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class ConsoleCommands : public ConsoleSwitch {};

TEST_F(ConsoleCommands, StatusTellsUptimeSessionsAndMediaServer) {
  EXPECT_THAT(Run("status"), MatchesRegex("UP 0 years, 0 days, 0 hours, 0 minutes, [0-9]+ seconds?, "
                                          "[0-9]+ milliseconds?, [0-9]+ microseconds?\n"
                                          "kvx-switch \\(Version [0-9.]+\\) is ready\n"
                                          "0 session\\(s\\) since startup\n"
                                          "0 session\\(s\\) - peak 0\n"
                                          "0 session\\(s\\) per Sec out of max 55, peak 0\n"
                                          "77 session\\(s\\) max\n"
                                          "media server not available\n"));
}

TEST_F(ConsoleCommands, StatusCountsSessions) {
  AddLeg();
  AddLeg();
  EXPECT_THAT(Run("status"), HasSubstr("\n2 session(s) since startup\n2 session(s) - peak 2\n"));
  EXPECT_THAT(Run("status"), HasSubstr(" session(s) per Sec out of max 55, peak 2\n"));
  Run("hupall");
  ASSERT_TRUE(WaitForNoLegs());
  AddLeg();
  EXPECT_THAT(Run("status"), HasSubstr("\n3 session(s) since startup\n1 session(s) - peak 2\n"));
}

TEST_F(ConsoleCommands, VersionNamesTheProgram) {
  EXPECT_THAT(Run("version"), MatchesRegex("kvx-switch Version [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(ConsoleCommands, UptimeTellsSecondsOrTheUnitAskedFor) {
  EXPECT_THAT(Run("uptime"), MatchesRegex("[0-9]\n"));
  EXPECT_THAT(Run("uptime", "us"), MatchesRegex("[0-9]+\n"));
  EXPECT_EQ(Run("uptime", "d"), "0\n");
  EXPECT_EQ(Run("uptime", "y"), "-USAGE: uptime [us|ms|s|m|h|d]\n");
  EXPECT_EQ(Run("uptime", "s s"), "-USAGE: uptime [us|ms|s|m|h|d]\n");
}

TEST_F(ConsoleCommands, HelpListsEveryCommandWithSyntaxAndDescription) {
  const std::string text = Run("help");
  EXPECT_THAT(text, HasSubstr("uuid_kill <uuid> [<cause>] - hang up one leg\n"));
  EXPECT_THAT(text, HasSubstr("\nversion - show the version\n"));
  EXPECT_EQ(Run("help", "Load"), "load <module> - load a module\n");
  EXPECT_EQ(Run("help", "nonsense"), "-ERR \"nonsense\" is no command\n");
  EXPECT_EQ(Run("help", "a b"), "-USAGE: help [<command>]\n");
}

TEST_F(ConsoleCommands, ShowChannelsListsLegs) {
  EXPECT_EQ(Run("show", "channels"), "\n0 total.\n");
  const std::string uuid = AddLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "sip/internal/2000");
  const std::string text = Run("show", "channels");
  EXPECT_THAT(text, StartsWith("uuid,direction,created,created_epoch,name,state,cid_name,cid_num,dest,context,"
                               "callstate\n" +
                               uuid + ",outbound,"));
  EXPECT_THAT(text, HasSubstr(",sip/internal/2000,CS_"));
  EXPECT_THAT(text, HasSubstr(",\"Anna, \"\"A\"\"\",1000,2000,default,"));
  EXPECT_THAT(text, EndsWith("\n\n1 total.\n"));
  EXPECT_EQ(Run("SHOW", " Channels  COUNT "), "\n1 total.\n");
}

TEST_F(ConsoleCommands, ShowSpeaksJsonAndXml) {
  EXPECT_EQ(Run("show", "channels as json"), "{\"row_count\":0}\n");
  EXPECT_EQ(Run("show", "channels as xml"), "<result row_count=\"0\"/>\n");
  const std::string uuid = AddLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "a<b>&\"c\"");
  EXPECT_THAT(Run("show", "channels as json"),
              AllOf(StartsWith("{\"row_count\":1,\"rows\":[{\"uuid\":\"" + uuid + "\",\"direction\":\"outbound\","),
                    HasSubstr("\"name\":\"a<b>&\\\"c\\\"\""), HasSubstr("\"cid_name\":\"Anna, \\\"A\\\"\""),
                    EndsWith("}]}\n")));
  EXPECT_THAT(Run("show", "channels as XML"),
              AllOf(StartsWith("<result row_count=\"1\">\n  <row row_id=\"1\">\n    <uuid>" + uuid + "</uuid>\n"),
                    HasSubstr("    <name>a&lt;b&gt;&amp;\"c\"</name>\n"), EndsWith("  </row>\n</result>\n")));
  EXPECT_EQ(Run("show", "channels count as json"), "{\"row_count\":1}\n");
  EXPECT_EQ(Run("show", "channels as xml count"), "<result row_count=\"1\"/>\n");
}

TEST_F(ConsoleCommands, ShowCallsListsPairs) {
  const std::string first = AddLeg(SWITCH_CALL_DIRECTION_INBOUND, "sip/a");
  EXPECT_EQ(Run("show", "calls"), "\n0 total.\n");
  const std::string second = AddLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "sip/b", first);
  const std::string text = Run("show", "calls");
  EXPECT_THAT(text, HasSubstr("\n" + first + ",inbound,"));
  EXPECT_THAT(text, HasSubstr("," + second + ",outbound,"));
  EXPECT_THAT(text, EndsWith("\n\n1 total.\n"));
}

TEST_F(ConsoleCommands, ShowApiListsCommandsByName) {
  const std::string text = Run("show", "api");
  EXPECT_THAT(text, StartsWith("name,description,syntax,ikey\n"));
  EXPECT_THAT(text, HasSubstr("\nload,load a module,<module>,kvx_switch\n"));
  EXPECT_LT(text.find("\nload,"), text.find("\nstatus,"));
}

TEST_F(ConsoleCommands, ShowCodecsAndModulesListNothingWithoutModules) {
  EXPECT_EQ(Run("show", "codecs"), "\n0 total.\n");
  EXPECT_EQ(Run("show", "modules"), "\n0 total.\n");
}

TEST_F(ConsoleCommands, ShowExplainsItself) {
  const std::string usage = "-USAGE: show calls|channels|codecs|api|modules [count] [as json|xml]\n";
  for (const char* arguments : {"", "nonsense", "calls now", "calls count now", "calls as", "calls as csv",
                                "calls count count", "calls as json as xml"}) {
    EXPECT_EQ(Run("show", arguments), usage) << arguments;
  }
}

TEST_F(ConsoleCommands, HupallHangsUpEveryLeg) {
  AddLeg();
  AddLeg();
  EXPECT_EQ(Run("hupall"), "+OK hangup all channels with cause MANAGER_REQUEST\n");
  EXPECT_EQ(CauseOfEndedLeg(), "MANAGER_REQUEST");
}

TEST_F(ConsoleCommands, HupallTakesACause) {
  AddLeg();
  EXPECT_EQ(Run("hupall", "user_busy"), "+OK hangup all channels with cause USER_BUSY\n");
  EXPECT_EQ(CauseOfEndedLeg(), "USER_BUSY");
  AddLeg();
  EXPECT_EQ(Run("hupall", "34"), "+OK hangup all channels with cause NORMAL_CIRCUIT_CONGESTION\n");
  EXPECT_EQ(CauseOfEndedLeg(), "NORMAL_CIRCUIT_CONGESTION");
}

TEST_F(ConsoleCommands, HupallHangsUpNothingForACauseThatIsNone) {
  AddLeg();
  EXPECT_EQ(Run("hupall", "nonsense"), "-ERR \"nonsense\" is no hang-up cause\n");
  EXPECT_EQ(Run("hupall", "99999"), "-ERR \"99999\" is no hang-up cause\n");
  EXPECT_EQ(Run("hupall", "999"), "-ERR \"999\" is no hang-up cause\n");
  EXPECT_EQ(Run("hupall", "USER_BUSY now"), "-USAGE: hupall [<cause>]\n");
  EXPECT_EQ(switch_core_session_count(), 1u);
  EXPECT_EQ(Run("show", "channels count"), "\n1 total.\n");
}

TEST_F(ConsoleCommands, UuidKillHangsUpOneLeg) {
  const std::string stays = AddLeg();
  const std::string ends = AddLeg();
  EXPECT_EQ(Run("uuid_kill", ends), "+OK\n");
  for (int tries = 0; switch_core_session_count() != 1 && tries < 1000; ++tries) switch_sleep(5000);
  const std::string text = Run("show", "channels");
  EXPECT_THAT(text, HasSubstr(stays));
  EXPECT_THAT(text, testing::Not(HasSubstr(ends)));
  EXPECT_EQ(Run("uuid_kill", stays + " call_rejected"), "+OK\n");
  EXPECT_EQ(CauseOfEndedLeg(), "CALL_REJECTED");
}

TEST_F(ConsoleCommands, UuidKillRefusesWhatIsNotThere) {
  EXPECT_EQ(Run("uuid_kill", "00000000-0000-0000-0000-000000000000"), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_kill"), "-USAGE: uuid_kill <uuid> [<cause>]\n");
  EXPECT_EQ(Run("uuid_kill", "a b c"), "-USAGE: uuid_kill <uuid> [<cause>]\n");
  const std::string uuid = AddLeg();
  EXPECT_EQ(Run("uuid_kill", uuid + " nonsense"), "-ERR \"nonsense\" is no hang-up cause\n");
  EXPECT_EQ(switch_core_session_count(), 1u);
}

TEST_F(ConsoleCommands, LoglevelShowsAndSetsTheLevel) {
  EXPECT_EQ(Run("loglevel", "warning"), "+OK log level: WARNING\n");
  EXPECT_EQ(Run("loglevel"), "+OK log level: WARNING\n");
  EXPECT_EQ(Run("loglevel", "7"), "+OK log level: DEBUG\n");
  EXPECT_EQ(Run("loglevel", "0"), "+OK log level: CONSOLE\n");
  const std::string usage = "-USAGE: loglevel [console|alert|crit|err|warning|notice|info|debug|0-7]\n";
  EXPECT_EQ(Run("loglevel", "loud"), usage);
  EXPECT_EQ(Run("loglevel", "info debug"), usage);
  EXPECT_EQ(Run("loglevel"), "+OK log level: CONSOLE\n");
}

TEST_F(ConsoleCommands, ReloadxmlTellsWhichFileIsMalformed) {
  EXPECT_EQ(Run("reloadxml"), "+OK [Success]\n");
  WriteConfiguration("broken.conf", "<configuration name=\"broken.conf\">\n<settings>\n</configuration>\n");
  EXPECT_THAT(Run("reloadxml"),
              AllOf(StartsWith("-ERR ["), HasSubstr(ConfigurationPath("broken.conf") + ":3"), EndsWith("]\n")));
  EXPECT_EQ(Run("reloadxml", "now"), "-USAGE: reloadxml\n");
}

TEST_F(ConsoleCommands, ShutdownCallsItsHook) {
  EXPECT_EQ(Run("shutdown"), "-ERR this switch cannot be stopped by a command\n");
  int calls = 0;
  kvx_switch::SetShutdownHook([&calls] { ++calls; });
  EXPECT_EQ(Run("shutdown", "now"), "-USAGE: shutdown\n");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(Run("shutdown"), "+OK stopping\n");
  EXPECT_EQ(calls, 1);
  kvx_switch::SetShutdownHook({});
  EXPECT_EQ(Run("shutdown"), "-ERR this switch cannot be stopped by a command\n");
}

TEST_F(ConsoleCommands, CommandsWithoutArgumentsTakeNone) {
  EXPECT_EQ(Run("status", "now"), "-USAGE: status\n");
  EXPECT_EQ(Run("version", "now"), "-USAGE: version\n");
}

TEST_F(ConsoleCommands, ConsoleCompleteOffersWords) {
  EXPECT_EQ(Run("console_complete", "sho"), "show\nwrite=3:show \n");
  EXPECT_EQ(Run("console_complete", "show c"), "calls\nchannels\ncodecs\n");
  EXPECT_EQ(Run("console_complete", "show chan"), "channels\nwrite=4:channels \n");
  EXPECT_EQ(Run("console_complete", "nonsense"), "");
  const std::string uuid = AddLeg();
  EXPECT_EQ(Run("console_complete", "uuid_kill "), uuid + "\nwrite=0:" + uuid + " \n");
  EXPECT_EQ(Run("console_complete", "uuid_hold "), uuid + "\noff\ntoggle\n");
  EXPECT_EQ(Run("console_complete", "uuid_hold toggle "), uuid + "\nwrite=0:" + uuid + " \n");
  EXPECT_EQ(Run("console_complete", "uuid_transfer " + uuid + " -b"), "-bleg\n-both\n");
  EXPECT_EQ(Run("console_complete", "show calls as j"), "json\nwrite=1:json \n");
}

TEST_F(ConsoleCommands, AreRegisteredOnce) {
  const std::string before = Run("show", "api");
  kvx_switch::RegisterBuiltinCommands();
  EXPECT_EQ(Run("show", "api"), before);
}

}  // namespace
