#include <gtest/gtest.h>

#include "sip/sip_cause.h"

namespace kvx_switch {
namespace {

TEST(SipCause, RefusalsReachTheCallerWithTheirUsualStatus) {
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_USER_BUSY), 486);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_NO_ANSWER), 480);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_CALL_REJECTED), 603);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_NO_ROUTE_DESTINATION), 404);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_INCOMPATIBLE_DESTINATION), 488);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE), 504);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_ORIGINATOR_CANCEL), 487);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_SYSTEM_SHUTDOWN), 503);
  EXPECT_EQ(StatusOfCause(SWITCH_CAUSE_NORMAL_CLEARING), 480);
}

TEST(SipCause, StatusesBecomeTheCausesOfTheInterworkingTable) {
  EXPECT_EQ(CauseOfStatus(404), SWITCH_CAUSE_UNALLOCATED_NUMBER);
  EXPECT_EQ(CauseOfStatus(408), SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE);
  EXPECT_EQ(CauseOfStatus(480), SWITCH_CAUSE_NO_USER_RESPONSE);
  EXPECT_EQ(CauseOfStatus(486), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(CauseOfStatus(488), SWITCH_CAUSE_INCOMPATIBLE_DESTINATION);
  EXPECT_EQ(CauseOfStatus(503), SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
  EXPECT_EQ(CauseOfStatus(600), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(CauseOfStatus(603), SWITCH_CAUSE_CALL_REJECTED);
  EXPECT_EQ(CauseOfStatus(699), SWITCH_CAUSE_NORMAL_UNSPECIFIED);
}

TEST(SipCause, OnlyStatusesThatConcernTheCallerPassThrough) {
  for (int status : {404, 480, 486, 488, 500, 503, 600, 603}) EXPECT_TRUE(StatusPassesThrough(status)) << status;
  for (int status : {0, 200, 302, 401, 407, 408, 481, 487, 491}) EXPECT_FALSE(StatusPassesThrough(status)) << status;
}

TEST(SipCause, ReasonNamesCauseAndText) {
  EXPECT_EQ(ReasonHeader(SWITCH_CAUSE_USER_BUSY), "Q.850;cause=17;text=\"USER_BUSY\"");
  EXPECT_EQ(ReasonHeader(SWITCH_CAUSE_SYSTEM_SHUTDOWN), "Q.850;cause=31;text=\"SYSTEM_SHUTDOWN\"");
  EXPECT_EQ(ReasonHeader(SWITCH_CAUSE_ORIGINATOR_CANCEL), "SIP;cause=487;text=\"ORIGINATOR_CANCEL\"");
  EXPECT_EQ(ReasonHeader(SWITCH_CAUSE_LOSE_RACE), "SIP;cause=200;text=\"Call completed elsewhere\"");
}

TEST(SipCause, ReasonOfTheFarEndIsReadWhenItIsQ850OrSip) {
  EXPECT_EQ(CauseOfReason("Q.850", "17"), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(CauseOfReason("q.850", "16"), SWITCH_CAUSE_NORMAL_CLEARING);
  for (const char* cause : {"", "0", "128", "-1", "17x", "99999999999999999999"}) {
    EXPECT_EQ(CauseOfReason("Q.850", cause), SWITCH_CAUSE_NONE) << cause;
  }
  EXPECT_EQ(CauseOfReason("SIP", "486"), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(CauseOfReason("sip", "487"), SWITCH_CAUSE_ORIGINATOR_CANCEL);
  EXPECT_EQ(CauseOfReason("SIP", "200"), SWITCH_CAUSE_LOSE_RACE);
  for (const char* cause : {"", "100", "183", "202", "700", "-486", "486x"}) {
    EXPECT_EQ(CauseOfReason("SIP", cause), SWITCH_CAUSE_NONE) << cause;
  }
  EXPECT_EQ(CauseOfReason("Preemption", "17"), SWITCH_CAUSE_NONE);
}

}  // namespace
}  // namespace kvx_switch
