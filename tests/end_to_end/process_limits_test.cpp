// What a call costs of the process's limits, which the check at the start reckons with.

#include <gtest/gtest.h>

#include "support/process_inspection.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

class ProcessLimits : public SwitchCall {};

TEST_F(ProcessLimits, ACallOfTwoLegsHoldsTwoSocketsForEach) {
  test_support::CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const test_support::ProcessHoldings during = test_support::inspect_process(switch_->Pid());
  EXPECT_EQ(during.descriptors, before_.descriptors + 4) << during.ToString() << "; before: " << before_.ToString();
  EXPECT_EQ(Cli({"-x", "hupall"}).code, 0);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
