// Embedded media servers that stop serving: what can be done meanwhile. Who is told: contract_loss_test.cpp.
#include "embedded/embedded_server.h"
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using std::chrono::milliseconds;
using test_support::EmbeddedOptions;

class EmbeddedLoss : public test_support::EmbeddedTest {
 protected:
  template <typename Condition>
  static bool Eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + test_support::kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
  }
};

TEST_F(EmbeddedLoss, HoldsUpNoCallForLongerThanARequestMayTakeAndNoDestructorAtAll) {
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  options.pairs = 32;
  options.heartbeat_ms = "600000";  // not noticed
  options.threads = 1;
  options.request_timeout_ms = 1000;
  Start(options);
  auto here = NewSession();
  const auto there = NewSession();
  Leg a = NewLeg(here), b = NewLeg(here);
  ASSERT_TRUE(StallEmbeddedServer(a.local.GetIPAddress(), 0, true));
  const auto took = [](auto action) {
    const auto begun = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - begun;
  };
  MediaConfig local;
  AddCodec(local);
  constexpr milliseconds kLong{3000}, kAtOnce{900};
  EXPECT_LT(took([&] { EXPECT_FALSE(a.connection->GetLocalOffer(local)); }), kLong);
  EXPECT_LT(took([&] { EXPECT_FALSE(Join(a, b)); }), kLong);
  ConnectionPtr imported;
  EXPECT_LT(took([&] { imported.reset(there->ImportNetworkConnection(a.connection)); }), kAtOnce);
  EXPECT_LT(took([&] { a.connection.reset(), imported.reset(), b.connection.reset(), here.reset(); }), kAtOnce);
  ASSERT_TRUE(StallEmbeddedServer("127.0.0.1", 0, false));
  for (const Leg* leg : {&a, &b}) {
    EXPECT_TRUE(Eventually([&] { return test_support::udp_port_is_free(leg->local.GetRtpPort()); }));
  }
}

}  // namespace
