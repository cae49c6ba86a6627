// A call whose far end has gone silent: it ends by itself, and both sides are told why.

#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;

class RtpTimeout : public OnEachDriver<SwitchCall> {};

TEST_P(RtpTimeout, EndsTheCallWithItsCauseOnBothSides) {
  Configuration().Replace("sip_profiles/internal.xml", "name=\"rtp-timeout-sec\" value=\"300\"",
                          "name=\"rtp-timeout-sec\" value=\"2\"");
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();  // nobody speaks any more, and neither phone hangs up
  for (const auto& phone : {trial_->Caller().Dialogues().at(0), trial_->Callee().Dialogues().at(0)}) {
    const auto* bye = phone.Request("BYE", false);
    ASSERT_NE(bye, nullptr) << phone.Flow();
    EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
  }
  ExpectLogLine({"Hung up by the switch: DESTINATION_OUT_OF_ORDER (27)"});
  ExpectAtRest();
  ExpectCleanStop();
}

INSTANTIATE_TEST_SUITE_P(Over, RtpTimeout, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
