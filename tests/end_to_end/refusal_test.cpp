// Calls that do not come up: each side is told why, and the switch goes on.

#include <gtest/gtest.h>

#include "support/free_ports.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::SippCallFields;

class Refusal : public SwitchCall {
 protected:
  // A caller and a callee of the given scenarios, to their end; the caller's final status.
  int Meet(const std::string& caller, const std::string& callee) {
    CallTrialSettings settings;
    settings.caller_scenario = caller;
    settings.callee_scenario = callee;
    settings.talk = milliseconds(0);
    StartWithPhones(settings);
    trial_->Dial(switch_->Sip(), 1);
    EXPECT_NO_THROW(trial_->WaitHungUp(seconds(30)));
    EXPECT_NO_THROW(trial_->WaitCalleeDone(seconds(30)));
    const auto dialogues = trial_->Caller().Dialogues();
    const auto* answer = dialogues.empty() ? nullptr : dialogues.front().FinalAnswer();
    return answer != nullptr ? answer->Status() : 0;
  }

  // After a refusal the switch serves the next call as if nothing had been.
  void ExpectStillServing() {
    EXPECT_EQ(RefusedWith("caller_is_refused", "7777"), 404);
    ExpectAtRest();
    ASSERT_NO_THROW(switch_->Stop(seconds(30)));
  }
};

TEST_F(Refusal, OfABusyCalleeReachesTheCallerAs486) {
  EXPECT_EQ(Meet("caller_is_refused", "callee_is_busy"), 486);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(Refusal, OfADecliningCalleeReachesTheCallerAs603) {
  EXPECT_EQ(Meet("caller_is_refused", "callee_declines"), 603);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(Refusal, CancelOfTheCallerReachesTheRingingCallee) {
  EXPECT_EQ(Meet("caller_cancels", "callee_never_answers"), 487);
  EXPECT_NE(trial_->Callee().Dialogues().at(0).Request("CANCEL", false), nullptr);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(Refusal, OfACalleeThatNeverAnswersComesAfterTheLegTimeout) {
  test_support::ConfigurationCopy conf;
  conf.Replace("sip_profiles/internal.xml", "name=\"leg-timeout\" value=\"60\"", "name=\"leg-timeout\" value=\"2\"");
  switch_settings_.conf = conf.Path();
  EXPECT_EQ(Meet("caller_is_refused", "callee_never_answers"), 480);
  EXPECT_NE(trial_->Callee().Dialogues().at(0).Request("CANCEL", false), nullptr);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(Refusal, OfACalleeWhoseAnswerHasNoCodecOfTheOfferEndsBothLegs) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_is_refused";
  settings.callee.payload_type = "120";
  settings.callee.codec = "NOSUCHCODEC/8000";
  settings.talk = milliseconds(0);
  StartWithPhones(settings);
  trial_->Dial(switch_->Sip(), 1);
  ExpectHungUp();
  const auto callee = trial_->Callee().Dialogues();
  ASSERT_EQ(callee.size(), 1u);
  EXPECT_EQ(callee[0].Flow(), "< INVITE  > 180  > 200  < ACK  < BYE  > 200");
  const auto caller = trial_->Caller().Dialogues();
  ASSERT_EQ(caller.size(), 1u);
  ASSERT_NE(caller[0].FinalAnswer(), nullptr);
  EXPECT_EQ(caller[0].FinalAnswer()->Status(), 488);
  ExpectStillServing();
}

TEST_F(Refusal, OfACalleeThatIsNotThereReachesTheCaller) {
  StartSwitch("127.0.0.1:" + std::to_string(test_support::free_udp_port()));
  EXPECT_EQ(RefusedWith("caller_is_refused", "2000"), 502);
  ExpectLogLine({"Cannot reach sip:2000@", "nothing listens there"});
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

TEST_F(Refusal, OfAnUnknownNumberIs404AndNamesIt) {
  StartSwitch();
  EXPECT_EQ(RefusedWith("caller_is_refused", "31415"), 404);
  ExpectLogLine({"31415", "default"});
  ExpectStillServing();
}

TEST_F(Refusal, OfMediaAtAnAddressOfAnotherFamilyIs488AndNamesIt) {
  StartSwitch();
  EXPECT_EQ(RefusedWith("caller_with_ipv6_media", "2000"), 488);
  ExpectLogLine({"remote address ::1 and local address", "are of different families"});
  ExpectLogLine({"Call refused with 488: the media server takes no media at ::1"});
  ExpectStillServing();
}

TEST_F(Refusal, OfAMalformedDescriptionIs400AndNamesTheLine) {
  StartSwitch();
  EXPECT_EQ(RefusedWith("caller_with_malformed_sdp", "2000"), 400);
  ExpectLogLine({"m=audio not-a-port"});
  ExpectStillServing();
}

TEST_F(Refusal, OfNoCommonCodecIs488AndNamesTheCodecs) {
  StartSwitch();
  SippCallFields fields;
  fields.payload_type = "121";
  fields.codec = "NOSUCHCODEC/8000";
  EXPECT_EQ(RefusedWith("caller_is_refused", "2000", fields), 488);
  ExpectLogLine({"NOSUCHCODEC"});
  ExpectStillServing();
}

TEST_F(Refusal, OptionsIsAnswered) {
  StartSwitch();
  test_support::SippSettings settings;
  settings.name = "options";
  settings.scenario = "caller_asks_options";
  settings.remote = switch_->Sip();
  settings.directory = directory_.Path();
  settings.calls.resize(1);
  test_support::SippAgent caller(settings);
  const auto exit = caller.WaitForExit(seconds(30));
  ASSERT_TRUE(exit && exit->Succeeded()) << caller.Account();
  const auto dialogues = caller.Dialogues();
  ASSERT_EQ(dialogues.size(), 1u);
  const auto* answer = dialogues[0].Answer(200, "OPTIONS", false);
  ASSERT_NE(answer, nullptr);
  EXPECT_NE(answer->Header("Allow").find("INVITE"), std::string::npos) << answer->Header("Allow");
  ExpectStillServing();
}

}  // namespace
}  // namespace end_to_end
