#include "console/background_jobs.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>

#include "core_fixture.h"
#include "support/event_capture.h"

namespace kvx_switch {
namespace {

using test_support::CapturedEvent;
using test_support::EventCapture;

using BackgroundJobsTest = core_test::RunningCore;

TEST_F(BackgroundJobsTest, FiresWhatTheCommandWroteUnderTheJobsUuid) {
  EventCapture events(SWITCH_EVENT_BACKGROUND_JOB);
  BackgroundJobs jobs([](const std::string& command, const std::string& arguments) {
    return "did " + command + " with 100% of \"" + arguments + "\"\n";
  });
  EXPECT_TRUE(jobs.Start("job-1", {"originate", "a b"}));
  EXPECT_TRUE(jobs.Start("job-2", {"status", ""}));
  jobs.Stop();
  const auto fired = events.WaitFor(2);
  ASSERT_EQ(fired.size(), 2u);
  for (const CapturedEvent& event : fired) {
    const bool first = event.Header("Job-UUID") == "job-1";
    EXPECT_EQ(
        event.HeadersFrom("Job-UUID"),
        first ? (std::vector<std::pair<std::string, std::string>>{
                    {"Job-UUID", "job-1"}, {"Job-Command", "originate"}, {"Job-Command-Arg", "a b"}})
              : (std::vector<std::pair<std::string, std::string>>{{"Job-UUID", "job-2"}, {"Job-Command", "status"}}));
    EXPECT_EQ(event.body, first ? "did originate with 100% of \"a b\"\n" : "did status with 100% of \"\"\n");
  }
}

TEST_F(BackgroundJobsTest, FiresAnErrorForACommandThatThrowsOrWritesNothing) {
  EventCapture events(SWITCH_EVENT_BACKGROUND_JOB);
  BackgroundJobs jobs([](const std::string& command, const std::string&) -> std::string {
    if (command == "throw") throw std::runtime_error("no such tree");
    return "";
  });
  jobs.Start("job-1", {"throw", ""});
  ASSERT_EQ(events.WaitFor(1).size(), 1u);
  jobs.Start("job-2", {"quiet", ""});
  const auto fired = events.WaitFor(2);
  ASSERT_EQ(fired.size(), 2u);
  EXPECT_EQ(fired[0].body, "-ERR no such tree\n");
  EXPECT_EQ(fired[1].body, "-ERR no reply\n");
  EXPECT_TRUE(log().Has(test_support::error_line("Event socket: command \"throw\" failed: no such tree\n")));
}

TEST_F(BackgroundJobsTest, RunsJobsBesideEachOtherUpToALimitAndWaitsForThemAtTheEnd) {
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  EventCapture events(SWITCH_EVENT_BACKGROUND_JOB);
  BackgroundJobs jobs([released](const std::string&, const std::string&) {
    released.wait_for(std::chrono::seconds(30));
    return std::string("done\n");
  });
  for (size_t i = 0; i < BackgroundJobs::kMostAtOnce; ++i) {
    ASSERT_TRUE(jobs.Start("job-" + std::to_string(i), {"hold", ""})) << i;
  }
  EXPECT_FALSE(jobs.Start("one-too-many", {"hold", ""}));
  release.set_value();
  ASSERT_EQ(events.WaitFor(BackgroundJobs::kMostAtOnce).size(), BackgroundJobs::kMostAtOnce);
  jobs.Stop();
  EXPECT_EQ(events.All().size(), BackgroundJobs::kMostAtOnce);
  EXPECT_FALSE(jobs.Start("after the end", {"hold", ""}));
}

TEST_F(BackgroundJobsTest, MakesRoomForNewJobsWhenOthersAreDone) {
  EventCapture events(SWITCH_EVENT_BACKGROUND_JOB);
  BackgroundJobs jobs([](const std::string&, const std::string&) { return std::string("done\n"); });
  size_t started = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (started < 3 * BackgroundJobs::kMostAtOnce && std::chrono::steady_clock::now() < deadline) {
    if (jobs.Start("job", {"quick", ""})) ++started;
  }
  EXPECT_EQ(started, 3 * BackgroundJobs::kMostAtOnce);
  EXPECT_EQ(events.WaitFor(started).size(), started);
}

}  // namespace
}  // namespace kvx_switch
