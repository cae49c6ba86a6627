// The library's end when a worker of an embedded media server does not end.
#include "embedded/embedded_driver.h"
#include "embedded_fixture.h"
#include "support/process_inspection.h"
#include "support/stuck_clock.h"

using namespace kelvaro::jsr309;
using namespace test_support;

namespace {

class EmbeddedStop : public EmbeddedTest {
 protected:
  EmbeddedStop() {
    RegisterMediaServerDriver(kDriver, [clock = clock_] { return MakeEmbeddedDriver(clock); });
  }
  ~EmbeddedStop() override { UnregisterMediaServerDriver(kDriver); }

  static constexpr char kDriver[] = "embedded, stuck";
  const std::shared_ptr<StuckClock> clock_ = std::make_shared<StuckClock>();
};

TEST_F(EmbeddedStop, KeepsItsTimeWhenAWorkerIsStuckForGood) {
  const auto before = inspect_process(getpid());
  EmbeddedOptions options;
  options.driver = kDriver;
  options.threads = 1;
  options.request_timeout_ms = 300;
  options.heartbeat_ms = "60000";
  Start(options);
  {
    const auto session = NewSession();
    const Leg leg = NewLeg(session);
    clock_->SetStuck(true);
    ASSERT_TRUE(clock_->WaitForStuck(1));
    const auto begun = std::chrono::steady_clock::now();
    factory().Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(1300));
    EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL, "1 of its workers did not end within"));
    MediaConfig local;
    EXPECT_FALSE(leg.connection->GetLocalOffer(local));
    clock_->SetStuck(false);
    DestroyFactory();
  }
  // Nothing that was left to itself stays.
  std::string difference = "not compared";
  for (int i = 0; i < 500 && !difference.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    difference = describe_difference(before, inspect_process(getpid()));
  }
  EXPECT_EQ(difference, "");
}

}  // namespace
