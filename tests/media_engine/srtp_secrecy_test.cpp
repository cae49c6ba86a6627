// Keys are in memory for as long as they are needed.
#include "srtp_fixture.h"
#include "support/hidden_key.h"

namespace media_engine_test {
namespace {

using test_support::HiddenKey;

CryptoSettings SettingsWith(const HiddenKey& key) {
  CryptoSettings settings;
  settings.suite = kLongTagSuite;
  settings.key.resize(HiddenKey::kLength);
  for (std::size_t i = 0; i < HiddenKey::kLength; ++i) settings.key[i] = key[i];
  return settings;
}

class SrtpSecrecy : public SrtpTest {};

TEST_F(SrtpSecrecy, KeysAreGoneFromMemoryOnceTheyAreReplacedOrTheirEndpointIsClosed) {
  const HiddenKey ours, theirs;
  {
    Leg a = NewLeg(*session_);
    ASSERT_TRUE(DescribeLocal(a, SettingsWith(ours)).ok);
    ASSERT_TRUE(DescribeRemote(a, SettingsWith(theirs)).ok);
    const Leg b = NewCallLeg(*session_);
    JoinThem(a, b);
    b.SendRun(1, 20);
    a.SendRun(1, 20);  // in the clear: refused
    ASSERT_TRUE(Eventually([&] { return a.Statistics().srtp_unauthentic == 20; }));
    ASSERT_TRUE(Eventually([&] { return a.Statistics().rtp_packets_sent == 20; }));
    EXPECT_GE(ours.CopiesInMemory(), 1u);
    EXPECT_GE(theirs.CopiesInMemory(), 1u);
    ASSERT_TRUE(DescribeLocal(a, KeysOf(1)).ok);
    EXPECT_EQ(ours.CopiesInMemory(), 0u);
    ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  }
  EXPECT_EQ(theirs.CopiesInMemory(), 0u);
}

TEST_F(SrtpSecrecy, ARefusedDescriptionLeavesNoKeyBehind) {
  const HiddenKey key;
  {
    Leg a = NewLeg(*session_);
    CryptoSettings settings = SettingsWith(key);
    settings.mki = "1:1000";
    ASSERT_FALSE(DescribeLocal(a, settings).ok);
    EXPECT_GE(key.CopiesInMemory(), 1u);
  }
  EXPECT_EQ(key.CopiesInMemory(), 0u);
}

}  // namespace
}  // namespace media_engine_test
