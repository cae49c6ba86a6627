// Embedded media servers and rtpengine daemons in one configuration.
#include "rtpengine_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using test_support::RtpengineDaemon;

class MixedDrivers : public test_support::RtpengineTest {
 protected:
  ~MixedDrivers() override { DestroyFactory(); }  // before its daemon

  struct Call {
    SessionPtr session;
    Leg a, b;
    std::string Place() const { return a.local.GetIPAddress(); }
  };

  void StartBoth() {
    EmbeddedOptions options = At(daemon_);
    options.addresses = {"127.0.0.1", daemon_.Address()};
    options.drivers = {"embedded", "rtpengine"};
    options.extras = {"", options.extras.front()};
    Start(options);
  }
  Call NewCall() {
    const auto session = NewSession();
    return {session, NewLeg(session), NewLeg(session)};
  }

  RtpengineDaemon daemon_;
};

TEST_F(MixedDrivers, ShareTheCallsWhichGoTheirWayOnEach) {
  StartBoth();
  std::vector<Call> calls;
  for (int i = 0; i < 4; ++i) calls.push_back(NewCall());
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const Call& call = calls[i];
    EXPECT_EQ(call.Place(), i % 2 == 0 ? "127.0.0.1" : daemon_.Address());
    EXPECT_EQ(call.b.local.GetIPAddress(), call.Place());
    ASSERT_TRUE(Join(call.a, call.b));
    EXPECT_TRUE(Flows(call.a, call.b, 1));
    EXPECT_TRUE(Flows(call.b, call.a, 2));
  }
  EXPECT_EQ(CallsOn(daemon_), 4u);
  calls.clear();
  EXPECT_TRUE(Eventually([&] { return CallsOn(daemon_) == 0; }));
}

TEST_F(MixedDrivers, DoNotTakeOverEachOthersLegsWhoseCallsGoOn) {
  StartBoth();
  const Call here = NewCall(), there = NewCall();
  ASSERT_TRUE(Join(here.a, here.b));
  ASSERT_TRUE(Join(there.a, there.b));
  EXPECT_FALSE(Join(here.a, there.a));
  for (const auto& [session, leg] : {std::pair(here.session, there.a), std::pair(there.session, here.a)}) {
    EXPECT_EQ(session->ImportNetworkConnection(leg.connection), nullptr);
  }
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           ": it is on media server " + daemon_.Address() + ", whose driver is not that of 127.0.0.1"));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           ": it is on media server 127.0.0.1, whose driver is not that of " + daemon_.Address()));
  EXPECT_TRUE(Flows(here.a, here.b, 1));
  EXPECT_TRUE(Flows(there.a, there.b, 1));
}

}  // namespace
