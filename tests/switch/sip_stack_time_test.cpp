#include <gtest/gtest.h>

#include "sip/sip_stack.h"

namespace {

TEST(SipStackTime, PassesInWholeMilliseconds) {
  kvx_switch::CountWholeMilliseconds();
  const su_time_t first = su_now();
  su_time_t now = first;
  int steps = 0;
  for (; steps < 3; ++steps) {
    const su_time_t before = now;
    while (su_time_cmp(now, before) == 0) now = su_now();
    EXPECT_EQ(now.tv_usec % 1000, 0u);
    EXPECT_GT(su_time_cmp(now, before), 0);
  }
  EXPECT_GE(su_time_diff(now, first), 0.0029);
}

}  // namespace
