// Calls that come up: what one party says, the other hears, through the media server.

#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtpContent;

class Call : public OnEachDriver<SwitchCall> {};

TEST_P(Call, CarriesSpeechAndDigitsBothWaysAndLeavesNothingBehind) {
  CallTrialSettings settings;
  settings.talk = seconds(3);
  settings.caller_digits = "159D";
  settings.callee_digits = "*#";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();
  EXPECT_EQ(trial_->Caller().Dialogues().at(0).Answer(100, "INVITE", false) != nullptr, true);
  EXPECT_NE(trial_->Caller().Dialogues().at(0).Answer(180, "INVITE", false), nullptr) << "ringing is passed on";
  EXPECT_NE(trial_->Callee().Dialogues().at(0).Request("BYE", false), nullptr);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Call, GivesEachLegAnEndpointOfTheMediaServerInOneMediaSession) {
  StartWithPhones({});
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  const auto& view = trial_->Calls().at(0);
  EXPECT_NE(view.caller_far.port, view.callee_far.port);
  EXPECT_EQ(view.caller_far.address, view.callee_far.address);
  const auto now = test_support::inspect_process(MediaServerPid(view.caller_far.address));
  for (std::uint16_t port : {view.caller_far.port, view.callee_far.port}) {
    EXPECT_EQ(port % 2, 0) << "RTP goes on even ports";
    EXPECT_EQ(now.udp_ports.count(port), 1u) << "RTP port " << port;
    EXPECT_EQ(now.udp_ports.count(static_cast<std::uint16_t>(port + 1)), 1u) << "RTCP port of " << port;
  }
  EXPECT_EQ(test_support::ask_counts(*switch_).media_sessions, 1);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Call, EndsWhenTheCalleeHangsUp) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee_hangs_up";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();
  EXPECT_NE(trial_->Caller().Dialogues().at(0).Request("BYE", false), nullptr) << "the caller was told";
  ExpectAtRest();
  ExpectCleanStop();
}

// The caller's INVITE has no description: the switch offers, and its ACK answers.
TEST_P(Call, TakesTheCallersAnswerFromItsAck) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_answers_late";
  settings.caller_digits = "42";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  EXPECT_EQ(trial_->Calls().at(0).caller.Request("INVITE", true)->body, "");
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

// The session is refreshed in the middle of the talk: not a packet may be lost over it.
TEST_P(Call, GoesOnUndisturbedWhileItIsRefreshed) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_refreshes";
  settings.talk = seconds(3);
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  EXPECT_NE(trial_->Caller().Dialogues().at(0).Answer(200, "UPDATE", false), nullptr);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Call, CarriesPcma) {
  CallTrialSettings settings;
  settings.caller.payload_type = settings.callee.payload_type = "8";
  settings.caller.codec = settings.callee.codec = "PCMA/8000";
  settings.codec.content = RtpContent::kAlaw;
  settings.caller_digits = "8";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  EXPECT_EQ(trial_->Calls().at(0).caller_far.FirstAudio()->name, "PCMA");
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

// Each side names a dynamic codec and telephone-event by numbers of its own: the media server translates.
TEST_P(Call, TranslatesDynamicPayloadTypes) {
  CallTrialSettings settings;
  settings.caller.payload_type = "116";
  settings.callee.payload_type = "98";
  settings.caller.codec = settings.callee.codec = "iLBC/8000";
  settings.caller.attribute = "fmtp:116 mode=20";
  settings.callee.attribute = "fmtp:98 mode=20";
  settings.caller.event_payload_type = "96";
  settings.callee.event_payload_type = "110";
  settings.codec.content = RtpContent::kOpaque;
  settings.codec.opaque_bytes = 38;  // 20 ms of iLBC at 15.2 kbit/s (RFC 3951)
  settings.caller_digits = "37";
  settings.callee_digits = "0";
  if (IsOnRtpengine()) {
    return ExpectCallThatCannotBeJoined(settings, "iLBC/8000 bitrate=15200 under payload types 116 and 98 cannot be");
  }
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  EXPECT_EQ(trial_->Calls().at(0).caller_own.FirstAudio()->payload_type, 116);
  EXPECT_EQ(trial_->Calls().at(0).callee_own.FirstAudio()->payload_type, 98);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Call, TwentyOneAfterAnotherLeaveNothingBehind) {
  CallTrialSettings settings;
  settings.calls = 20;
  settings.talk = milliseconds(600);
  settings.hold_margin = milliseconds(700);
  settings.calls_per_second = 1000;
  StartWithPhones(settings);
  for (int call = 0; call < 20; ++call) {
    SCOPED_TRACE("call number " + std::to_string(call));
    ASSERT_NO_FATAL_FAILURE(ExpectCallsToCarrySpeech(1));
    ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
    ExpectAtRest();
  }
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(20)));
  ExpectCleanStop();
}

TEST_P(Call, TwentyAtOnceLeaveNothingBehind) {
  CallTrialSettings settings;
  settings.calls = 20;
  settings.talk = seconds(3);
  settings.calls_per_second = 500;
  settings.caller_digits = "19";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(20);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

INSTANTIATE_TEST_SUITE_P(Over, Call, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
