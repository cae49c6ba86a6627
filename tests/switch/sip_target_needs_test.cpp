#include "sip/target_needs.h"

#include <gtest/gtest.h>

namespace kvx_switch {
namespace {

SipProfile ProfileAt(const std::string& address, bool udp = true, bool tcp = true) {
  SipProfile profile;
  profile.sip_address = address;
  profile.transports = {udp, tcp};
  return profile;
}

TEST(TargetNeeds, FamilyOfANumericAddress) {
  for (const char* uri : {"sip:2000@127.0.0.1", "sip:127.0.0.1:5060", "sip:a:b@127.0.0.1;x=y", "SIP:a@127.0.0.1?H=v"}) {
    EXPECT_TRUE(NeedsOfTarget(uri).MetBy(ProfileAt("10.0.0.1"))) << uri;
    EXPECT_FALSE(NeedsOfTarget(uri).MetBy(ProfileAt("::1"))) << uri;
  }
  for (const char* uri : {"sip:2000@[::1]", "sip:[2001:db8::1]:5060", "sip:a@[::1]:5060;transport=udp"}) {
    EXPECT_FALSE(NeedsOfTarget(uri).MetBy(ProfileAt("10.0.0.1"))) << uri;
    EXPECT_TRUE(NeedsOfTarget(uri).MetBy(ProfileAt("::1"))) << uri;
  }
}

TEST(TargetNeeds, NamesAreOfEitherFamily) {
  for (const char* uri : {"sip:2000@example.net", "sip:example.net:5060", "sip:", "nonsense", ""}) {
    EXPECT_TRUE(NeedsOfTarget(uri).MetBy(ProfileAt("10.0.0.1"))) << uri;
    EXPECT_TRUE(NeedsOfTarget(uri).MetBy(ProfileAt("::1"))) << uri;
  }
}

TEST(TargetNeeds, TransportThatIsAskedFor) {
  const TargetNeeds tcp = NeedsOfTarget("sip:2000@127.0.0.1:5060;user=phone;Transport=TCP");
  EXPECT_TRUE(tcp.MetBy(ProfileAt("127.0.0.1")));
  EXPECT_FALSE(tcp.MetBy(ProfileAt("127.0.0.1", true, false)));
  const TargetNeeds udp = NeedsOfTarget("sip:2000@[::1];transport=udp?X=tcp");
  EXPECT_FALSE(udp.MetBy(ProfileAt("::1", false, true)));
  EXPECT_TRUE(NeedsOfTarget("sip:2000@127.0.0.1").MetBy(ProfileAt("127.0.0.1", false, true)));
}

}  // namespace
}  // namespace kvx_switch
