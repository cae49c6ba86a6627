#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include <switch.h>
#include <switch_configuration_check.h>

#include "core/configuration.h"
#include "core/variables.h"
#include "core_fixture.h"

namespace {

using core_test::CoreSwitch;
using core_test::RunningCore;
using test_support::error_line;
using test_support::info_line;
using test_support::warning_line;
using testing::ElementsAre;
using testing::HasSubstr;

using Xml = RunningCore;
using Configuration = CoreSwitch;

switch_xml_t parse(const std::string& text) {
  std::string copy = text;
  return switch_xml_parse_str_dynamic(copy.data(), SWITCH_TRUE);
}

TEST_F(Xml, WalksElementsOfOneNameInTheirOrder) {
  switch_xml_t root = parse("<a><b n='1'/><c n='2'/><b n='3'>text</b><d/><c n='4'/></a>");
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(switch_xml_name(root), "a");
  switch_xml_t b = switch_xml_child(root, "b");
  EXPECT_STREQ(switch_xml_attr(b, "n"), "1");
  EXPECT_STREQ(switch_xml_attr(switch_xml_next(b), "n"), "3");
  EXPECT_STREQ(switch_xml_txt(b->next), "text");
  EXPECT_EQ(switch_xml_next(b->next), nullptr);
  switch_xml_t c = switch_xml_child(root, "c");
  EXPECT_STREQ(switch_xml_attr(c, "n"), "2");
  EXPECT_STREQ(switch_xml_attr(switch_xml_next(c), "n"), "4");
  EXPECT_NE(switch_xml_child(root, "d"), nullptr);
  std::string in_order;
  for (switch_xml_t at = root->child; at; at = at->ordered) in_order += at->name;
  EXPECT_EQ(in_order, "bcbdc");
  EXPECT_EQ(c->parent, root);
  switch_xml_free(root);
}

TEST_F(Xml, IsSafeWithNothing) {
  switch_xml_t none = nullptr;
  EXPECT_EQ(switch_xml_child(none, "a"), nullptr);
  EXPECT_EQ(switch_xml_next(none), nullptr);
  EXPECT_EQ(switch_xml_attr(none, "a"), nullptr);
  EXPECT_STREQ(switch_xml_attr_soft(none, "a"), "");
  EXPECT_STREQ(switch_xml_txt(none), "");
  EXPECT_EQ(switch_xml_name(none), nullptr);
  EXPECT_EQ(switch_xml_find_child(none, "a", "b", "c"), nullptr);
  switch_xml_free(none);
}

TEST_F(Xml, MissingAttributesAreNullOrEmpty) {
  switch_xml_t root = parse("<a b='' c='x'/>");
  EXPECT_STREQ(switch_xml_attr(root, "b"), "");
  EXPECT_EQ(switch_xml_attr(root, "d"), nullptr);
  EXPECT_STREQ(switch_xml_attr_soft(root, "d"), "");
  switch_xml_free(root);
}

TEST_F(Xml, FindsAChildByAttribute) {
  switch_xml_t root = parse("<a><b n='x'/><b n='Y' v='found'/></a>");
  EXPECT_STREQ(switch_xml_attr(switch_xml_find_child(root, "b", "n", "y"), "v"), "found");
  EXPECT_EQ(switch_xml_find_child(root, "b", "n", "z"), nullptr);
  switch_xml_free(root);
}

TEST_F(Xml, ReadsEntitiesCdataAndSectionsOfText) {
  switch_xml_t root = parse("<a n='&lt;&quot;'>one<b/>two<![CDATA[<&>]]></a>");
  EXPECT_STREQ(switch_xml_attr(root, "n"), "<\"");
  EXPECT_STREQ(switch_xml_txt(root), "onetwo<&>");
  switch_xml_free(root);
}

TEST_F(Xml, TakesOverTextThatIsNotCopied) {
  switch_xml_t root = switch_xml_parse_str_dynamic(strdup("<a/>"), SWITCH_FALSE);
  ASSERT_NE(root, nullptr);
  switch_xml_free(root);
}

TEST_F(Xml, MalformedTextNamesTheLine) {
  EXPECT_EQ(parse("<a>\n<b>\n</a>"), nullptr);
  EXPECT_TRUE(log().Has(error_line("XML text, line 3: mismatched tag\n")));
  EXPECT_EQ(parse(""), nullptr);
  EXPECT_EQ(switch_xml_parse_str_dynamic(nullptr, SWITCH_TRUE), nullptr);
}

TEST_F(Xml, RefusesElementsNestedWithoutEnd) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "<a>";
  EXPECT_EQ(parse(text), nullptr);
  EXPECT_TRUE(log().Has(error_line("XML text, line 1: elements nested too deeply\n")));
}

TEST_F(Xml, FreeingAnElementFreesTheTreeItIsOf) {
  switch_xml_t root = parse("<a><b><c/></b></a>");
  switch_xml_free(switch_xml_child(switch_xml_child(root, "b"), "c"));  // the leak check is the judge
}

TEST_F(Xml, ReadsAThousandParameters) {
  std::string text = "<a>";
  for (int i = 0; i < 20000; ++i) text += "<param n='" + std::to_string(i) + "'/>";
  switch_xml_t root = parse(text + "</a>");
  int count = 0;
  for (switch_xml_t at = switch_xml_child(root, "param"); at; at = at->next) ++count;
  EXPECT_EQ(count, 20000);
  switch_xml_free(root);
}

TEST_F(Configuration, OpensTheFileOfAConfiguration) {
  Write("autoload_configs/sample.conf.xml",
        "<configuration name=\"sample.conf\" description=\"d\">\n<settings>\n"
        "<param name=\"a\" value=\"1\"/><param name=\"b\" value=\"2\"/>\n</settings></configuration>");
  Start();
  switch_xml_t node = nullptr;
  switch_xml_t root = switch_xml_open_cfg("sample.conf", &node, nullptr);
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(switch_xml_attr(node, "name"), "sample.conf");
  switch_xml_t param = switch_xml_child(switch_xml_child(node, "settings"), "param");
  EXPECT_STREQ(switch_xml_attr_soft(param, "name"), "a");
  EXPECT_STREQ(switch_xml_attr_soft(switch_xml_next(param), "value"), "2");
  switch_xml_free(root);
}

TEST_F(Configuration, FindsTheElementBelowOtherRoots) {
  Write("autoload_configs/sample.conf.xml",
        "<document><section><configuration name='other.conf'/><configuration name='sample.conf' x='y'/>"
        "</section></document>");
  Start();
  switch_xml_t node = nullptr;
  switch_xml_t root = switch_xml_open_cfg("sample.conf", &node, nullptr);
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(switch_xml_attr(node, "x"), "y");
  switch_xml_free(root);
}

TEST_F(Configuration, AMissingFileIsNamedInTheLog) {
  Start();
  switch_xml_t node = reinterpret_cast<switch_xml_t>(1);
  EXPECT_EQ(switch_xml_open_cfg("absent.conf", &node, nullptr), nullptr);
  EXPECT_EQ(node, nullptr);
  EXPECT_TRUE(log().Has(error_line(PathOf("autoload_configs/absent.conf.xml") + ": No such file or directory\n")));
}

TEST_F(Configuration, AMalformedFileIsLoggedWithFileAndLine) {
  Write("autoload_configs/sample.conf.xml", "<configuration name='sample.conf'>\n<settings>\n</configuration>");
  Start();
  switch_xml_t node = nullptr;
  EXPECT_EQ(switch_xml_open_cfg("sample.conf", &node, nullptr), nullptr);
  EXPECT_TRUE(log().Has(error_line(PathOf("autoload_configs/sample.conf.xml") + ":3: mismatched tag\n")));
}

TEST_F(Configuration, AFileWithoutTheElementIsLogged) {
  Write("autoload_configs/sample.conf.xml", "<configuration name='other.conf'/>");
  Start();
  switch_xml_t node = nullptr;
  EXPECT_EQ(switch_xml_open_cfg("sample.conf", &node, nullptr), nullptr);
  EXPECT_TRUE(log().Has(
      error_line(PathOf("autoload_configs/sample.conf.xml") + ":1: no <configuration name=\"sample.conf\"> in it\n")));
}

TEST_F(Configuration, NamesDoNotLeaveTheDirectory) {
  Write("secret.xml", "<configuration name='../secret'/>");
  Start();
  switch_xml_t node = nullptr;
  EXPECT_EQ(switch_xml_open_cfg("../secret", &node, nullptr), nullptr);
  EXPECT_EQ(switch_xml_open_cfg("", &node, nullptr), nullptr);
}

TEST_F(Configuration, ReplacesVariablesByThoseOfVarsXml) {
  Write("vars.xml",
        "<include>\n<X-PRE-PROCESS cmd=\"set\" data=\"host=127.0.0.1\"/>\n"
        "<X-PRE-PROCESS cmd=\"set\" data=\"phone=$${host}:5070\"/>\n</include>");
  const std::string path = Write("sample.xml", "<a b='sip:1000@$${phone}' c='$${conf_dir}'>$${host}</a>");
  Start();
  switch_xml_t root = switch_xml_parse_file(path.c_str());
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(switch_xml_attr(root, "b"), "sip:1000@127.0.0.1:5070");
  EXPECT_EQ(switch_xml_attr(root, "c"), PathOf("").substr(0, PathOf("").size() - 1));
  EXPECT_STREQ(switch_xml_txt(root), "127.0.0.1");
  EXPECT_STREQ(switch_core_get_variable("phone"), "127.0.0.1:5070");
  switch_xml_free(root);
}

TEST_F(Configuration, AnUnknownVariableIsEmptyAndLoggedWithItsLine) {
  const std::string path = Write("sample.xml", "<a\nb='x$${nothing}y'/>");
  Start();
  switch_xml_t root = switch_xml_parse_file(path.c_str());
  EXPECT_STREQ(switch_xml_attr(root, "b"), "xy");
  EXPECT_TRUE(log().Has(warning_line(path + ":2: no variable \"nothing\", taken as empty\n")));
  switch_xml_free(root);
}

TEST_F(Configuration, AnOverriddenVariableStaysAsItIs) {
  Write("vars.xml",
        "<include><X-PRE-PROCESS cmd='set' data='sip_port=5060'/>"
        "<X-PRE-PROCESS cmd='set' data='all=$${sip_port}'/></include>");
  kvx_switch::OverrideVariable("sip_port", "0");
  Start();
  EXPECT_STREQ(switch_core_get_variable("sip_port"), "0");
  EXPECT_STREQ(switch_core_get_variable("all"), "0");
  const char* error = nullptr;
  EXPECT_EQ(switch_xml_reload(&error), SWITCH_STATUS_SUCCESS) << error;
  EXPECT_STREQ(switch_core_get_variable("sip_port"), "0");
}

TEST_F(Configuration, VarsXmlSkipsWhatItDoesNotUnderstand) {
  Write("vars.xml",
        "<include><X-PRE-PROCESS cmd='exec' data='rm'/><X-PRE-PROCESS cmd='set' data='novalue'/>"
        "<X-PRE-PROCESS cmd='set' data='good=yes'/></include>");
  Start();
  EXPECT_STREQ(switch_core_get_variable("good"), "yes");
  EXPECT_TRUE(log().Has(warning_line(PathOf("vars.xml") + ":1: cmd \"exec\" is not known, ignored\n")));
  EXPECT_TRUE(log().Has(warning_line(PathOf("vars.xml") + ":1: \"novalue\" is not name=value, ignored\n")));
}

TEST_F(Configuration, WithoutVarsXmlThereAreTheBuiltInVariables) {
  Start();
  EXPECT_TRUE(log().Has(info_line("No " + PathOf("vars.xml") + ": no variables beyond the built-in ones\n")));
  EXPECT_NE(switch_core_get_variable("conf_dir"), nullptr);
  EXPECT_NE(switch_core_get_variable("mod_dir"), nullptr);
  EXPECT_NE(switch_core_get_variable("base_dir"), nullptr);
  EXPECT_NE(switch_core_get_variable("log_dir"), nullptr);
}

TEST_F(Configuration, LocateLooksThroughTheFilesOfASection) {
  Write("dialplan/a.xml", "<include><context name='first'/></include>");
  Write("dialplan/b.xml", "<include><context name='default' from='b'/></include>");
  Write("dialplan/c.xml", "<include><context name='default' from='c'/></include>");
  Write("dialplan/notes.txt", "no xml");
  Start();
  switch_xml_t root = nullptr;
  switch_xml_t node = nullptr;
  ASSERT_EQ(switch_xml_locate("dialplan", "context", "name", "default", &root, &node, nullptr, SWITCH_FALSE),
            SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(switch_xml_attr(node, "from"), "b");
  switch_xml_free(root);
  EXPECT_EQ(switch_xml_locate("dialplan", "context", "name", "none", &root, &node, nullptr, SWITCH_FALSE),
            SWITCH_STATUS_FALSE);
  EXPECT_EQ(root, nullptr);
  EXPECT_EQ(switch_xml_locate("../dialplan", "context", "name", "default", &root, &node, nullptr, SWITCH_FALSE),
            SWITCH_STATUS_FALSE);
}

TEST_F(Configuration, ReloadNamesTheFileThatDoesNotParse) {
  Start();
  Write("dialplan/default.xml", "<include>\n<context>\n");
  const char* error = nullptr;
  EXPECT_EQ(switch_xml_reload(&error), SWITCH_STATUS_GENERR);
  EXPECT_EQ(error, PathOf("dialplan/default.xml") + ":3: no element found");
}

TEST_F(Configuration, ReloadNamesEveryFileThatDoesNotParse) {
  Start();
  Write("dialplan/default.xml", "<include>");
  Write("sip_profiles/internal.xml", "<profile>\n</profil>");
  const char* error = nullptr;
  EXPECT_EQ(switch_xml_reload(&error), SWITCH_STATUS_GENERR);
  EXPECT_EQ(error, PathOf("dialplan/default.xml") + ":1: no element found\n" + PathOf("sip_profiles/internal.xml") +
                       ":2: mismatched tag");
}

TEST_F(Configuration, ReloadTakesNewValues) {
  Write("vars.xml", "<include><X-PRE-PROCESS cmd='set' data='v=1'/></include>");
  Start();
  const char* held = switch_core_get_variable("v");
  Write("vars.xml", "<include><X-PRE-PROCESS cmd='set' data='v=2'/></include>");
  EXPECT_EQ(switch_xml_reload(nullptr), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(switch_core_get_variable("v"), "2");
  EXPECT_STREQ(held, "1") << "a text that was handed out stays good";
}

TEST_F(Configuration, SettingsOfTheSwitchAreApplied) {
  Write("autoload_configs/switch.conf.xml",
        "<configuration name='switch.conf'><settings><param name='max-sessions' value='12'/>"
        "<param name='loglevel' value='notice'/><param name='nonsense' value='1'/>"
        "<param name='debug-level' value='high'/></settings></configuration>");
  Start();
  EXPECT_EQ(switch_core_session_ctl(SCSC_MAX_SESSIONS, nullptr), 12);
  EXPECT_EQ(switch_core_session_ctl(SCSC_LOGLEVEL, nullptr), SWITCH_LOG_NOTICE);
  EXPECT_TRUE(log().Has(
      warning_line(PathOf("autoload_configs/switch.conf.xml") + ":1: unknown parameter \"nonsense\", ignored\n")));
  EXPECT_TRUE(log().Has(warning_line(PathOf("autoload_configs/switch.conf.xml") +
                                     ":1: \"debug-level\" is \"high\", not a number from 0 to 10; ignored\n")));
}

TEST_F(Configuration, ElementsAndAttributesThatNobodyReadsAreNamed) {
  const std::string path = PathOf("autoload_configs/switch.conf.xml");
  Write("autoload_configs/switch.conf.xml",
        "<configuration name='switch.conf'>\n<settings>\n<parm name='loglevel' value='err'/>\n"
        "<param name='debug-level' valeu='2'/>\n<param value='1'/>\n</settings>\n<setings/>\n</configuration>");
  Write("vars.xml", "<include>\n<PRE-PROCESS cmd='set' data='a=b'/>\n</include>");
  Start();
  EXPECT_TRUE(log().Has(warning_line(path + ":3: expected <param>, not <parm>; ignored\n")));
  EXPECT_TRUE(log().Has(warning_line(path + ":4: a <param> has no attribute \"valeu\", which is \"2\"; ignored\n")));
  EXPECT_TRUE(log().Has(warning_line(path + ":5: a <param> needs \"name\"\n")));
  EXPECT_TRUE(log().Has(warning_line(path + ":7: expected <settings>, not <setings>; ignored\n")));
  EXPECT_TRUE(
      log().Has(warning_line(PathOf("vars.xml") + ":2: expected <X-PRE-PROCESS>, not <PRE-PROCESS>; ignored\n")));
}

TEST_F(Configuration, AParameterThatStandsTwiceIsNamed) {
  Write("autoload_configs/switch.conf.xml",
        "<configuration name='switch.conf' version='2'>\n<settings>\n<param name='debug-level' value='1'/>\n"
        "<param name='debug-level' value='2'/>\n</settings>\n</configuration>");
  Start();
  const std::string path = PathOf("autoload_configs/switch.conf.xml");
  EXPECT_TRUE(
      log().Has(warning_line(path + ":1: a <configuration> has no attribute \"version\", which is \"2\"; ignored\n")));
  EXPECT_TRUE(log().Has(warning_line(path + ":4: \"debug-level\" stands here again; the last counts\n")));
}

TEST_F(Configuration, AFileOfAnotherNameIsRefusedWithItsLine) {
  Write("autoload_configs/switch.conf.xml", "\n<configuration name='swich.conf'/>");
  const std::string conf = PathOf("");
  SWITCH_GLOBAL_dirs.conf_dir = strdup(conf.substr(0, conf.size() - 1).c_str());
  const char* error = "";
  EXPECT_NE(switch_core_init(0, SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(error, PathOf("autoload_configs/switch.conf.xml") + ":2: no <configuration name=\"switch.conf\"> in it");
}

TEST_F(Configuration, MistakesAreNamedWhateverTheLogLevel) {
  Write("autoload_configs/switch.conf.xml",
        "<configuration name='switch.conf'><settings><param name='loglevel' value='crit'/>\n"
        "<param name='debug-level' value='12x'/></settings></configuration>");
  Start();
  EXPECT_TRUE(log().Has(warning_line(PathOf("autoload_configs/switch.conf.xml") +
                                     ":2: \"debug-level\" is \"12x\", not a number from 0 to 10; ignored\n")));
  EXPECT_EQ(switch_core_session_ctl(SCSC_LOGLEVEL, nullptr), SWITCH_LOG_CRIT);
}

TEST_F(Configuration, VariableNamesAreThoseSetAndThoseReferredTo) {
  Write("vars.xml", "<include><!-- $${not_this} --><X-PRE-PROCESS cmd='set' data='set_here=$${below}'/></include>");
  Write("dialplan/a.xml", "<include><!-- $${nor_this} -->$${in_the_dialplan}</include>");
  Write("sip_profiles/a.xml", "<profile name='$${in_the_profile}'/>");
  Start();
  EXPECT_THAT(kvx_switch::VariableNames(), ElementsAre("below", "in_the_dialplan", "in_the_profile", "set_here"));
}

TEST_F(Xml, ElementsKnowTheirLine) {
  switch_xml_t root = parse("<a>\n<b/>\n\n<c\n n='1'/></a>");
  EXPECT_EQ(switch_xml_line(root), 1);
  EXPECT_EQ(switch_xml_line(switch_xml_child(root, "b")), 2);
  EXPECT_EQ(switch_xml_line(switch_xml_child(root, "c")), 4);
  EXPECT_EQ(switch_xml_line(nullptr), 0);
  switch_xml_free(root);
}

TEST_F(Configuration, BadCallLimitsFailTheStart) {
  const auto error_of = [this](const std::string& name, const std::string& value) {
    Write("autoload_configs/switch.conf.xml", "<configuration name='switch.conf'><settings><param name='" + name +
                                                  "' value='" + value + "'/></settings></configuration>");
    const std::string conf = PathOf("");
    SWITCH_GLOBAL_dirs.conf_dir = strdup(conf.substr(0, conf.size() - 1).c_str());
    const char* error = "";
    EXPECT_NE(switch_core_init(0, SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS);
    return std::string(error);
  };
  const std::string place = PathOf("autoload_configs/switch.conf.xml") + ":1: ";
  EXPECT_EQ(error_of("max-sessions", "0"), place + "\"max-sessions\" is \"0\", not a number from 1 to 1000000");
  EXPECT_EQ(error_of("max-sessions", "10k"), place + "\"max-sessions\" is \"10k\", not a number from 1 to 1000000");
  EXPECT_EQ(error_of("sessions-per-second", ""),
            place + "\"sessions-per-second\" is \"\", not a number from 1 to 100000");
  EXPECT_EQ(error_of("sessions-per-second", "100001"),
            place + "\"sessions-per-second\" is \"100001\", not a number from 1 to 100000");
}

TEST_F(Configuration, GlobalVariablesAreSetAndDeleted) {
  Start();
  EXPECT_EQ(switch_core_get_variable("mine"), nullptr);
  EXPECT_EQ(switch_core_get_variable(nullptr), nullptr);
  switch_core_set_variable("mine", "yes");
  EXPECT_STREQ(switch_core_get_variable("mine"), "yes");
  switch_core_set_variable("mine", nullptr);
  EXPECT_EQ(switch_core_get_variable("mine"), nullptr);
}

}  // namespace
