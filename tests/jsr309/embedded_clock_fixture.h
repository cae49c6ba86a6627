/// Embedded media servers whose time is the test's own: silences and ports at rest need no waiting.
#pragma once

#include "embedded/embedded_driver.h"
#include "embedded_fixture.h"

#include <atomic>
#include <chrono>
#include <memory>

namespace test_support {

/// Threads: from any thread.
class ManualEngineClock : public media_engine::Clock {
 public:
  media_engine::TimePoint Now() const noexcept override {
    return media_engine::TimePoint(std::chrono::nanoseconds(nanoseconds_.load()));
  }
  void Advance(std::chrono::nanoseconds by) { nanoseconds_ += by.count(); }

 private:
  std::atomic<std::int64_t> nanoseconds_{1'000'000'000'000};
};

class EmbeddedClockTest : public EmbeddedTest {
 protected:
  EmbeddedClockTest() {
    const bool registered = kelvaro::jsr309::RegisterMediaServerDriver(
        kDriver, [clock = clock_] { return kelvaro::jsr309::MakeEmbeddedDriver(clock); });
    if (!registered) throw std::runtime_error("the driver's name is taken");
  }
  ~EmbeddedClockTest() override { kelvaro::jsr309::UnregisterMediaServerDriver(kDriver); }

  /// One worker, so that a request tells where all of them are.
  static EmbeddedOptions ByTheClock() {
    EmbeddedOptions options;
    options.driver = kDriver;
    options.threads = 1;
    return options;
  }

  /// What was sent before has come, then time passes, and the worker has looked at its timers with the new time.
  void Pass(std::chrono::milliseconds time, const Leg& any) {
    Ask(any);
    clock_->Advance(time);
    // One request may be served in a turn that began before, the next one's turn ends before that of the third begins.
    for (int i = 0; i < 3; ++i) Ask(any);
  }

 private:
  static void Ask(const Leg& any) {
    std::vector<kelvaro::jsr309::RtcpStatsReport> reports;
    EXPECT_TRUE(any.connection->GetRtcpStatsReport(reports));
  }

  static constexpr char kDriver[] = "embedded by the clock";
  const std::shared_ptr<ManualEngineClock> clock_ = std::make_shared<ManualEngineClock>();
};

}  // namespace test_support
