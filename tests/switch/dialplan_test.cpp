#include "sip/dialplan.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "core/variables.h"
#include "sip_temporary_directory.h"

namespace kvx_switch {
namespace {

class DialplanFiles : public testing::Test {
 protected:
  std::shared_ptr<const Dialplan> Load(const std::string& text) {
    path_ = directory_.Write("default.xml", text);
    return Dialplan::Load(directory_.Path(), error_);
  }

  std::shared_ptr<const Dialplan> LoadExtensions(const std::string& extensions) {
    return Load("<include>\n<context name=\"default\">\n" + extensions + "\n</context>\n</include>\n");
  }

  /// The mistake, without the file's path before it.
  std::string ErrorOf(const std::string& text) {
    EXPECT_EQ(Load(text), nullptr) << text;
    EXPECT_EQ(error_.compare(0, path_.size() + 1, path_ + ":"), 0) << error_;
    return error_.substr(path_.size() + 1);
  }

  VariableLookup Variables(std::map<std::string, std::string> values) {
    return [values = std::move(values)](const std::string& name) {
      auto found = values.find(name);
      return found == values.end() ? "" : found->second;
    };
  }

  Route Find(const Dialplan& dialplan, const std::string& number) {
    return dialplan.Find("default", Variables({{"destination_number", number}, {"caller_id_number", "300"}}));
  }

  TemporaryDirectory directory_;
  std::string path_;
  std::string error_;
};

TEST_F(DialplanFiles, FirstMatchingExtensionDecides) {
  auto dialplan = LoadExtensions(
      R"(<extension name="one"><condition field="destination_number" expression="^1...$">
           <action application="bridge" data="sip:a@127.0.0.1:5070"/></condition></extension>
         <extension name="all"><condition><action application="hangup" data="USER_BUSY"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  Route route = Find(*dialplan, "1234");
  EXPECT_EQ(route.extension, "one");
  ASSERT_EQ(route.actions.size(), 1u);
  EXPECT_EQ(route.actions[0].application, "bridge");
  EXPECT_EQ(route.actions[0].data, "sip:a@127.0.0.1:5070");
  EXPECT_EQ(Find(*dialplan, "9").extension, "all");
}

TEST_F(DialplanFiles, ContinuingExtensionAddsItsActions) {
  auto dialplan = LoadExtensions(
      R"(<extension name="first" continue="true"><condition><action application="log" data="a"/></condition></extension>
         <extension name="second"><condition><action application="hangup"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  Route route = Find(*dialplan, "1");
  ASSERT_EQ(route.actions.size(), 2u);
  EXPECT_EQ(route.actions[1].application, "hangup");
}

TEST_F(DialplanFiles, AllConditionsMustHold) {
  auto dialplan = LoadExtensions(
      R"(<extension name="x"><condition field="destination_number" expression="^2000$"/>
           <condition field="caller_id_number" expression="^4"><action application="answer"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_TRUE(Find(*dialplan, "2000").actions.empty());
  EXPECT_EQ(
      dialplan->Find("default", Variables({{"destination_number", "2000"}, {"caller_id_number", "44"}})).actions.size(),
      1u);
}

TEST_F(DialplanFiles, GroupsReachTheActions) {
  auto dialplan = LoadExtensions(
      R"(<extension name="x"><condition field="destination_number" expression="^(\d)(\d+)$">
           <action application="bridge" data="sip:$2@host$1.example$9:$"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_EQ(Find(*dialplan, "7123").actions[0].data, "sip:123@host7.example:$");
}

TEST_F(DialplanFiles, GlobalVariablesAreReplacedWhenTheFileIsRead) {
  OverrideVariable("dialplan_test_phone", "127.0.0.1:5999");
  auto dialplan = LoadExtensions(
      R"(<extension name="x"><condition><action application="bridge" data="sip:x@$${dialplan_test_phone}"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_EQ(Find(*dialplan, "1").actions[0].data, "sip:x@127.0.0.1:5999");
}

TEST_F(DialplanFiles, ContextsOfSeveralFilesComeTogether) {
  directory_.Write("a.xml", R"(<context name="default"><extension name="a"><condition field="destination_number"
      expression="^1$"><action application="answer"/></condition></extension></context>)");
  directory_.Write("b.xml", R"(<context name="default"><extension name="b"><condition><action application="answer"/>
      </condition></extension></context>)");
  directory_.Write("ignored.txt", "<not xml");
  auto dialplan = Dialplan::Load(directory_.Path(), error_);
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_EQ(Find(*dialplan, "1").extension, "a");
  EXPECT_EQ(Find(*dialplan, "2").extension, "b");
  EXPECT_TRUE(dialplan->HasContext("default"));
  EXPECT_FALSE(dialplan->HasContext("public"));
  EXPECT_TRUE(dialplan->Find("public", Variables({})).actions.empty());
}

TEST_F(DialplanFiles, MistakesNameFileAndLine) {
  EXPECT_EQ(ErrorOf("<include>\n<context name=\"default\">\n</include>\n"), "3: mismatched tag");
  EXPECT_EQ(ErrorOf("<dialplan/>"), "1: expected <include> or <context>, not <dialplan>");
  EXPECT_EQ(ErrorOf("<include>\n<context>\n</context></include>"), "2: a context needs a name");
  EXPECT_EQ(ErrorOf("<context name=\"c\">\n\n<action/></context>"), "3: expected <extension>, not <action>");
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\">\n<condition field=\"x\"/></extension></context>"),
            "2: a condition needs both \"field\" and \"expression\", or neither");
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\">\n<condition wday=\"1\"/></extension></context>"),
            "2: a <condition> has no attribute \"wday\"");
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\">\n<condition break=\"maybe\"/></extension></context>"),
            "2: \"break\" is \"maybe\", not on-false, on-true, always or never");
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\"><condition>\n\n<action application=\"fly\"/>"
                    "</condition></extension></context>"),
            "3: there is no application \"fly\"");
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\"></extension></context>"),
            "1: extension \"e\" has no condition");
  std::string regex = ErrorOf(
      "<context name=\"c\"><extension name=\"e\">\n<condition field=\"x\" expression=\"(\"/>"
      "</extension></context>");
  EXPECT_EQ(regex.compare(0, 19, "2: expression \"(\": ", 19), 0) << regex;
}

TEST_F(DialplanFiles, EveryMistakeIsNamed) {
  const std::string all = ErrorOf(
      "<include>\n<contxt/>\n<context name=\"c\">\n<extension name=\"e\" contine=\"true\">\n</extension>\n"
      "<extension name=\"f\" continue=\"yes\">\n</extension>\n<extension name=\"g\"><condition>\n"
      "<action application=\"fly\"/>\n<action application=\"answer\" dta=\"\"/></condition></extension>\n"
      "</context></include>");
  EXPECT_EQ(all, "2: expected <context>, not <contxt>\n" + path_ + ":4: an <extension> has no attribute \"contine\"\n" +
                     path_ + ":4: extension \"e\" has no condition\n" + path_ +
                     ":6: \"continue\" is \"yes\", not \"true\" or \"false\"\n" + path_ +
                     ":6: extension \"f\" has no condition\n" + path_ + ":9: there is no application \"fly\"\n" +
                     path_ + ":10: an <action> has no attribute \"dta\"");
}

TEST_F(DialplanFiles, DataThatMakesNoSenseIsNamedWithFileAndLine) {
  const struct {
    const char* action;
    const char* error;
  } kMistakes[] = {
      {"application='bridge' data='2000'", "bridge: \"2000\" is not a SIP URI (sip:user@host:port)"},
      {"application='set' data='no value'", "set: \"no value\" is not name=value"},
      {"application='export' data='=1'", "export: \"=1\" is not name=value"},
      {"application='hangup' data='TIRED'", "hangup: \"TIRED\" is no hang-up cause"},
      {"application='sleep' data='1s'", "sleep: \"1s\" is not a number of milliseconds from 0 to 86400000"},
      {"application='sleep'", "sleep: \"\" is not a number of milliseconds from 0 to 86400000"},
      {"application='transfer'", "transfer: \"extension [dialplan [context]]\" is needed"},
      {"application='transfer' data='1 inline'", "transfer: there is no dialplan \"inline\", only \"XML\""},
      {"application='park' data='5'", "park: it takes no data, not \"5\""},
      {"application='answer' data='5'", "answer: it takes no data, not \"5\""},
      {"application='set' data='leg_timeout=1m'", "set: leg_timeout is \"1m\", not a number from 1 to 3600"},
      {"application='set' data='a b=c'", "set: \"a b\" is no name of a variable"},
      {"application='export' data='nolocal:rtp_secure_media=maybe'",
       "export: rtp_secure_media is \"maybe\", not \"off\", \"optional\" or \"mandatory\""},
      {"application='set' data='a=b' inline='true'", "an <action> has no attribute \"inline\""},
      {"data='a=b'", "an action needs an \"application\""},
  };
  for (const auto& mistake : kMistakes) {
    EXPECT_EQ(ErrorOf(std::string("<context name=\"c\"><extension name=\"e\"><condition>\n\n<action ") +
                      mistake.action + "/></condition></extension></context>"),
              std::string("3: ") + mistake.error);
  }
}

TEST_F(DialplanFiles, DataWithReferencesIsLeftToTheCall) {
  auto dialplan = LoadExtensions(
      R"(<extension name="x"><condition field="destination_number" expression="^(.*)$">
           <action application="bridge" data="${dial_string}"/><action application="sleep" data="$1"/>
           <action application="hangup" data="${cause}"/></condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_EQ(Find(*dialplan, "20").actions[1].data, "20");
}

TEST_F(DialplanFiles, VariablesOfDialStringsAreJudged) {
  const struct {
    const char* data;
    const char* error;
  } kMistakes[] = {
      {"{leg_timeout=soon}sip:a@h", "leg_timeout is \"soon\", not a number from 1 to 3600"},
      {"{x=1, y=2}sip:a@h", "\" y\" is no name of a variable"},
      {"[rtp_secure_media=yes please]sip:a@h",
       "rtp_secure_media is \"yes please\", not \"off\", \"optional\" or \"mandatory\""},
      {"sip:a@h|[originate_timeout=5]sip:b@h",
       "originate_timeout is the time of all targets together: it belongs into the braces"},
      {"{leg_timeout=0}[jitterbuffer_mode=elastic]sip:$1@h",
       "leg_timeout is \"0\", not a number from 1 to 3600; jitterbuffer_mode is \"elastic\", not \"none\", \"static\" "
       "or "
       "\"adaptive\""},
      {"sip:a@h:65536", "\"sip:a@h:65536\": \"65536\" is not a port from 1 to 65535"},
      {"sip:a@[::1]:", "\"sip:a@[::1]:\": \"\" is not a port from 1 to 65535"},
      {"sip:a@h;transport=tls", "\"sip:a@h;transport=tls\": there is no transport \"tls\", only udp and tcp"},
  };
  for (const auto& mistake : kMistakes) {
    EXPECT_EQ(ErrorOf(std::string("<context name=\"c\"><extension name=\"e\"><condition>\n\n"
                                  "<action application='bridge' data='") +
                      mistake.data + "'/></condition></extension></context>"),
              std::string("3: bridge: ") + mistake.error);
  }
}

TEST_F(DialplanFiles, WhatACallDecidesInADialStringPasses) {
  EXPECT_TRUE(LoadExtensions(
      R"(<extension name="x"><condition field="destination_number" expression="^(.*)$">
           <action application="bridge" data="{leg_timeout=${time},${more},originate_timeout=5}sip:$1@${host}:$1"/>
           <action application="bridge" data="[${vars}]sip:a@[::1]:5080;transport=TCP|${next}|sip:b@h:${port}"/>
           <action application="bridge" data="{${vars}"/>
           <action application="set" data="${assignment}"/><action application="set" data="leg_timeout=$1"/>
         </condition></extension>)"))
      << error_;
}

TEST_F(DialplanFiles, TransfersThatLeadNowhereAreNamed) {
  const std::string text =
      "<include><context name=\"default\"><extension name=\"a\">\n"
      "<condition field=\"destination_number\" expression=\"^1...$\">\n"
      "<action application=\"transfer\" data=\"1000\"/>\n<action application=\"transfer\" data=\"2000\"/>\n"
      "<action application=\"transfer\" data=\"1000 XML public\"/>\n"
      "<action application=\"transfer\" data=\"1000 XML other\"/>\n"
      "<action application=\"transfer\" data=\"5 XML other\"/></condition></extension></context>\n"
      "<context name=\"other\"><extension name=\"b\"><condition field=\"destination_number\" expression=\"^5$\"/>"
      "<condition field=\"caller_id_number\" expression=\"^3\"><action application=\"transfer\" data=\"$1 XML "
      "nowhere\"/>"
      "</condition></extension></context></include>";
  const std::string all = ErrorOf(text);
  EXPECT_EQ(all, "4: transfer: nothing in context \"default\" matches \"2000\"\n" + path_ +
                     ":5: transfer: there is no context \"public\"\n" + path_ +
                     ":6: transfer: nothing in context \"other\" matches \"1000\"\n" + path_ +
                     ":8: transfer: there is no context \"nowhere\"");
}

TEST_F(DialplanFiles, TransfersAreNotJudgedByWhatCouldNotBeRead) {
  const std::string transfer = "<action application=\"transfer\" data=\"7\"/>";
  EXPECT_EQ(ErrorOf("<context name=\"c\"><extension name=\"e\"><condition field=\"destination_number\"\n"
                    "expression=\"^1$\">" +
                    transfer + "</condition></extension>\n<extnsion/></context>"),
            "3: expected <extension>, not <extnsion>");
  EXPECT_EQ(ErrorOf("<include><context name=\"c\"><extension name=\"e\"><condition>\n"
                    "<action application=\"transfer\" data=\"7 XML d\"/></condition></extension></context>\n"
                    "<contxt name=\"d\"/></include>"),
            "3: expected <context>, not <contxt>");
}

TEST_F(DialplanFiles, AMistakeDoesNotHideThoseBelowIt) {
  const std::string all = ErrorOf(
      "<context>\n<extension name=\"e\">\n<condition field=\"x\" expression=\"(\" wday=\"1\" break=\"no\">\n"
      "<action application=\"fly\" dta=\"\"/>\n</condition></extension></context>");
  EXPECT_EQ(all, "1: a context needs a name\n" + path_ + ":3: a <condition> has no attribute \"wday\"\n" + path_ +
                     ":3: expression \"(\": missing closing parenthesis at character 2\n" + path_ +
                     ":3: \"break\" is \"no\", not on-false, on-true, always or never\n" + path_ +
                     ":4: an <action> has no attribute \"dta\"\n" + path_ + ":4: there is no application \"fly\"");
}

TEST_F(DialplanFiles, TellsWhetherANumberMayBeRouted) {
  const auto may_route = [this](const std::string& conditions, const std::string& number) {
    auto dialplan = LoadExtensions("<extension name='x'>" + conditions + "</extension>");
    EXPECT_TRUE(dialplan) << error_;
    return dialplan && dialplan->MayRoute("default", number);
  };
  const std::string number_is_1 = "<condition field='destination_number' expression='^1$'";
  const std::string unknown = "<condition field='caller_id_number' expression='^9$'";
  const std::string anti = "><anti-action application='answer'/></condition>";
  EXPECT_TRUE(may_route(number_is_1 + "/>", "1"));
  EXPECT_FALSE(may_route(number_is_1 + "/>", "2"));
  EXPECT_TRUE(may_route("<condition field='${destination_number}' expression='^2$'/>", "2"));
  EXPECT_TRUE(may_route("<condition/>", "2"));
  EXPECT_TRUE(may_route(unknown + "/>" + number_is_1 + "/>", "1"));
  EXPECT_FALSE(may_route(unknown + "/>" + number_is_1 + "/>", "2"));
  EXPECT_TRUE(may_route(unknown + " break='on-true'/>" + number_is_1 + "/>", "2"));
  EXPECT_TRUE(may_route(number_is_1 + " break='never'/><condition/>", "2"));
  EXPECT_FALSE(may_route(number_is_1 + "/><condition/>", "2"));
  EXPECT_TRUE(may_route(number_is_1 + anti, "2"));
  EXPECT_FALSE(may_route(number_is_1 + " break='never'/>", "2"));
}

/// What runs when two conditions hold or not: the first on the called number, "1..", the second on "..1".
class DialplanBreaks : public DialplanFiles {
 protected:
  std::string Actions(const std::string& attributes, const std::string& number) {
    auto dialplan = LoadExtensions(R"(<extension name="x"><condition field="destination_number" expression="^1" )" +
                                   attributes + R"(><action application="log" data="first"/>)" + anti_action_ +
                                   R"(</condition><condition field="destination_number" expression="1$">
                                      <action application="log" data="second"/></condition></extension>
                                      <extension name="rest"><condition><action application="log" data="rest"/>
                                      </condition></extension>)");
    EXPECT_TRUE(dialplan) << error_;
    std::string all;
    if (!dialplan) return all;
    for (const DialplanAction& action : Find(*dialplan, number).actions) all += action.data + " ";
    return all;
  }

  std::string anti_action_;
};

TEST_F(DialplanBreaks, OnFalseIsTheUsualWay) {
  for (const char* attributes : {"", "break='on-false'"}) {
    EXPECT_EQ(Actions(attributes, "101"), "first second ");
    EXPECT_EQ(Actions(attributes, "100"), "rest ");
    EXPECT_EQ(Actions(attributes, "201"), "rest ");
  }
}

TEST_F(DialplanBreaks, OnTrueMakesTheNextConditionAnAlternative) {
  EXPECT_EQ(Actions("break='on-true'", "101"), "first ");
  EXPECT_EQ(Actions("break='on-true'", "201"), "second ");
  EXPECT_EQ(Actions("break='on-true'", "200"), "rest ");
}

TEST_F(DialplanBreaks, NeverLooksOnEitherWay) {
  EXPECT_EQ(Actions("break='never'", "101"), "first second ");
  EXPECT_EQ(Actions("break='never'", "201"), "second ");
}

TEST_F(DialplanBreaks, AlwaysEndsEitherWay) {
  EXPECT_EQ(Actions("break='always'", "101"), "first ");
  EXPECT_EQ(Actions("break='always'", "201"), "rest ");
}

TEST_F(DialplanBreaks, AntiActionsRunWhenTheConditionDoesNotHold) {
  anti_action_ = R"(<anti-action application="log" data="not-$1-first"/>)";
  EXPECT_EQ(Actions("", "101"), "first second ");
  EXPECT_EQ(Actions("", "201"), "not--first ") << "the extension matches, and breaks off";
  EXPECT_EQ(Actions("break='never'", "201"), "not--first second ");
  EXPECT_EQ(Actions("break='on-true'", "200"), "rest ");
  EXPECT_EQ(Actions("break='always'", "201"), "not--first ");
}

TEST_F(DialplanFiles, MissingDirectoryIsNamed) {
  EXPECT_EQ(Dialplan::Load(directory_.Path() + "/none", error_), nullptr);
  EXPECT_EQ(error_, directory_.Path() + "/none: cannot be listed: No such file or directory");
}

TEST_F(DialplanFiles, VeryLongNumbersMatchNothing) {
  auto dialplan = LoadExtensions(
      R"(<extension name="x"><condition field="destination_number" expression="(a|b)*"><action application="answer"/>
         </condition></extension>)");
  ASSERT_TRUE(dialplan) << error_;
  EXPECT_TRUE(Find(*dialplan, std::string(100000, 'a')).actions.empty());
}

TEST(DialplanVariables, AreReplacedOnceOnly) {
  VariableLookup lookup = [](const std::string& name) {
    if (name == "a") return std::string("${b}");
    return name == "b" ? std::string("secret") : std::string();
  };
  EXPECT_EQ(ExpandChannelVariables("<${a}|${b}|${none}>", lookup), "<${b}|secret|>");
  EXPECT_EQ(ExpandChannelVariables("$ { ${b", lookup), "$ { ${b");
}

}  // namespace
}  // namespace kvx_switch
