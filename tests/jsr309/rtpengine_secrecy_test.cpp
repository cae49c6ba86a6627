// SRTP keys on their way to a daemon and back.
#include "rtpengine/base64_text.h"
#include "rtpengine_fixture.h"
#include "support/hidden_key.h"

#include <string.h>

#include <array>

namespace {

using namespace kelvaro::jsr309;
using test_support::HiddenKey;
using test_support::RtpengineDaemon;

class RtpengineSecrecy : public test_support::RtpengineTest {
 protected:
  ~RtpengineSecrecy() override { DestroyFactory(); }  // before its daemon

  static void SetKey(MediaConfig& config, const HiddenKey& key) {
    std::array<std::uint8_t, HiddenKey::kLength> octets;
    for (std::size_t i = 0; i < octets.size(); ++i) octets[i] = key[i];
    config.SetCrypto("AES_CM_128_HMAC_SHA1_80", octets.data(), static_cast<int>(octets.size()), 0, nullptr);
    explicit_bzero(octets.data(), octets.size());
  }
  /// A leg under those keys, described, joined with another, described anew, and closed.
  void Use(const SessionPtr& session, const HiddenKey& ours, const HiddenKey& theirs) {
    const Leg other = NewLeg(session);
    Leg leg;
    leg.connection = NewConnection(session);
    MediaConfig remote = RemoteOf(leg);
    AddCodec(leg.local);
    SetKey(leg.local, ours);
    SetKey(remote, theirs);
    ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local));
    ASSERT_TRUE(leg.connection->SetRemoteAnswer(remote));
    ASSERT_TRUE(Join(leg, other));
    ASSERT_TRUE(leg.connection->SetRemoteOffer(remote));
    EXPECT_GE(ours.CopiesInMemory(), 1u);
    EXPECT_GE(theirs.CopiesInMemory(), 1u);
    leg.connection->Close();
    other.connection->Close();
  }

  RtpengineDaemon daemon_;
};

TEST_F(RtpengineSecrecy, NoKeyStaysInMemoryInEitherFormWhenTheConnectionIsClosed) {
  Start(At(daemon_));
  const auto session = NewSession();
  const HiddenKey ours, theirs;
  {
    SecretBytes octets;
    for (std::size_t i = 0; i < HiddenKey::kLength; ++i) octets.push_back(ours[i]);
    const auto text = rtpengine::ToBase64(octets);
    EXPECT_EQ(ours.Base64CopiesInMemory(), 1u) << "it would be seen";
  }
  EXPECT_EQ(ours.Base64CopiesInMemory(), 0u);
  Use(session, ours, theirs);
  for (const HiddenKey* key : {&ours, &theirs}) {
    EXPECT_TRUE(Eventually([&] { return key->Base64CopiesInMemory() == 0; })) << key->Base64CopiesInMemory();
    std::size_t copies = key->CopiesInMemory();
    // Registers of a sanitizer's runtime on stacks, see there; the next call's work goes over that.
    for (int call = 0; copies != 0 && call < 3; ++call) {
      Use(session, HiddenKey(), HiddenKey());
      copies = key->CopiesInMemory();
    }
    EXPECT_EQ(copies, 0u);
  }
}

}  // namespace
