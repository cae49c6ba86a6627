// A call that turns to fax (T.38) and back: the datagrams pass as they are.

#include <gtest/gtest.h>

#include "support/rtp_fax.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::SipDialogue;
using test_support::UdpAddress;

class FaxCall : public OnEachDriver<SwitchCall> {
 protected:
  /// A call to that number which turns to fax and back, from its beginning to the switch's end.
  void ExpectFaxAndSpeechAt(const std::string& number);

  /// Where the phone of that dialogue was told to send fax to; empty while it was not.
  static std::optional<UdpAddress> FaxTarget(const SipDialogue& dialogue) {
    std::optional<UdpAddress> target;
    for (const auto& message : dialogue.Messages()) {
      if (!message.sent && !target) target = test_support::parse_sdp_image(message.body);
    }
    return target;
  }

  static std::size_t Acknowledged(const SipDialogue& dialogue) {
    std::size_t count = 0;
    for (const auto& message : dialogue.Messages()) count += message.Method() == "ACK" ? 1 : 0;
    return count;
  }
};

void FaxCall::ExpectFaxAndSpeechAt(const std::string& number) {
  CallTrialSettings settings;
  settings.dialled = number;
  settings.caller_scenario = "caller_faxes";
  settings.callee_scenario = "callee_faxes";
  settings.talk = seconds(1);
  StartWithPhones(settings);
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    return Acknowledged(trial_->Caller().Dialogues().at(0)) >= 2;
  })) << trial_->Account();
  const auto caller_to = FaxTarget(trial_->Caller().Dialogues().at(0));
  const auto callee_to = FaxTarget(trial_->Callee().Dialogues().at(0));
  ASSERT_TRUE(caller_to && callee_to) << trial_->Account();
  const auto fax = test_support::exchange_fax(trial_->CallerPhone(0), *caller_to, trial_->CalleePhone(0), *callee_to,
                                              100, 1400, milliseconds(1000));
  EXPECT_TRUE(fax.to_callee.Passed()) << "to the callee: " << fax.to_callee.ToString();
  EXPECT_TRUE(fax.to_caller.Passed()) << "to the caller: " << fax.to_caller.ToString();

  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    return Acknowledged(trial_->Caller().Dialogues().at(0)) >= 3;
  })) << trial_->Account();
  const auto results = trial_->Talk();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_TRUE(results[0].to_callee.Passed()) << results[0].to_callee.Reasons();
  EXPECT_TRUE(results[0].to_caller.Passed()) << results[0].to_caller.Reasons();
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(FaxCall, PassesDatagramsAsTheyAreAndComesBackToAudio) {
  ExpectFaxAndSpeechAt("2000");
}

// The sample's number for fax asks for more than media servers can do, and they say so.
TEST_P(FaxCall, PassesAtTheSamplesNumberForFax) {
  ExpectFaxAndSpeechAt("2007");
  ExpectLogLine({"[NOTICE]", IsOnRtpengine() ? "rtpengine does not support FaxModeAutoSwitchMask"
                                             : "does not support FaxModeAutoSwitchMask yet"});
}

INSTANTIATE_TEST_SUITE_P(Over, FaxCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
