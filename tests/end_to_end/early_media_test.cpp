// What the called phone says before it answers.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;

class EarlyMedia : public OnEachDriver<OrderedCall> {};

TEST_P(EarlyMedia, IsHeardByTheCallerBeforeTheAnswerAndTheCallGoesOnFromThere) {
  CallTrialSettings settings;
  settings.callee_scenario = "callee_plays_early";
  StartPhones(settings);
  Dial();
  const Party caller{&trial_->CallerMedia(0), AwaitEarlyMedia()};
  const Party callee{&trial_->CalleeMedia(0), CalleeAgent().Dialogues().at(0).FarAudio().value()};
  ExpectHeard(callee, caller, seconds(1));
  EXPECT_EQ(CallerAgent().Dialogues().at(0).FinalAnswer(), nullptr) << "nobody has answered yet";
  EXPECT_NE(switch_->Api("show channels").find(",EARLY"), std::string::npos) << switch_->Api("show channels");

  Tell(CalleeAgent(), "ANSWER");
  trial_->WaitEstablished(seconds(20));
  const auto& told = trial_->Calls().at(0).caller;
  EXPECT_EQ(told.Answer(200, "INVITE", false)->body, told.Answer(183, "INVITE", false)->body);
  ExpectTheyTalk(Caller(), Callee());
  HangUp();
  ExpectEndedWell();
}

// Two phones behind one number: who began last is heard, until one of them answers.
TEST_P(EarlyMedia, OfTwoPhonesIsThatOfTheLastAndTheCallThatOfTheOneThatAnswers) {
  CallTrialSettings settings;
  settings.callee_scenario = "callee_forks_early";
  StartPhones(settings);
  Dial();
  const Party caller{&trial_->CallerMedia(0), AwaitEarlyMedia()};
  const auto offered = CalleeAgent().Dialogues().at(0).FarAudio().value();
  const Party first{&trial_->CalleeMedia(0), offered};
  ExpectHeard(first, caller);

  test_support::RtpPhone second_media;
  const Party second{&second_media, offered};
  Tell(CalleeAgent(), "SECOND", second_media.Port());
  ExpectHeard(second, caller);
  ExpectUnheard(first, caller);

  Tell(CalleeAgent(), "ANSWER");
  trial_->WaitEstablished(seconds(20));
  ExpectTheyTalk(Caller(), first, std::chrono::milliseconds(800));
  ExpectUnheard(second, Caller());
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, EarlyMedia, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
