// Calls through the whole control library on embedded media servers, with real packets.
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;

class EmbeddedCall : public test_support::EmbeddedTest {};

TEST_F(EmbeddedCall, CarriesBothDirectionsOfAnOfferedAndAnAnsweredLeg) {
  Start();
  const auto session = NewSession();
  ASSERT_TRUE(session);
  Leg a;
  a.connection = NewConnection(session);
  ASSERT_TRUE(a.connection->SetRemoteOffer(RemoteOf(a)));
  AddCodec(a.local);
  ASSERT_TRUE(a.connection->GetLocalAnswer(a.local));
  const Leg b = NewLeg(session);
  ASSERT_TRUE(Join(a, b));
  for (std::uint16_t number = 1; number <= 50; ++number) {
    EXPECT_TRUE(Flows(a, b, number)) << number;
    EXPECT_TRUE(Flows(b, a, static_cast<std::uint16_t>(1000 + number))) << number;
  }
  EXPECT_TRUE(logger().Messages(kelvaro::ERROR_LOG_LEVEL).empty());
}

}  // namespace
