// The switch is stopped while people talk.

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

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

// Calls in every state at once: some asked for, some ringing, some just answered.
TEST_F(Shutdown, AmidTwentyCallSetupsStillExitsWithZero) {
  for (int delay : {0, 20, 60, 110, 150, 250}) {
    SCOPED_TRACE("SIGINT " + std::to_string(delay) + " ms after the first call");
    const auto directory = directory_.Path() / std::to_string(delay);
    std::filesystem::create_directory(directory);
    CallTrialSettings settings;
    settings.calls = 20;
    settings.calls_per_second = 500;
    settings.caller_scenario = "caller_awaits_bye";
    settings.directory = directory;
    test_support::CallTrial trial(settings);
    test_support::SwitchProcessSettings switch_settings;
    switch_settings.directory = directory;
    switch_settings.variables = {{"phone_b", trial.CalleeAddress().ToString()}};
    test_support::SwitchProcess process(switch_settings);
    ASSERT_NO_THROW(process.WaitReady());
    trial.Dial(process.Sip(), 20);
    ASSERT_TRUE(test_support::wait_until(seconds(10), [&trial] { return !trial.Callee().Dialogues().empty(); }));
    std::this_thread::sleep_for(milliseconds(delay));
    ASSERT_NO_THROW(process.Stop(seconds(30)));
    // Whoever was answered is told that the call is over; whoever was not has a final answer.
    for (const auto& dialogue : trial.Caller().Dialogues()) {
      const auto* answer = dialogue.FinalAnswer();
      ASSERT_NE(answer, nullptr) << dialogue.Flow();
      EXPECT_TRUE(answer->Status() != 200 || dialogue.Request("BYE", false) != nullptr) << dialogue.Flow();
    }
  }
}

TEST_F(Shutdown, OfAnIdleSwitchLeavesNoErrorBehind) {
  StartSwitch();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
