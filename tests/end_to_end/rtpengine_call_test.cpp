// The switch with rtpengine daemons for media servers, and real calls on them.

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "support/rtpengine_fleet.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;

class RtpengineCalls : public SwitchCall {
 protected:
  RtpengineCalls() {
    fleet_.PutInto(configuration_, 20000);
    switch_settings_.conf = configuration_.Path();
  }
  static CallTrialSettings Phones() {
    CallTrialSettings settings;
    settings.relays_source = true;
    return settings;
  }
  /// How many calls each daemon has; both legs of one have to be on the same.
  std::map<std::string, int> Places() const {
    std::map<std::string, int> places;
    for (const auto& call : trial_->Calls()) {
      EXPECT_EQ(call.caller_far.address, call.callee_far.address);
      ++places[call.caller_far.address];
    }
    return places;
  }

  test_support::RtpengineFleet fleet_{2};
  test_support::ConfigurationCopy configuration_;
};

TEST_F(RtpengineCalls, CarrySpeechAndDigitsOverEachDaemon) {
  CallTrialSettings settings = Phones();
  settings.calls = 4;
  settings.caller_digits = "12#";
  settings.callee_digits = "90*";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(4);
  EXPECT_EQ(Places(), (std::map<std::string, int>{{fleet_.At(0).Address(), 2}, {fleet_.At(1).Address(), 2}}));
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(RtpengineCalls, AreEncryptedOnBothLegsUnderKeysOfTheirOwn) {
  CallTrialSettings settings = Phones();
  settings.caller_srtp = settings.callee_srtp = "AES_CM_128_HMAC_SHA1_80";
  settings.dialled = "2002";
  switch_settings_.variables.emplace_back("rtp_secure_media", "optional");
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const auto& call = trial_->Calls().at(0);
  EXPECT_FALSE(call.caller_far.crypto.empty());
  EXPECT_NE(call.caller_far.crypto, call.callee_far.crypto);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(RtpengineCalls, OfADaemonThatIsKilledEndAndTheOthersGoOn) {
  CallTrialSettings settings = Phones();
  settings.calls = 4;
  settings.caller_scenario = "caller_awaits_bye";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(4);
  ASSERT_EQ(Places().size(), 2u);
  fleet_.At(0).Kill();
  EXPECT_TRUE(test_support::wait_until(seconds(60), [&] {
    return test_support::ask_counts(*switch_).media_sessions == 2;
  })) << trial_->Account();
  EXPECT_TRUE(switch_->WaitForLog("Media server lost, sessions affected: 2", seconds(10)));
  fleet_.At(0).Start();
  EXPECT_EQ(test_support::ask_counts(*switch_).media_sessions, 2);
  switch_->Api("hupall");
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

}  // namespace
}  // namespace end_to_end
