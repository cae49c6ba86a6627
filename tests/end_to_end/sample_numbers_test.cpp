// The numbers of the sample dialplan, dialled with the configuration as it is shipped: each does what the README says
// of it.

#include <gtest/gtest.h>

#include <algorithm>

#include "event_listener.h"
#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;
using test_support::RtpPhone;
using test_support::SipDialogue;
using test_support::SippAgent;
using test_support::SippSettings;

constexpr milliseconds kTalk{800};

class SampleNumber : public OrderedCall {
 protected:
  static CallTrialSettings Dialling(const std::string& number) {
    CallTrialSettings settings;
    settings.dialled = number;
    settings.talk = kTalk;
    return settings;
  }

  /// A call whose parties hear each other, up.
  void TalkAt(const std::string& number) {
    StartPhones(Dialling(number));
    ExpectCallsToCarrySpeech(1);
  }

  /// The same through jitter buffers: what is later than they wait for, on a machine that has other things to do, they
  /// drop, and rightly so. What they let through is in order and as it was said.
  void TalkThroughJitterBuffersAt(const std::string& number) {
    StartPhones(Dialling(number));
    Dial();
    trial_->WaitEstablished(seconds(30));
    const auto result = trial_->Talk().at(0);
    for (const test_support::RtpComparison* heard : {&result.to_callee, &result.to_caller}) {
      EXPECT_GT(heard->received, heard->sent / 2) << heard->Reasons();
      EXPECT_EQ(heard->altered_payloads + heard->duplicated + heard->reordered + heard->foreign, 0u)
          << heard->Reasons();
      EXPECT_EQ(heard->wrong_payload_types + heard->wrong_timestamps + heard->wrong_sources, 0u) << heard->Reasons();
    }
  }

  void EndWell() {
    HangUp();
    ExpectEndedWell();
  }

  /// The trial's callee is phone A; phone B does what that scenario says.
  void StartWithPhoneB(const std::string& scenario, CallTrialSettings settings) {
    settings.caller_scenario = "caller_on_order";
    settings.callee_scenario = "callee_on_order";
    settings.directory = directory_.Path();
    trial_ = std::make_unique<CallTrial>(settings);
    switch_settings_.variables.emplace_back("phone_a", trial_->CalleeAddress().ToString());
    phone_b_ = std::make_unique<CalledPhone>("phone_b", directory_.Path(), scenario);
    StartSwitch(phone_b_->Address().ToString());
  }

  /// The SSRCs in which the caller heard the callee in two talks, the second by another sender behind the same phone.
  std::pair<std::uint32_t, std::uint32_t> SourcesHeardByTheCaller() {
    const auto first = trial_->Talk().at(0).to_caller;
    const auto second = trial_->Talk().at(0).to_caller;
    EXPECT_TRUE(first.Passed()) << first.Reasons();
    EXPECT_TRUE(second.Passed()) << second.Reasons();
    if (first.ssrcs.empty() || second.ssrcs.empty()) return {0, 0};
    return {first.ssrcs[0], second.ssrcs[0]};
  }

  std::unique_ptr<CalledPhone> phone_b_;
};

TEST_F(SampleNumber, N1000LeadsToPhoneA) {
  StartWithPhoneB("callee_on_order", Dialling("1000"));
  ExpectCallsToCarrySpeech(1);
  EXPECT_TRUE(phone_b_->Agent().Dialogues().empty());
  EndWell();
}

TEST_F(SampleNumber, N2000LeadsToPhoneBAndItsStreamGoesOnWhenItsSenderChanges) {
  TalkAt("2000");
  const auto [first, second] = SourcesHeardByTheCaller();
  EXPECT_EQ(first, second);
  EndWell();
}

TEST_F(SampleNumber, N2001TellsBothLegsFigures) {
  StartPhones(Dialling("2001"));
  auto listener = std::make_unique<EventListener>(switch_->EventSocket(), "CHANNEL_DESTROY RECV_RTCP_MESSAGE");
  ExpectCallsToCarrySpeech(1);
  HangUp();
  const auto count = [](const std::vector<HeardEvent>& heard, const std::string& name) {
    return std::count_if(heard.begin(), heard.end(), [&](const HeardEvent& event) { return event.Name() == name; });
  };
  const auto heard = listener->WaitUntil(
      seconds(20), [&](const std::vector<HeardEvent>& so_far) { return count(so_far, "CHANNEL_DESTROY") == 2; });
  EXPECT_EQ(count(heard, "RECV_RTCP_MESSAGE"), 4) << "two for each leg";
  listener.reset();
  ExpectEndedWell();
}

TEST_F(SampleNumber, N2002IsEncryptedOnTheCalledLeg) {
  CallTrialSettings settings = Dialling("2002");
  settings.callee_srtp = "AES_CM_128_HMAC_SHA1_80";
  StartPhones(settings);
  ExpectCallsToCarrySpeech(1);
  EXPECT_EQ(trial_->Calls().at(0).caller_far.transport, "RTP/AVP");
  EXPECT_EQ(trial_->Calls().at(0).callee_far.transport, "RTP/SAVP");
  ExpectLogLine({"Answered: ", "SRTP", "AES_CM_128_HMAC_SHA1_80"});
  EndWell();
}

TEST_F(SampleNumber, N2002IsRefusedWherePhoneBDoesNotEncrypt) {
  CallTrialSettings settings = Dialling("2002");
  settings.caller_scenario = "caller_is_refused";
  settings.callee_scenario = "callee";
  StartPhones(settings);
  Dial();
  ExpectHungUp();
  EXPECT_NE(CallerAgent().Dialogues().at(0).Answer(488, "INVITE", false), nullptr);
  ExpectAtRest();
}

TEST_F(SampleNumber, N2003HasJitterBuffersOfAFixedLength) {
  TalkThroughJitterBuffersAt("2003");
  EndWell();
  ExpectLogLine({"[NOTICE]", "jitter buffer: delay 60 ms"});
}

TEST_F(SampleNumber, N2004HasAdaptiveJitterBuffers) {
  TalkThroughJitterBuffersAt("2004");
  for (const char* leg : {"inbound", "outbound"}) {
    EXPECT_EQ(switch_->Api("uuid_getvar " + LegOf(leg) + " jitterbuffer_mode"), "adaptive") << leg;
  }
  EndWell();
  ExpectLogLine({"[NOTICE]", "jitter buffer: delay "});
}

TEST_F(SampleNumber, N2005IsHungUpTenSecondsAfterAnAnswerWithoutRtp) {
  CallTrialSettings settings = Dialling("2005");
  settings.caller_scenario = "caller_awaits_bye";
  StartCall(settings);
  ExpectHeard(Caller(), Callee());  // the caller speaks, the phone that answered does not
  ExpectHungUp();
  for (const SipDialogue& phone : {CallerAgent().Dialogues().at(0), CalleeAgent().Dialogues().at(0)}) {
    ASSERT_NE(phone.Request("BYE", false), nullptr) << phone.Flow();
    EXPECT_EQ(phone.Request("BYE", false)->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
    EXPECT_GE(phone.Request("BYE", false)->at - phone.Request("ACK", phone.Request("INVITE", true) != nullptr)->at,
              milliseconds(9000));
  }
  ExpectEndedWell();
}

TEST_F(SampleNumber, N2006StartsAStreamAnewWhenItsSenderChanges) {
  TalkAt("2006");
  const auto [first, second] = SourcesHeardByTheCaller();
  EXPECT_NE(first, second);
  EndWell();
}

TEST_F(SampleNumber, N2008IsACallInTheMediaSessionOfTheOneThatIsDialled) {
  CallTrialSettings settings = Dialling("2000");
  settings.calls = 2;
  StartPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const std::string session = switch_->Api("uuid_getvar " + LegOf("inbound") + " media_session_uuid");
  ASSERT_EQ(session.size(), 36u) << session;

  RtpPhone second_media;
  SippSettings second;
  second.name = "second";
  second.scenario = "caller_awaits_bye";
  second.dialled = "2008-" + session;
  second.remote = switch_->Sip();
  second.directory = directory_.Path();
  second.calls.resize(1);
  second.calls[0].number = "4000";
  second.calls[0].media_port = second_media.Port();
  SippAgent caller(second);
  const auto up = [](SippAgent& agent) {
    const auto dialogue = agent.Dialogue("4000");
    return dialogue && dialogue->Established();
  };
  ASSERT_TRUE(test_support::wait_until(seconds(20), [&] { return up(caller) && up(CalleeAgent()); }))
      << caller.Account() << trial_->Account();
  EXPECT_EQ(test_support::ask_counts(*switch_).sessions, 4);
  EXPECT_EQ(test_support::ask_counts(*switch_).media_sessions, 1);
  ExpectTheyTalk({&second_media, *caller.Dialogue("4000")->FarAudio()},
                 {&trial_->CalleeMedia(1), *CalleeAgent().Dialogue("4000")->FarAudio()}, kTalk);
  ExpectTheyTalk(Caller(), Callee(), kTalk);
  ExpectApi("hupall", "+OK hangup all channels with cause MANAGER_REQUEST\n");
  const auto exit = caller.WaitForExit(seconds(30));
  EXPECT_TRUE(exit && exit->Succeeded()) << caller.Account();
  ExpectHungUp();
  ExpectEndedWell();
}

TEST_F(SampleNumber, N3000LeadsToPhoneAWhenPhoneBHasRungForTenSeconds) {
  StartWithPhoneB("callee_never_answers", Dialling("3000"));
  ExpectCallsToCarrySpeech(1);
  const SipDialogue rang = phone_b_->Agent().Dialogues().at(0);
  ASSERT_NE(rang.Request("CANCEL", false), nullptr) << rang.Flow();
  EXPECT_GE(rang.Request("CANCEL", false)->at - rang.Request("INVITE", false)->at, milliseconds(9000));
  phone_b_->ExpectDone();
  EndWell();
}

TEST_F(SampleNumber, N3000IsBusyWhenBothPhonesAre) {
  CalledPhone busy_a("busy_a", directory_.Path(), "callee_is_busy");
  CalledPhone busy_b("busy_b", directory_.Path(), "callee_is_busy");
  switch_settings_.variables.emplace_back("phone_a", busy_a.Address().ToString());
  StartSwitch(busy_b.Address().ToString());
  EXPECT_EQ(RefusedWith("caller_is_refused", "3000"), 486);
  busy_b.ExpectDone();
  busy_a.ExpectDone();
  ExpectEndedWell();
}

TEST_F(SampleNumber, N3001IsSilentUntilTheCallIsSentOn) {
  CallTrialSettings settings = Dialling("3001");
  StartPhones(settings);
  Dial();
  ASSERT_TRUE(switch_->WaitForLog("Parked", seconds(20)));
  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    const auto calls = CallerAgent().Dialogues();
    return !calls.empty() && calls.front().Established();
  }));
  const Party caller{&trial_->CallerMedia(0), *CallerAgent().Dialogues().at(0).FarAudio()};
  ExpectUnheard(caller, caller);  // nothing comes back, nothing comes
  ExpectApi("uuid_transfer " + LegOf("inbound") + " 2000", "+OK\n");
  trial_->WaitEstablished(seconds(20));
  ExpectTheyTalk(Caller(), Callee(), kTalk);
  EndWell();
}

TEST_F(SampleNumber, N3002LeadsWhere2000Does) {
  TalkAt("3002");
  const auto* invite = trial_->Calls().at(0).callee.Request("INVITE", false);
  EXPECT_EQ(invite->start_line.substr(0, 16), "INVITE sip:2000@");
  EndWell();
}

}  // namespace
}  // namespace end_to_end
