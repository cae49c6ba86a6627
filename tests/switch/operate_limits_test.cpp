#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "operate/process_limits.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ProcessLimitsTest, AreHighEnoughWhenEverySessionHasItsSockets) {
  EXPECT_THAT(FindLowLimits({2256, RLIM_INFINITY}, 1000), IsEmpty());
  EXPECT_THAT(FindLowLimits({RLIM_INFINITY, 1}, 1000000), IsEmpty());
}

TEST(ProcessLimitsTest, ThatAreTooLowComeWithTheNumberNeededAndTheSettings) {
  EXPECT_THAT(
      FindLowLimits({2255, 0}, 1000),
      ElementsAre("No more than 2255 files may be open at once, and 1000 sessions need 2256: set LimitNOFILE=2256 "
                  "in the service's unit, \"ulimit -n 2256\" in a shell, or a lower max-sessions in switch.conf",
                  "A crash would leave no core file, whose size is limited to 0: set LimitCORE=infinity in the "
                  "service's unit or \"ulimit -c unlimited\" in a shell"));
}

TEST(ProcessLimitsTest, AreRaisedAsFarAsTheProcessMay) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit lower = before;
  lower.rlim_cur = 200;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lower), 0);
  EXPECT_EQ(RaiseProcessLimits(10).descriptors, DescriptorsFor(10));
  EXPECT_EQ(RaiseProcessLimits(1000000000).descriptors, before.rlim_max);
  EXPECT_EQ(RaiseProcessLimits(1).descriptors, before.rlim_max) << "nothing is lowered";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

}  // namespace
}  // namespace kvx_switch
