// What the called phone says before it answers.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;

class EarlyMedia : public OrderedCall {};

TEST_F(EarlyMedia, IsHeardByTheCallerBeforeTheAnswerAndTheCallGoesOnFromThere) {
  CallTrialSettings settings;
  settings.callee_scenario = "callee_plays_early";
  StartPhones(settings);
  Dial();
  ASSERT_TRUE(test_support::wait_until(seconds(20), [this] {
    const auto calls = CallerAgent().Dialogues();
    return !calls.empty() && calls[0].Answer(183, "INVITE", false) != nullptr;
  })) << trial_->Account();
  const auto ringing = CallerAgent().Dialogues().at(0);
  const auto offered = CalleeAgent().Dialogues().at(0).FarAudio();
  ASSERT_TRUE(ringing.FarAudio() && offered) << trial_->Account();
  test_support::RtpPhone& caller_media = trial_->CallerMedia(0);
  test_support::RtpPhone& callee_media = trial_->CalleeMedia(0);
  ExpectHeard({&callee_media, *offered}, {&caller_media, *ringing.FarAudio()}, seconds(1));
  EXPECT_EQ(CallerAgent().Dialogues().at(0).FinalAnswer(), nullptr) << "nobody has answered yet";
  EXPECT_NE(switch_->Api("show channels").find(",EARLY"), std::string::npos) << switch_->Api("show channels");

  Tell(CalleeAgent(), "ANSWER");
  trial_->WaitEstablished(seconds(20));
  EXPECT_EQ(trial_->Calls().at(0).caller.Answer(200, "INVITE", false)->body, ringing.Answer(183, "INVITE", false)->body)
      << "the caller is told the same";
  ExpectTheyTalk(Caller(), Callee());
  HangUp();
  ExpectEndedWell();
}

}  // namespace
}  // namespace end_to_end
