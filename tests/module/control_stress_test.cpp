// An operator ends everything while calls come and go: legs are set up, bridged and torn down on their own threads, and
// each of these finds its entries there or gone at any moment.

#include <atomic>
#include <thread>

#include "commands.h"
#include "module/media_callbacks_fixture.h"

namespace module_test {

namespace {

constexpr int kCallsAtOnce = 100;
constexpr int kCallsEach = 3;
constexpr int kMostCalls = 1000;  // should the operator's thread not get to run

/// One call from beginning to end; what is refused because the operator was faster is part of the game. True when the
/// legs were bridged.
bool place_call() {
  bool bridged = false;
  MediaLeg caller;
  if (caller.Create() == SWITCH_STATUS_SUCCESS) {
    MediaLeg called(SWITCH_CALL_DIRECTION_OUTBOUND);
    called.BondWith(caller);
    LocalMedia media;
    if (called.Create() == SWITCH_STATUS_SUCCESS) {
      called.GetMedia(media);
      RemoteMedia answer;
      answer.state = SWITCH_SDP_ANSWER_RECEIVED;
      called.SetMedia(answer);
      bridged = caller.Bridge() == SWITCH_STATUS_SUCCESS;
      caller.Unbridge();
    }
    called.Destroy();
  }
  caller.Destroy();
  return bridged;
}

std::string terminate_all() {
  CommandOutput output;
  kvrms_control_function("session term all", nullptr, output.Stream());
  return output.Text();
}

test_support::ScriptedOptions room_for_all() {
  test_support::ScriptedOptions options;
  options.servers = 2;
  options.capacity = kCallsAtOnce;
  return options;
}

}  // namespace

class ControlStress : public MediaCallbacks {
 protected:
  ControlStress() : MediaCallbacks(room_for_all()) {}
};

TEST_F(ControlStress, SessionTermAllWhileAHundredCallsAreSetUpBridgedAndTornDownLeavesNothing) {
  std::atomic<int> busy{kCallsAtOnce};
  std::atomic<int> hung_up{0};
  std::atomic<int> bridged{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kCallsAtOnce; ++i) {
    threads.emplace_back([&] {
      for (int call = 0; call < kCallsEach || ((hung_up == 0 || bridged == 0) && call < kMostCalls); ++call) {
        if (place_call()) ++bridged;
      }
      --busy;
    });
  }
  while (busy > 0) {
    if (!terminate_all().empty()) ++hung_up;
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(hung_up, 0);
  EXPECT_GT(bridged, 0);
  terminate_all();
  EXPECT_EQ(MediaSessions(), 0u);
  EXPECT_EQ(servers_.OpenSessions(), 0u);
  EXPECT_THAT(servers_.OpenEndpoints(), testing::IsEmpty());
}

}  // namespace module_test
