// How long a request may take that asks the worker more than once.
#include <future>

#include "engine_fixture.h"
#include "support/stuck_clock.h"

namespace media_engine_test {
namespace {

/// Workers get stuck, from when it is armed, once the test's thread asks for the time: in the midst of a request, when
/// it looks for ports.
class RelapsingClock : public Clock {
 public:
  TimePoint Now() const noexcept override {
    if (armed_ && std::this_thread::get_id() == test_) {
      workers_->SetStuck(true);
      workers_->WaitForStuck(1);
    }
    return workers_->Now();
  }
  void Arm() { armed_ = true; }
  test_support::StuckClock& workers() { return *workers_; }

 private:
  const std::thread::id test_ = std::this_thread::get_id();
  const std::shared_ptr<test_support::StuckClock> workers_ = std::make_shared<test_support::StuckClock>();
  std::atomic<bool> armed_{false};
};

class RequestLimit : public EngineTest {
 protected:
  std::shared_ptr<RelapsingClock> time_ = std::make_shared<RelapsingClock>();
  Engine relapsing_{time_};
};

TEST_F(RequestLimit, IsOneForBothQuestionsThatTheImageStreamTakes) {
  ServerConfig config = Config();
  config.threads = 1;
  config.heartbeat = seconds{60};
  config.port_quarantine = milliseconds{60000};
  Outcome outcome;
  const auto server = relapsing_.OpenServer(config, nullptr, outcome);
  ASSERT_TRUE(server) << outcome.reason;
  const auto session = NewSession(*server);
  // Ports at rest, so that the clock is asked when others are looked for.
  ASSERT_TRUE(NewCallLeg(*session).endpoint->Close(kLimit).ok);
  const Leg leg = NewLeg(*session);
  RemoteDescription image = leg.far_end->Description(Pcmu());
  image.udp_pass_through = image.answer_follows = true;
  ASSERT_TRUE(leg.endpoint->DescribeRemote(image, kLimit).ok);

  time_->Arm();
  time_->workers().SetStuck(true);
  ASSERT_TRUE(time_->workers().WaitForStuck(1));
  const auto begun = std::chrono::steady_clock::now();
  const auto released = std::async(std::launch::async, [&] {
    std::this_thread::sleep_until(begun + milliseconds{700});  // requests wait in real time
    time_->workers().SetStuck(false);
  });
  std::optional<ImageDescription> read;
  EXPECT_EQ(leg.endpoint->ReadLocalImage(read, milliseconds{1000}).reason,
            "the media server did not answer within 1000 ms");
  const auto taken = std::chrono::steady_clock::now() - begun;
  EXPECT_GE(taken, milliseconds{999});
  EXPECT_LT(taken, milliseconds{1500});
  EXPECT_FALSE(read);
  time_->workers().SetStuck(false);
}

}  // namespace
}  // namespace media_engine_test
