// Several embedded media servers whose ports run out.
#include "embedded_fixture.h"

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;

class EmbeddedPlacement : public test_support::EmbeddedTest {};

TEST_F(EmbeddedPlacement, RefusesACallWhosePortsHaveRunOutAndServesTheNextOne) {
  EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  std::vector<SessionPtr> sessions;
  options.pairs = 2;
  Start(options);
  std::vector<Leg> legs;
  for (int i = 0; i < 4; ++i) {
    sessions.push_back(NewSession());
    legs.push_back(NewLeg(sessions.back()));
  }
  const auto refused = NewSession();
  const ConnectionPtr connection = NewConnection(refused);
  MediaConfig local;
  AddCodec(local);
  EXPECT_FALSE(connection->GetLocalOffer(local));
  for (Leg& leg : legs) leg.connection->Close();
  EXPECT_TRUE(connection->GetLocalOffer(local));
  legs.clear();
  for (int i = 0; i < 3; ++i) {
    sessions.push_back(NewSession());
    EXPECT_THAT(NewLeg(sessions.back()).local.GetIPAddress(), testing::StartsWith("127.0.0."));
  }
}

}  // namespace
