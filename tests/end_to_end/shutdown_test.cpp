// The switch is stopped while people talk.

#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;

class Shutdown : public SwitchCall {};

TEST_F(Shutdown, EndsRunningCallsWithByeOnBothLegsAndExitsWithZero) {
  constexpr std::size_t kCalls = 3;
  CallTrialSettings settings;
  settings.calls = kCalls;
  settings.caller_scenario = "caller_awaits_bye";
  settings.talk = milliseconds(500);
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(kCalls);
  ASSERT_NO_THROW(switch_->Stop(seconds(20)));
  ExpectHungUp();
  for (test_support::SippAgent* phones : {&trial_->Caller(), &trial_->Callee()}) {
    const auto dialogues = phones->Dialogues();
    ASSERT_EQ(dialogues.size(), kCalls);
    for (const auto& dialogue : dialogues) EXPECT_NE(dialogue.Request("BYE", false), nullptr) << dialogue.Flow();
  }
}

TEST_F(Shutdown, GivesARingingCallUp) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_is_refused";
  settings.callee_scenario = "callee_never_answers";
  StartWithPhones(settings);
  trial_->Dial(switch_->Sip(), 1);
  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    const auto dialogues = trial_->Caller().Dialogues();
    return !dialogues.empty() && dialogues.front().Answer(180, "INVITE", false) != nullptr;
  })) << trial_->Account();
  ASSERT_NO_THROW(switch_->Stop(seconds(20)));
  ExpectHungUp();
  EXPECT_EQ(trial_->Caller().Dialogues().at(0).FinalAnswer()->Status(), 503);
  EXPECT_NE(trial_->Callee().Dialogues().at(0).Request("CANCEL", false), nullptr);
}

TEST_F(Shutdown, OfAnIdleSwitchLeavesNoErrorBehind) {
  StartSwitch();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
