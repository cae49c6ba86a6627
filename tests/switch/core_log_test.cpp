#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include "core/log.h"
#include "core/session.h"
#include "core_fixture.h"

namespace {

using core_test::RunningCore;
using test_support::debug_line;
using test_support::error_line;
using test_support::info_line;
using test_support::warning_line;
using testing::ElementsAre;
using testing::MatchesRegex;

/// A sink of the test's own, which keeps whole lines.
class Sink {
 public:
  struct Line {
    std::string data, content, userdata, file, function;
    uint32_t number;
    switch_text_channel_t channel;
    switch_time_t when;
    int64_t sequence;
  };

  explicit Sink(switch_log_level_t level = SWITCH_LOG_DEBUG) {
    kvx_switch::FlushLog();  // what was logged before is not ours
    Lines().clear();
    switch_log_bind_logger(Receive, level, SWITCH_FALSE);
  }
  ~Sink() { switch_log_unbind_logger(Receive); }

  static std::vector<Line> Get() {
    kvx_switch::FlushLog();
    std::lock_guard<std::mutex> lock(Mutex());
    return Lines();
  }
  static std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const Line& line : Get()) texts.push_back(line.content);
    return texts;
  }

 private:
  static switch_status_t Receive(const switch_log_node_t* node, switch_log_level_t) {
    std::lock_guard<std::mutex> lock(Mutex());
    Lines().push_back({node->data, node->content, switch_str_nil(node->userdata), node->file, node->func, node->line,
                       node->channel, node->timestamp, node->sequence});
    return SWITCH_STATUS_SUCCESS;
  }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  static std::vector<Line>& Lines() {
    static std::vector<Line> lines;
    return lines;
  }
};

using Log = RunningCore;

TEST(LogLevels, HaveNamesAndNumbers) {
  const char* const names[] = {"CONSOLE", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO", "DEBUG"};
  for (int level = 0; level < 8; ++level) {
    EXPECT_STREQ(switch_log_level2str(static_cast<switch_log_level_t>(level)), names[level]);
    EXPECT_EQ(switch_log_str2level(names[level]), level);
    EXPECT_EQ(switch_log_str2level(std::to_string(level).c_str()), level);
  }
  EXPECT_EQ(switch_log_str2level("warning"), SWITCH_LOG_WARNING);
  EXPECT_EQ(switch_log_str2level("error"), SWITCH_LOG_ERROR);
  EXPECT_EQ(switch_log_str2level("99"), SWITCH_LOG_DEBUG);
  EXPECT_EQ(switch_log_str2level("loud"), SWITCH_LOG_INVALID);
  EXPECT_EQ(switch_log_str2level("-1"), SWITCH_LOG_INVALID);
  EXPECT_EQ(switch_log_str2level(""), SWITCH_LOG_INVALID);
  EXPECT_EQ(switch_log_str2level(nullptr), SWITCH_LOG_INVALID);
}

TEST_F(Log, PrefixesTimeLevelAndSource) {
  Sink sink;
  const switch_time_t before = switch_time_now();
  switch_log_printf(SWITCH_CHANNEL_ID_LOG, "/some/where/file.cpp", "function", 42, nullptr, SWITCH_LOG_ERROR, "%s %d\n",
                    "text", 1);
  const auto lines = Sink::Get();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0].data, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} \\[ERR\\] "
                                          "file\\.cpp:42 text 1\n"));
  EXPECT_EQ(lines[0].content, "text 1\n");
  EXPECT_EQ(lines[0].file, "file.cpp");
  EXPECT_EQ(lines[0].function, "function");
  EXPECT_EQ(lines[0].number, 42u);
  EXPECT_EQ(lines[0].userdata, "");
  EXPECT_GE(lines[0].when, before);
}

TEST_F(Log, PrefixesTheLegsUuid) {
  switch_core_session_t* session = kvx_switch::RequestSession(SWITCH_CALL_DIRECTION_INBOUND, "test/leg");
  const std::string uuid = switch_core_session_get_uuid(session);
  Sink sink;
  switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session), SWITCH_LOG_INFO, "by session\n");
  switch_log_printf(SWITCH_CHANNEL_UUID_LOG("some-uuid"), SWITCH_LOG_INFO, "by uuid\n");
  const auto lines = Sink::Get();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].userdata, uuid);
  EXPECT_THAT(lines[0].data, testing::EndsWith(" " + uuid + " by session\n"));
  EXPECT_EQ(lines[1].userdata, "some-uuid");
  switch_core_session_destroy(&session);
}

TEST_F(Log, CleanLinesHaveNoPrefix) {
  Sink sink;
  switch_log_printf(SWITCH_CHANNEL_LOG_CLEAN, SWITCH_LOG_INFO, "as it is\n");
  const auto lines = Sink::Get();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].data, "as it is\n");
  EXPECT_EQ(lines[0].channel, SWITCH_CHANNEL_ID_LOG_CLEAN);
}

TEST_F(Log, AddsNoLineEndAndKeepsLongText) {
  Sink sink;
  const std::string longer(5000, 'x');
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "no end");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "%s", longer.c_str());
  EXPECT_THAT(Sink::Texts(), ElementsAre("no end", longer));
}

TEST_F(Log, KeepsTheOrderAndCounts) {
  Sink sink;
  for (int i = 0; i < 1000; ++i) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "%d", i);
  const auto lines = Sink::Get();
  ASSERT_EQ(lines.size(), 1000u);
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].content, std::to_string(i));
    EXPECT_EQ(lines[i].sequence, lines[0].sequence + static_cast<int64_t>(i));
  }
}

TEST_F(Log, SinkGetsItsLevelAndWhatIsMoreUrgent) {
  Sink sink(SWITCH_LOG_WARNING);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "notice");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "warning");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "crit");
  EXPECT_THAT(Sink::Texts(), ElementsAre("warning", "crit"));
}

TEST_F(Log, DropsFineLevelsUnlessTheDebugLevelReachesThem) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG1, "one at 0");
  kvx_switch::SetDebugLevel(3);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG3, "three at 3");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG4, "four at 3");
  kvx_switch::SetDebugLevel(10);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG10, "ten at 10");
  EXPECT_THAT(log().LinesOf({"core_log_test.cpp"}), ElementsAre(debug_line("three at 3"), debug_line("ten at 10")));
}

TEST_F(Log, TheCommonLevelHoldsForAllSinks) {
  int32_t level = SWITCH_LOG_ERROR;
  EXPECT_EQ(switch_core_session_ctl(SCSC_LOGLEVEL, &level), SWITCH_LOG_ERROR);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "warning");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "error");
  level = -1;
  switch_core_session_ctl(SCSC_LOGLEVEL, &level);
  EXPECT_EQ(level, SWITCH_LOG_ERROR) << "a negative value only asks";
  EXPECT_THAT(log().LinesOf({"core_log_test.cpp"}), ElementsAre(error_line("error")));
}

TEST_F(Log, InvalidLevelsGoNowhere) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INVALID, "invalid");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DISABLE, "disabled");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "valid");
  EXPECT_THAT(log().LinesOf({"core_log_test.cpp"}), ElementsAre(info_line("valid")));
}

TEST_F(Log, AnExceptionInASinkHurtsNobody) {
  const auto thrower = [](const switch_log_node_t*, switch_log_level_t) -> switch_status_t {
    throw std::runtime_error("sink");
  };
  switch_log_bind_logger(thrower, SWITCH_LOG_WARNING, SWITCH_FALSE);
  Sink sink;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "still here");
  EXPECT_THAT(Sink::Texts(), ElementsAre("still here"));
  EXPECT_EQ(switch_log_unbind_logger(thrower), SWITCH_STATUS_SUCCESS);
}

TEST_F(Log, ASinkMayLogItself) {
  static std::atomic<bool> done;
  done = false;
  const auto chatty = [](const switch_log_node_t*, switch_log_level_t) {
    if (!done.exchange(true)) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "from the sink");
    return SWITCH_STATUS_SUCCESS;
  };
  switch_log_bind_logger(chatty, SWITCH_LOG_WARNING, SWITCH_FALSE);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "to the sink");
  kvx_switch::FlushLog();
  EXPECT_THAT(log().LinesOf({"core_log_test.cpp"}),
              ElementsAre(warning_line("to the sink"), warning_line("from the sink")));
  switch_log_unbind_logger(chatty);
}

/// A sink that holds the log's thread until it is let go.
struct Gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool inside = false;
  bool open = false;
};

Gate& gate() {
  static Gate the_gate;
  return the_gate;
}

switch_status_t stop_at_gate(const switch_log_node_t* node, switch_log_level_t) {
  if (std::string(node->content) != "stop") return SWITCH_STATUS_SUCCESS;
  std::unique_lock<std::mutex> lock(gate().mutex);
  gate().inside = true;
  gate().changed.notify_all();
  gate().changed.wait(lock, [] { return gate().open; });
  return SWITCH_STATUS_SUCCESS;
}

void hold_log() {
  kvx_switch::FlushLog();
  gate().inside = gate().open = false;
  switch_log_bind_logger(stop_at_gate, SWITCH_LOG_DEBUG, SWITCH_FALSE);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "stop");
  std::unique_lock<std::mutex> lock(gate().mutex);
  gate().changed.wait(lock, [] { return gate().inside; });
}

void release_log() {
  std::lock_guard<std::mutex> lock(gate().mutex);
  gate().open = true;
  gate().changed.notify_all();
}

TEST_F(Log, ASlowSinkHoldsNoCallerUpAndTextIsCopied) {
  Sink sink;
  hold_log();
  char text[] = "before";
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "%s", text);
  memcpy(text, "after!", 6);
  release_log();
  EXPECT_THAT(Sink::Texts(), ElementsAre("stop", "before"));
  switch_log_unbind_logger(stop_at_gate);
}

TEST_F(Log, UnbindWaitsForTheCallThatRuns) {
  hold_log();
  std::atomic<bool> unbound{false};
  std::thread unbinder([&] {
    switch_log_unbind_logger(stop_at_gate);
    unbound = true;
  });
  switch_sleep(20000);
  EXPECT_FALSE(unbound);
  release_log();
  unbinder.join();
  EXPECT_EQ(switch_log_unbind_logger(stop_at_gate), SWITCH_STATUS_NOTFOUND);
}

TEST_F(Log, WhatNoSinkTakesInTimeIsCountedNotKept) {
  Sink sink;
  hold_log();
  constexpr int kMany = 70000;
  for (int i = 0; i < kMany; ++i) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "x");
  release_log();
  kvx_switch::FlushLog();
  const auto texts = Sink::Texts();
  ASSERT_EQ(texts.size(), 65536u + 2);
  EXPECT_EQ(texts.back(), "4464 log lines were dropped: the sinks are too slow\n");
  switch_log_unbind_logger(stop_at_gate);
}

/// Logs as many lines again as the log keeps, at the first line of an overload.
switch_status_t log_more(const switch_log_node_t* node, switch_log_level_t) {
  static constexpr int kMore = 70000;
  if (std::string(node->content) != "first") return SWITCH_STATUS_SUCCESS;
  for (int i = 0; i < kMore; ++i) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "x");
  return SWITCH_STATUS_SUCCESS;
}

TEST_F(Log, EveryLineOfALongOverloadIsWrittenOrCounted) {
  Sink sink;
  switch_log_bind_logger(log_more, SWITCH_LOG_DEBUG, SWITCH_FALSE);
  hold_log();
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "first");
  constexpr int kMany = 70000;
  for (int i = 0; i < kMany; ++i) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "x");
  release_log();
  uint64_t written = 0, dropped = 0;
  for (int i = 0; i < 3; ++i) kvx_switch::FlushLog();  // what is told of dropped lines is a line, too
  for (const std::string& text : Sink::Texts()) {
    if (text == "x") ++written;
    if (text.find(" log lines were dropped") != std::string::npos) dropped += std::stoull(text);
  }
  EXPECT_EQ(written + dropped, 2u * kMany);
  EXPECT_GT(dropped, 0u);
  switch_log_unbind_logger(stop_at_gate);
  switch_log_unbind_logger(log_more);
}

TEST(LogConsole, AddsTheLineEndThatIsMissing) {
  switch_log_node_t node{};
  char with[] = "with\n";
  char without[] = "without";
  testing::internal::CaptureStdout();
  node.data = node.content = with;
  kvx_switch::LogToConsole(&node, SWITCH_LOG_INFO);
  node.data = node.content = without;
  kvx_switch::LogToConsole(&node, SWITCH_LOG_INFO);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "with\nwithout\n");
}

TEST(LogConsole, PrintsUpToItsOwnLevel) {
  switch_log_node_t node{};
  char text[] = "text\n";
  node.data = node.content = text;
  kvx_switch::SetConsoleLogLevel(SWITCH_LOG_NOTICE);
  testing::internal::CaptureStdout();
  kvx_switch::LogToConsole(&node, SWITCH_LOG_INFO);
  kvx_switch::LogToConsole(&node, SWITCH_LOG_NOTICE);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "text\n");
  kvx_switch::SetConsoleLogLevel(SWITCH_LOG_DEBUG);
}

TEST(LogWithoutCore, GoesToStandardErrorAtOnce) {
  testing::internal::CaptureStderr();
  switch_log_printf(SWITCH_CHANNEL_LOG_CLEAN, SWITCH_LOG_ERROR, "early\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "early\n");
}

}  // namespace
