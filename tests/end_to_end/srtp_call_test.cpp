// Encrypted calls: both ends seal with the reference library, and the switch's process has the keys between them.

#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;

class SrtpCall : public OnEachDriver<SwitchCall> {
 protected:
  void StartWith(const std::string& secure_media, const std::string& caller, const std::string& callee) {
    switch_settings_.variables.emplace_back("rtp_secure_media", secure_media);
    CallTrialSettings settings;
    settings.talk = seconds(3);
    settings.caller_srtp = caller;
    settings.callee_srtp = callee;
    settings.caller_digits = "159";
    StartWithPhones(settings);
  }

  void ExpectKeysOfItsOwnForEachStream() {
    const auto& view = trial_->Calls().at(0);
    EXPECT_EQ(view.caller_far.transport, "RTP/SAVP");
    EXPECT_FALSE(view.caller_far.crypto.empty());
    EXPECT_NE(view.caller_far.crypto, view.callee_far.crypto);
    EXPECT_EQ(switch_->Log().find(view.caller_far.crypto.substr(view.caller_far.crypto.find("inline:") + 7)),
              std::string::npos)
        << "keys are not logged";
  }
};

TEST_P(SrtpCall, IsEncryptedOnBothLegsWithTheLongTag) {
  StartWith("mandatory", "AES_CM_128_HMAC_SHA1_80", "AES_CM_128_HMAC_SHA1_80");
  ExpectCallsToCarrySpeech(1);
  ExpectKeysOfItsOwnForEachStream();
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SrtpCall, MayBeEncryptedWithTheShortTagOnOneLegOnly) {
  StartWith("optional", "AES_CM_128_HMAC_SHA1_32", "");
  ExpectCallsToCarrySpeech(1);
  EXPECT_EQ(trial_->Calls().at(0).caller_far.crypto.substr(0, 26), "1 AES_CM_128_HMAC_SHA1_32 ");
  EXPECT_EQ(trial_->Calls().at(0).callee_far.transport, "RTP/AVP");
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SrtpCall, IsRefusedInTheClearWhereItIsMandatory) {
  switch_settings_.variables.emplace_back("rtp_secure_media", "mandatory");
  StartSwitch();
  EXPECT_EQ(RefusedWith("caller_is_refused", "2000"), 488);
  ExpectLogLine({"SRTP is mandatory: no key is offered"});
  ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Over, SrtpCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
