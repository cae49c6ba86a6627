#include "rtpengine/ng_control.h"

#include "ng_control_fixture.h"

#include "rtpengine/ng_frame.h"

#include <atomic>
#include <map>
#include <set>
#include <thread>
#include <vector>

namespace kelvaro::jsr309::rtpengine {
namespace {

using test_support::kLongEnough;
using test_support::NgServer;
using test_support::wait_until;
using Answers = NgServer::Answers;

class NgControlStressTest : public test_support::NgControlTest {};

/// Leaves every third request without a reply, and gives the others theirs twice.
NgServer::Script Lossy() {
  return [](const NgFrame& request, int number) {
    if (number % 3 == 0) return Answers{};
    const std::string reply = FrameNg(request.cookie, {{"result", "ok"}});
    return Answers{reply, reply};
  };
}

TEST_F(NgControlStressTest, KeepsTheOrderOfEachCallOverANetworkThatLosesAndRepeats) {
  constexpr int kCalls = 12, kRequests = 3;
  Serve(Lossy());
  NgControl& control = Control();
  std::atomic<int> answered{0};
  std::vector<std::thread> legs;
  for (int call = 0; call < kCalls; ++call) {
    legs.emplace_back([&, call] {
      for (int i = 0; i < kRequests; ++i) {
        const Dictionary request{{"command", "offer"}, {"call-id", std::to_string(call)}, {"step", i}};
        const bool posted = control.Post(request, std::chrono::minutes(5), [&answered](const NgResult& result) {
          if (result.reply) ++answered;
        });
        EXPECT_TRUE(posted);
      }
    });
  }
  for (std::thread& leg : legs) leg.join();
  ASSERT_TRUE(wait_until(std::chrono::minutes(1), [&] { return answered == kCalls * kRequests; }));
  std::map<std::string, int64_t> last;
  for (const NgFrame& request : server_->Requests()) {
    int64_t& step = last[TextOf(request.message, "call-id")];
    EXPECT_GE(*NumberOf(request.message, "step"), step) << "a request was overtaken";
    step = *NumberOf(request.message, "step");
  }
  EXPECT_EQ(last.size(), static_cast<std::size_t>(kCalls));
}

TEST_F(NgControlStressTest, LosesNobodyWhenItIsStoppedUnderLoad) {
  constexpr int kAskers = 8;
  Serve(Lossy());
  NgControl& control = Control();
  std::atomic<int> posted{0}, told{0}, started{0};
  std::vector<std::thread> askers;
  for (int asker = 0; asker < kAskers; ++asker) {
    askers.emplace_back([&, asker] {
      const Dictionary request{{"command", "query"}, {"call-id", std::to_string(asker)}};
      const Dictionary farewell{{"command", "delete"}, {"call-id", "of " + std::to_string(asker)}};
      for (std::string error; error.find("stop") == std::string::npos; ++started) {
        if (control.Post(farewell, std::chrono::minutes(5), [&told](const NgResult&) { ++told; })) ++posted;
        control.Ask(request, milliseconds(1), error);
      }
    });
  }
  ASSERT_TRUE(wait_until(kLongEnough, [&] { return started > 20 * kAskers; }));
  control.Stop();
  for (std::thread& asker : askers) asker.join();
  EXPECT_EQ(told, posted);
  EXPECT_GT(posted, 0);
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
