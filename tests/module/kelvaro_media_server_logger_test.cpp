#include "kelvaro_media_server_logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "module/module_fixture.h"

namespace module_test {

namespace {

using kvx_media_server::get_thread_id;
using kvx_media_server::KvrMediaServerLogger;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

std::string tagged(const std::string& message) {
  return "thread-id=" + std::to_string(syscall(SYS_gettid)) + ": " + message + "\n";
}

LogLine line(switch_log_level_t level, const std::string& text) {
  return {level, text, "", "", 0, {}};
}

std::vector<LogLine> bridged(const test_support::LogCapture& log) {
  return log.LinesOf({"library.cpp"});
}

void log_at_every_level(const KvrMediaServerLogger& logger) {
  for (const kelvaro::LogLevel level :
       {kelvaro::TRACE_LOG_LEVEL, kelvaro::DEBUG_LOG_LEVEL, kelvaro::INFO_LOG_LEVEL, kelvaro::WARN_LOG_LEVEL,
        kelvaro::ERROR_LOG_LEVEL, kelvaro::FATAL_LOG_LEVEL, static_cast<kelvaro::LogLevel>(17)}) {
    logger.Log(level, "level " + std::to_string(level), "library.cpp", 7);
  }
}

}  // namespace

TEST(KvrMediaServerLogger, WithoutTraceDropsTraceRecordsAndKeepsDebugAtDebug) {
  test_support::LogCapture log;
  log_at_every_level(KvrMediaServerLogger(false));
  EXPECT_THAT(bridged(log),
              ElementsAre(line(SWITCH_LOG_DEBUG, tagged("level 1")), line(SWITCH_LOG_NOTICE, tagged("level 2")),
                          line(SWITCH_LOG_WARNING, tagged("level 3")), line(SWITCH_LOG_ERROR, tagged("level 4")),
                          line(SWITCH_LOG_CRIT, tagged("level 5")), line(SWITCH_LOG_CONSOLE, tagged("level 17"))));
}

TEST(KvrMediaServerLogger, WithTraceRaisesTraceAndDebugRecordsToInfo) {
  test_support::LogCapture log;
  log_at_every_level(KvrMediaServerLogger(true));
  EXPECT_THAT(bridged(log),
              ElementsAre(line(SWITCH_LOG_INFO, tagged("level 0")), line(SWITCH_LOG_INFO, tagged("level 1")),
                          line(SWITCH_LOG_NOTICE, tagged("level 2")), line(SWITCH_LOG_WARNING, tagged("level 3")),
                          line(SWITCH_LOG_ERROR, tagged("level 4")), line(SWITCH_LOG_CRIT, tagged("level 5")),
                          line(SWITCH_LOG_CONSOLE, tagged("level 17"))));
}

TEST(KvrMediaServerLogger, MapsLevelsByThemselves) {
  EXPECT_EQ(KvrMediaServerLogger(false).KvrToFSLogLevel(kelvaro::DEBUG_LOG_LEVEL), SWITCH_LOG_DEBUG);
  EXPECT_EQ(KvrMediaServerLogger(true).KvrToFSLogLevel(kelvaro::TRACE_LOG_LEVEL), SWITCH_LOG_INFO);
}

TEST(KvrMediaServerLogger, RecordCarriesThePlaceOfTheCallerAndTheFunctionLog) {
  test_support::LogCapture log;
  KvrMediaServerLogger(false).Log(kelvaro::ERROR_LOG_LEVEL, "x", "library.cpp", 4242);
  const std::vector<LogLine> lines = bridged(log);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].line, 4242u);
  EXPECT_EQ(lines[0].function, "Log");
  EXPECT_EQ(lines[0].channel, SWITCH_CHANNEL_ID_LOG);
}

TEST(KvrMediaServerLogger, IdStandsBeforeTheMessage) {
  test_support::LogCapture log;
  const KvrMediaServerLogger logger(false);
  const kelvaro::LoggingIdLogger& as_the_library_sees_it = logger;
  as_the_library_sees_it.LogWithId(kelvaro::WARN_LOG_LEVEL, "abc", "x", "library.cpp", 1);
  EXPECT_THAT(bridged(log), ElementsAre(line(SWITCH_LOG_WARNING, tagged("abc - x"))));
}

TEST(KvrMediaServerLogger, TraceRecordWithIdIsDroppedToo) {
  test_support::LogCapture log;
  KvrMediaServerLogger(false).LogWithId(kelvaro::TRACE_LOG_LEVEL, "abc", "x", "library.cpp", 1);
  EXPECT_THAT(bridged(log), IsEmpty());
}

TEST(KvrMediaServerLogger, MessageIsNoFormat) {
  test_support::LogCapture log;
  KvrMediaServerLogger(false).Log(kelvaro::ERROR_LOG_LEVEL, "100% of %s %n", "library.cpp", 1);
  EXPECT_THAT(bridged(log), ElementsAre(line(SWITCH_LOG_ERROR, tagged("100% of %s %n"))));
}

TEST(KvrMediaServerLogger, TagIsTheKernelIdOfTheThreadThatLogs) {
  test_support::LogCapture log;
  std::string expected;
  std::thread([&] {
    expected = tagged("from another thread");
    KvrMediaServerLogger(false).Log(kelvaro::ERROR_LOG_LEVEL, "from another thread", "library.cpp", 1);
    EXPECT_EQ(get_thread_id(), static_cast<uint32_t>(syscall(SYS_gettid)));
  }).join();
  EXPECT_NE(expected, tagged("from another thread"));
  EXPECT_THAT(bridged(log), ElementsAre(line(SWITCH_LOG_ERROR, expected)));
}

TEST(KvrMediaServerLogger, InitHasNothingToOpenAndSucceeds) {
  KvrMediaServerLogger logger(false);
  EXPECT_TRUE(logger.Init("jsr309", kelvaro::DEBUG_LOG_LEVEL));
  EXPECT_TRUE(logger.Init("jsr309", kelvaro::DEBUG_LOG_LEVEL, "/nowhere/at/all"));
}

TEST(KvrMediaServerLogger, ShortInitGoesThroughTheLongOneWithAnEmptyFile) {
  struct Spy : KvrMediaServerLogger {
    Spy() : KvrMediaServerLogger(false) {}
    using KvrMediaServerLogger::Init;
    bool Init(const char* name, kelvaro::LogLevel level, const char* file) override {
      seen = std::string(name) + "|" + std::to_string(level) + "|" + file;
      return false;
    }
    std::string seen;
  } spy;
  EXPECT_FALSE(spy.Init("jsr309", kelvaro::DEBUG_LOG_LEVEL));
  EXPECT_EQ(spy.seen, "jsr309|1|");
}

}  // namespace module_test
