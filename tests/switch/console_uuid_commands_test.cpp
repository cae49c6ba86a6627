#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "console/command_arguments.h"
#include "console_switch.h"

namespace {

using console_test::ConsoleSwitch;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kNobody[] = "00000000-0000-0000-0000-000000000000";

class ConsoleUuidCommands : public ConsoleSwitch {};

TEST_F(ConsoleUuidCommands, ExistsIsTrueOnlyOfLegsThatAreUp) {
  EXPECT_EQ(Run("uuid_exists", AddLeg()), "true");
  EXPECT_EQ(Run("uuid_exists", kNobody), "false");
  EXPECT_EQ(Run("uuid_exists"), "-USAGE: uuid_exists <uuid>\n");
}

TEST_F(ConsoleUuidCommands, VariablesAreSetShownAndRemoved) {
  const std::string leg = AddLeg();
  EXPECT_EQ(Run("uuid_getvar", leg + " colour"), "_undef_");
  EXPECT_EQ(Run("uuid_setvar", leg + "  colour   light  green "), "+OK\n");
  EXPECT_EQ(Run("uuid_getvar", leg + " Colour"), "light  green");
  EXPECT_EQ(Run("uuid_setvar", leg + " colour"), "+OK\n");
  EXPECT_EQ(Run("uuid_getvar", leg + " colour"), "_undef_");
  EXPECT_EQ(Run("uuid_setvar", leg + " colour ${secret}"), "-ERR the value refers to a variable\n");
}

TEST_F(ConsoleUuidCommands, VariablesOfNobodyAreRefused) {
  EXPECT_EQ(Run("uuid_setvar", std::string(kNobody) + " a b"), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_getvar", std::string(kNobody) + " a"), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_dump", kNobody), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_setvar", kNobody), "-USAGE: uuid_setvar <uuid> <variable> [<value>]\n");
  EXPECT_EQ(Run("uuid_getvar", kNobody), "-USAGE: uuid_getvar <uuid> <variable>\n");
}

TEST_F(ConsoleUuidCommands, DumpShowsStateCallerAndVariables) {
  const std::string leg = AddLeg(SWITCH_CALL_DIRECTION_OUTBOUND);
  Run("uuid_setvar", leg + " colour light green");
  EXPECT_THAT(Run("uuid_dump", leg),
              AllOf(StartsWith("Event-Name: CHANNEL_DATA\n"), HasSubstr("Unique-ID: " + leg + "\n"),
                    HasSubstr("Call-Direction: outbound\n"), HasSubstr("variable_colour: light green\n")));
  EXPECT_THAT(Run("uuid_dump", leg + " json"),
              AllOf(StartsWith("{\"Event-Name\":\"CHANNEL_DATA\""), HasSubstr("\"variable_colour\":\"light green\"")));
  EXPECT_EQ(Run("uuid_dump", leg + " yaml"), "-USAGE: uuid_dump <uuid> [plain|json]\n");
}

TEST_F(ConsoleUuidCommands, CommandsForSipLegsRefuseOthers) {
  const std::string leg = AddLeg();
  EXPECT_EQ(Run("uuid_transfer", leg + " 2000"), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_hold", leg), "-ERR No such channel!\n");
  EXPECT_EQ(Run("uuid_hold", kNobody), "-ERR No such channel!\n");
}

TEST_F(ConsoleUuidCommands, WrongUseIsExplained) {
  const std::string transfer = "-USAGE: uuid_transfer <uuid> [-bleg|-both] <extension> [<dialplan>] [<context>]\n";
  for (const char* arguments : {"", "x", "x -bleg", "x -all 2000", "x 2000 XML default more"}) {
    EXPECT_EQ(Run("uuid_transfer", arguments), transfer) << arguments;
  }
  EXPECT_EQ(Run("uuid_transfer", "x 2000 enum"), "-ERR there is no dialplan \"enum\", only \"XML\"\n");
  for (const char* arguments : {"", "on x", "off", "toggle", "off x y"}) {
    EXPECT_EQ(Run("uuid_hold", arguments), "-USAGE: uuid_hold [off|toggle] <uuid>\n") << arguments;
  }
  const std::string originate =
      "-USAGE: originate <call url> <extension>|&<application>(<args>) [<dialplan>] [<context>] [<cid_name>] "
      "[<cid_num>] [<timeout>]\n";
  for (const char* arguments : {"", "sip:1@127.0.0.1", "a b c d e f g h"}) {
    EXPECT_EQ(Run("originate", arguments), originate) << arguments;
  }
}

TEST_F(ConsoleUuidCommands, OriginateSaysWhatItCannotTake) {
  EXPECT_EQ(Run("originate", "2000 3000"), "-ERR \"2000\" is not a SIP URI (sip:user@host:port)\n");
  EXPECT_EQ(Run("originate", "sip:1@h &fly(1)"), "-ERR there is no application \"fly\"\n");
  EXPECT_EQ(Run("originate", "sip:1@h &sleep(a b)"),
            "-ERR sleep: \"a b\" is not a number of milliseconds from 0 to 86400000\n");
  EXPECT_EQ(Run("originate", "sip:1@h &park("), "-ERR \"&park(\": \"(\" is not closed\n");
  EXPECT_EQ(Run("originate", "sip:1@h 2000 enum"), "-ERR there is no dialplan \"enum\", only \"XML\"\n");
  EXPECT_EQ(Run("originate", "sip:1@h 2000"), "-ERR SIP is not running\n");
}

TEST(ConsoleArguments, BlanksInBracketsAndQuotesSeparateNothing) {
  using kvx_switch::arguments_of;
  EXPECT_THAT(arguments_of(nullptr), ElementsAre());
  EXPECT_THAT(arguments_of(" {a=b c}sip:x@h  &log(INFO a b)\tXML 'Anna B' "),
              ElementsAre("{a=b c}sip:x@h", "&log(INFO a b)", "XML", "Anna B"));
  EXPECT_THAT(arguments_of("{a='x y'}z '(' b"), ElementsAre("{a='x y'}z", "(", "b"));
}

}  // namespace
