// Messages that cross on the way: a CANCEL with the answer that it comes too late for, two answers to one call.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::SipMessage;

class CancelRace : public OnEachDriver<OrderedCall> {};

TEST_P(CancelRace, ThatTheAnswerWinsAtTheCallerLeavesTheCallUp) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_cancels_too_late";
  StartCall(settings);
  EXPECT_NE(CallerAgent().Dialogues().at(0).Request("CANCEL", true), nullptr);
  ExpectTheyTalk(Caller(), Callee(), milliseconds(800));
  EXPECT_EQ(CalleeAgent().Dialogues().at(0).Request("CANCEL", false), nullptr);
  HangUp();
  ExpectEndedWell();
}

// The callee takes the call at the moment in which our CANCEL is on its way: it is thanked and hung up.
TEST_P(CancelRace, ThatTheAnswerWinsAtTheCalleeEndsTheCallThere) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_cancels";
  settings.callee_scenario = "callee_answers_cancelled_call";
  StartPhones(settings);
  Dial();
  ExpectHungUp();
  EXPECT_NE(CallerAgent().Dialogues().at(0).Answer(487, "INVITE", false), nullptr);
  const auto callee = CalleeAgent().Dialogues().at(0);
  ASSERT_EQ(callee.Flow(), "< INVITE  > 180  < CANCEL  > 200  > 200  < ACK  < BYE  > 200");
  EXPECT_EQ(callee.Request("BYE", false)->Header("Reason"), "SIP;cause=487;text=\"ORIGINATOR_CANCEL\"");
  ExpectEndedWell();
}

class ForkedCall : public OnEachDriver<OrderedCall> {};

TEST_P(ForkedCall, StaysWithThePhoneThatAnsweredFirstAndSendsTheSecondAway) {
  CallTrialSettings settings;
  settings.callee_scenario = "callee_forks";
  StartCall(settings);
  ExpectTheyTalk(Caller(), Callee(), milliseconds(500));
  Tell(CalleeAgent(), "ANSWER");
  const auto sent_away = [](const SipMessage& m) {
    return !m.sent && m.Method() == "BYE" && m.Header("To").find("-second") != std::string::npos;
  };
  ASSERT_TRUE(test_support::wait_until(seconds(20), [&] {
    return count_messages(CalleeAgent().Dialogues().at(0), sent_away) == 1;
  })) << trial_->Account();
  ExpectTheyTalk(Caller(), Callee(), milliseconds(800));
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, CancelRace, every_media_driver(), media_driver_name);
INSTANTIATE_TEST_SUITE_P(Over, ForkedCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
