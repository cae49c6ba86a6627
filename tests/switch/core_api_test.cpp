#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <switch.h>

#include "core/builtin_api.h"
#include "core_fixture.h"
#include "support/event_capture.h"

namespace {

using core_test::RunningCore;
using test_support::error_line;
using testing::ElementsAre;
using testing::IsEmpty;

class Commands : public RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    const char* error = nullptr;
    ASSERT_EQ(switch_loadable_module_load_module(nullptr, "mod_core_good", SWITCH_TRUE, &error), SWITCH_STATUS_SUCCESS)
        << error;
  }

  static std::string Line(const std::string& line, switch_status_t* status = nullptr) {
    switch_stream_handle_t stream;
    SWITCH_STANDARD_STREAM(stream);
    std::string copy = line;
    const switch_status_t result = switch_console_execute(copy.data(), 0, &stream);
    if (status) *status = result;
    std::string text = static_cast<const char*>(stream.data);
    free(stream.data);
    return text;
  }
};

TEST_F(Commands, RunWithTheirArgument) {
  switch_status_t status = SWITCH_STATUS_FALSE;
  EXPECT_EQ(Execute("core_echo", "a b", &status), "a b|no session\n");
  EXPECT_EQ(status, SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Execute("CORE_ECHO"), "(null)|no session\n");
}

TEST_F(Commands, UnknownOnesAreRefused) {
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  EXPECT_EQ(Execute("nonsense", "", &status), "INVALID COMMAND!\n");
  EXPECT_EQ(status, SWITCH_STATUS_FALSE);
}

TEST_F(Commands, AnExceptionIsAFailedCommand) {
  switch_status_t status = SWITCH_STATUS_SUCCESS;
  EXPECT_EQ(Execute("core_throw", "", &status), "-ERR the command failed\n");
  EXPECT_EQ(status, SWITCH_STATUS_GENERR);
  EXPECT_TRUE(log().Has(error_line("An exception left the command core_throw: a command's mistake\n")));
  EXPECT_EQ(Execute("core_throw_odd"), "-ERR the command failed\n");
  EXPECT_TRUE(log().Has(error_line("An exception left the command core_throw_odd: (of unknown type)\n")));
  EXPECT_EQ(Execute("core_echo", "fine"), "fine|no session\n");
}

TEST_F(Commands, FireAnEvent) {
  test_support::EventCapture capture(SWITCH_EVENT_API);
  Execute("core_echo", "some words");
  const auto events = capture.All();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_THAT(events[0].HeadersFrom("API-Command"), ElementsAre(std::make_pair("API-Command", "core_echo"),
                                                                std::make_pair("API-Command-Argument", "some words")));
}

TEST_F(Commands, ALineIsCommandAndArgument) {
  switch_status_t status = SWITCH_STATUS_FALSE;
  EXPECT_EQ(Line("  core_echo   a  b \r\n", &status), "a  b|no session\n");
  EXPECT_EQ(status, SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Line("core_echo"), "(null)|no session\n");
  EXPECT_EQ(Line("nonsense", &status), "INVALID COMMAND!\n");
  EXPECT_EQ(status, SWITCH_STATUS_FALSE);
  EXPECT_EQ(Line("   ", &status), "");
  EXPECT_EQ(status, SWITCH_STATUS_SUCCESS);
}

TEST_F(Commands, BuiltInOnesAreRegisteredOnce) {
  const auto hello = [](const char*, switch_core_session_t*, switch_stream_handle_t* stream) {
    stream->write_function(stream, "hello");
    return SWITCH_STATUS_SUCCESS;
  };
  EXPECT_EQ(kvx_switch::RegisterBuiltinApi("hello", "greet", hello, ""), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Execute("hello"), "hello");
  EXPECT_EQ(kvx_switch::RegisterBuiltinApi("HELLO", "greet", hello, ""), SWITCH_STATUS_FALSE);
  EXPECT_TRUE(log().Has(error_line("There is a command HELLO already\n")));
}

TEST(BuiltinCommands, NeedTheCore) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(kvx_switch::RegisterBuiltinApi("early", "", nullptr, ""), SWITCH_STATUS_FALSE);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("The command early comes before the core"));
}

TEST(Stream, GrowsAsNeeded) {
  switch_stream_handle_t stream;
  SWITCH_STANDARD_STREAM(stream);
  std::string expected;
  for (int i = 0; i < 10000; ++i) {
    EXPECT_EQ(stream.write_function(&stream, "%d,", i), SWITCH_STATUS_SUCCESS);
    expected += std::to_string(i) + ",";
  }
  uint8_t raw[] = {'a', 0, 'b'};
  EXPECT_EQ(stream.raw_write_function(&stream, raw, sizeof(raw)), SWITCH_STATUS_SUCCESS);
  expected.append("a\0b", 3);
  EXPECT_EQ(std::string(static_cast<char*>(stream.data), stream.data_len), expected);
  EXPECT_EQ(stream.end, static_cast<char*>(stream.data) + stream.data_len);
  free(stream.data);
}

class Completion : public Commands {
 protected:
  /// The lines that completing writes.
  static std::vector<std::string> Complete(const std::string& line, const std::string& word) {
    switch_stream_handle_t stream;
    SWITCH_STANDARD_STREAM(stream);
    switch_console_complete(line.c_str(), word.c_str(), nullptr, &stream, nullptr);
    std::vector<std::string> lines;
    std::string text = static_cast<const char*>(stream.data);
    free(stream.data);
    for (size_t at = 0; at < text.size();) {
      const size_t end = text.find('\n', at);
      lines.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    return lines;
  }
};

TEST_F(Completion, OffersCommandsForTheFirstWord) {
  EXPECT_THAT(Complete("core_", "core_"), ElementsAre("core_echo", "core_throw", "core_throw_odd"));
  EXPECT_THAT(Complete("core_t", "core_t"), ElementsAre("core_throw", "core_throw_odd", "write=6:core_throw"));
  EXPECT_THAT(Complete("core_e", "core_e"), ElementsAre("core_echo", "write=6:core_echo "));
  EXPECT_THAT(Complete("xyz", "xyz"), IsEmpty());
}

TEST_F(Completion, OffersRegisteredWords) {
  EXPECT_THAT(Complete("core_echo ", ""), ElementsAre("up", "down"));
  EXPECT_THAT(Complete("core_echo d", "d"), ElementsAre("down", "write=1:down "));
  EXPECT_THAT(Complete("core_echo up ", ""), IsEmpty());
}

TEST_F(Completion, AsksFunctions) {
  EXPECT_THAT(Complete("core_echo down ", ""), ElementsAre("first", "second"));
  EXPECT_THAT(Complete("core_echo down s", "s"), ElementsAre("second", "write=1:second "));
}

TEST_F(Completion, OffersLiteralChoices) {
  EXPECT_EQ(switch_console_set_complete("add kvrms_control service ::[up:down"), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(Complete("kvrms_control ", ""), ElementsAre("service", "write=0:service "));
  EXPECT_THAT(Complete("kvrms_control service ", ""), ElementsAre("up", "down"));
  EXPECT_THAT(Complete("KVRMS_CONTROL SERVICE D", "D"), ElementsAre("down", "write=1:down "));
  switch_console_set_complete("add kvrms_control service ::[up:down all");
  EXPECT_THAT(Complete("kvrms_control service up ", ""), ElementsAre("all", "write=0:all "));
  EXPECT_THAT(Complete("kvrms_control service sideways ", ""), IsEmpty());
}

TEST_F(Completion, DeletedWordsAreGone) {
  switch_console_set_complete("add a b c");
  switch_console_set_complete("add a b d");
  switch_console_set_complete("add a e");
  EXPECT_EQ(switch_console_set_complete("del a b"), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(Complete("a ", ""), ElementsAre("e", "write=0:e "));
  switch_console_set_complete("del *");
  EXPECT_THAT(Complete("a ", ""), IsEmpty());
  EXPECT_EQ(switch_console_set_complete("nonsense a"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_console_set_complete("add"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_console_set_complete(nullptr), SWITCH_STATUS_FALSE);
}

TEST_F(Completion, TheSameWordsAreOfferedOnce) {
  switch_console_set_complete("add a b c");
  switch_console_set_complete("add a b c");
  switch_console_set_complete("add a b d");
  EXPECT_THAT(Complete("a ", ""), ElementsAre("b", "write=0:b "));
}

TEST_F(Completion, FunctionsComeAndGo) {
  const auto function = [](const char*, const char*, switch_console_callback_match_t** matches) {
    switch_console_push_match(matches, "offered");
    return SWITCH_STATUS_SUCCESS;
  };
  switch_console_set_complete("add a ::mine");
  EXPECT_THAT(Complete("a ", ""), IsEmpty());
  EXPECT_EQ(switch_console_add_complete_func("::mine", function), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(Complete("a ", ""), ElementsAre("offered", "write=0:offered "));
  EXPECT_EQ(switch_console_del_complete_func("::mine"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_console_del_complete_func("::mine"), SWITCH_STATUS_FALSE);
  EXPECT_THAT(Complete("a ", ""), IsEmpty());
}

TEST_F(Completion, FillsAnXmlTreeToo) {
  std::string text = "<matches/>";
  switch_xml_t root = switch_xml_parse_str_dynamic(text.data(), SWITCH_TRUE);
  EXPECT_EQ(switch_console_complete("core_echo ", "", nullptr, nullptr, root), 2);
  switch_xml_t match = switch_xml_child(root, "match");
  EXPECT_STREQ(switch_xml_txt(match), "up");
  EXPECT_STREQ(switch_xml_txt(match->next), "down");
  switch_xml_free(root);
}

TEST_F(Completion, FindsTheLastWordItself) {
  EXPECT_EQ(switch_console_complete("core_echo d", nullptr, nullptr, nullptr, nullptr), 1);
}

}  // namespace
