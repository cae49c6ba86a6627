#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "operate/process_limits.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ProcessLimitsTest, AreHighEnoughWhenEverySessionHasItsSockets) {
  EXPECT_THAT(FindLowLimits({2356, RLIM_INFINITY}, {1000, 100}), IsEmpty());
  EXPECT_THAT(FindLowLimits({RLIM_INFINITY, 1}, {1000000, 0}), IsEmpty());
}

TEST(ProcessLimitsTest, ThatAreTooLowComeWithTheNumberNeededAndTheSettings) {
  EXPECT_THAT(
      FindLowLimits({2355, 0}, {1000, 100}),
      ElementsAre(
          "No more than 2355 files may be open at once, and 1000 sessions and 100 SIP connections need 2356: set "
          "LimitNOFILE=2356 in the service's unit, \"ulimit -n 2356\" in a shell, or a lower max-sessions in "
          "switch.conf or tcp-max-connections in the SIP profiles",
          "A crash would leave no core file, whose size is limited to 0: set LimitCORE=infinity in the "
          "service's unit or \"ulimit -c unlimited\" in a shell"));
}

/// -1 where the system knows no such request.
int WaitQueues() {
  constexpr int kFutexHash = 78, kGetSlots = 2;
  return prctl(kFutexHash, kGetSlots, 0UL, 0UL, 0UL);
}

TEST(ProcessLimitsTest, ThereIsAWaitQueueForEachSession) {
  const bool known = WaitQueues() >= 0;
  ShortenWaitQueues({1000, 100});
  EXPECT_EQ(WaitQueues(), known ? 1024 : -1);
  ShortenWaitQueues({1025, 0});
  EXPECT_EQ(WaitQueues(), known ? 2048 : -1);
  ShortenWaitQueues({0, 0});
  EXPECT_EQ(WaitQueues(), known ? 256 : -1);
  ShortenWaitQueues({1'000'000'000, 0});
  EXPECT_EQ(WaitQueues(), known ? 65536 : -1);
}

TEST(ProcessLimitsTest, AreRaisedAsFarAsTheProcessMay) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit lower = before;
  lower.rlim_cur = 200;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lower), 0);
  EXPECT_EQ(RaiseProcessLimits({10, 3}).descriptors, DescriptorsFor({10, 3}) + 10)
      << "a third socket for each session, where there is one to be had";
  EXPECT_EQ(RaiseProcessLimits({1000000000, 0}).descriptors, before.rlim_max);
  EXPECT_EQ(RaiseProcessLimits({1, 0}).descriptors, before.rlim_max) << "nothing is lowered";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

}  // namespace
}  // namespace kvx_switch
