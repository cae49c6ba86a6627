// The lent logger, and giving it back.
#include "kelvaro/logger.h"

#include "kelvaro/jsr309/guarded_logger.h"
#include "support/jsr309_recording_logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>

using namespace kelvaro;
using kelvaro::jsr309::GuardedLogger;
using test_support::RecordingLogger;
using ::testing::ElementsAre;

namespace {

TEST(LoggingIdLogger, PutsTheIdBeforeTheMessage) {
  const RecordingLogger logger;
  logger.LogWithId(INFO_LOG_LEVEL, "abc", "x", "file", 1);
  logger.LogWithId(INFO_LOG_LEVEL, nullptr, "y", "file", 1);
  EXPECT_THAT(logger.Messages(INFO_LOG_LEVEL), ElementsAre("abc - x", "y"));
}

TEST(LogLevel, IsOrderedFromTraceToFatal) {
  EXPECT_EQ(TRACE_LOG_LEVEL, 0);
  EXPECT_EQ(DEBUG_LOG_LEVEL, 1);
  EXPECT_EQ(INFO_LOG_LEVEL, 2);
  EXPECT_EQ(WARN_LOG_LEVEL, 3);
  EXPECT_EQ(ERROR_LOG_LEVEL, 4);
  EXPECT_EQ(FATAL_LOG_LEVEL, 5);
}

TEST(GuardedLogger, PassesRecordsOnUntilDetached) {
  const RecordingLogger logger;
  GuardedLogger guarded(&logger);
  KELVARO_LOG(guarded, WARN_LOG_LEVEL, "", "one");
  KELVARO_LOG(guarded, WARN_LOG_LEVEL, "leg", "two");
  guarded.Detach();
  KELVARO_LOG(guarded, WARN_LOG_LEVEL, "", "three");
  EXPECT_THAT(logger.Messages(WARN_LOG_LEVEL), ElementsAre("one", "leg - two"));
}

TEST(GuardedLogger, DropsRecordsWithoutALogger) {
  GuardedLogger guarded(nullptr);
  KELVARO_LOG(guarded, WARN_LOG_LEVEL, "", "one");
  guarded.Detach();
}

// Stays in Log until it is told to go on.
class SlowLogger : public RecordingLogger {
 public:
  void Log(LogLevel level, std::string message, const char* file, uint32_t line) const override {
    entered.set_value();
    go_on.get_future().wait();
    RecordingLogger::Log(level, std::move(message), file, line);
  }
  mutable std::promise<void> entered, go_on;
};

TEST(GuardedLogger, IsDetachedOnlyWhenNobodyIsInTheLoggerAnyMore) {
  const SlowLogger logger;
  GuardedLogger guarded(&logger);
  auto writing = std::async(std::launch::async, [&] { KELVARO_LOG(guarded, INFO_LOG_LEVEL, "", "one"); });
  logger.entered.get_future().wait();
  auto detaching = std::async(std::launch::async, [&] {
    guarded.Detach();
    return logger.Count();
  });
  EXPECT_EQ(detaching.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  logger.go_on.set_value();
  EXPECT_EQ(detaching.get(), 1u);
  writing.get();
}

TEST(GuardedLogger, SurvivesALoggerThatThrows) {
  class ThrowingLogger : public RecordingLogger {
    void Log(LogLevel, std::string, const char*, uint32_t) const override { throw std::runtime_error("disk full"); }
  };
  const ThrowingLogger logger;
  GuardedLogger guarded(&logger);
  EXPECT_NO_THROW(KELVARO_LOG(guarded, INFO_LOG_LEVEL, "", "one"));
  guarded.Detach();
}

}  // namespace
