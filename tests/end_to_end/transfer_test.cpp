// Transfers: who remains talks to somebody else, through the same port of the media server.

#include <gtest/gtest.h>

#include <algorithm>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtpPhone;
using test_support::SdpAudio;
using test_support::SipDialogue;
using test_support::SippAgent;
using test_support::SippSettings;

/// A phone of the call after the transfer: where it hears, and what it and the switch told each other.
struct Party {
  RtpPhone* phone;
  SdpAudio own;
  SdpAudio far;
};

std::string tag_of(const std::string& header) {
  const std::size_t start = header.find(";tag=") + 5;
  return header.substr(start, header.find(';', start) - start);
}

class TransferCalls : public SwitchCall {
 protected:
  /// A trial call, and "1000" reaches a third phone that answers and hangs up in the end.
  void StartWithThreePhones(CallTrialSettings settings) {
    settings.talk = seconds(1);
    SippSettings target;
    target.name = "target";
    target.scenario = "callee_hangs_up";
    target.directory = directory_.Path();
    target.calls.resize(1);
    target.calls[0].number = "1000";
    target.calls[0].media_port = target_phone_.Port();
    target.hold = seconds(6);
    target.limit = seconds(60);
    target_ = std::make_unique<SippAgent>(target);
    switch_settings_.variables.emplace_back("phone_a", target_->Address().ToString());
    StartWithPhones(settings);
  }

  /// A further caller, with the trial's call in its fields as the called phone's dialog names it.
  std::unique_ptr<SippAgent> CallAbout(const std::string& scenario, const std::string& dialled, RtpPhone& phone) {
    const auto* invite = trial_->Calls().at(0).callee.Request("INVITE", false);
    const auto* answer = trial_->Calls().at(0).callee.Answer(200, "INVITE", true);
    SippSettings settings;
    settings.name = "third";
    settings.scenario = scenario;
    settings.dialled = dialled;
    settings.remote = switch_->Sip();
    settings.directory = directory_.Path();
    settings.calls.resize(1);
    settings.calls[0].number = "4000";
    settings.calls[0].media_port = phone.Port();
    settings.calls[0].other_call = invite->CallId();
    settings.calls[0].other_to_tag = tag_of(invite->Header("From"));
    settings.calls[0].other_from_tag = tag_of(answer->Header("To"));
    settings.hold = milliseconds(300);
    return std::make_unique<SippAgent>(settings);
  }

  static Party PartyOf(const SippAgent& agent, RtpPhone& phone) {
    const SipDialogue dialogue = agent.Dialogues().at(0);
    return {&phone, dialogue.OwnAudio().value(), dialogue.FarAudio().value()};
  }

  Party Caller() {
    const auto& view = trial_->Calls().at(0);
    return {&trial_->CallerPhone(0), view.caller_own, view.caller_far};
  }

  test_support::RtpDirectionSettings Direction(const Party& from, const Party& to, std::uint32_t seed) const {
    test_support::RtpDirectionSettings direction;
    direction.talk = test_support::random_talk(seed);
    direction.talk.length = seconds(1);
    direction.to = {from.far.address, from.far.port};
    direction.expected.from = test_support::UdpAddress{to.far.address, to.far.port}.ToString();
    direction.expected.relays_source = IsOnRtpengine();
    return direction;
  }

  void ExpectToTalk(const Party& one, const Party& other) const {
    test_support::RtpCallSettings call;
    call.caller = one.phone;
    call.callee = other.phone;
    call.to_callee = Direction(one, other, 101);
    call.to_caller = Direction(other, one, 202);
    const auto result = test_support::exchange_rtp({call}).at(0);
    EXPECT_TRUE(result.to_callee.Passed()) << result.to_callee.Reasons();
    EXPECT_TRUE(result.to_caller.Passed()) << result.to_caller.Reasons();
    EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
    EXPECT_EQ(result.to_caller.received, result.to_caller.sent);
  }

  static void ExpectDone(SippAgent& agent) {
    const auto exit = agent.WaitForExit(seconds(30));
    EXPECT_TRUE(exit && exit->Succeeded()) << agent.Account();
  }

  bool Reached(SippAgent& agent) {
    return test_support::wait_until(seconds(15), [&agent] {
      const auto dialogues = agent.Dialogues();
      return !dialogues.empty() && dialogues.front().Established();
    });
  }

  RtpPhone target_phone_;
  std::unique_ptr<SippAgent> target_;
};

class Transfer : public OnEachDriver<TransferCalls> {};

TEST_P(Transfer, TheCallerTalksToWhomTheCalledPhoneNamed) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee_refers";
  StartWithThreePhones(settings);
  ExpectCallsToCarrySpeech(1);
  const Party caller = Caller();
  ASSERT_TRUE(Reached(*target_)) << target_->Account() << trial_->Account();
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(10))) << "told of the target's answer, and sent away";
  ExpectToTalk(caller, PartyOf(*target_, target_phone_));
  ExpectCallsUp(1);
  EXPECT_NE(target_->Dialogues().at(0).Request("INVITE", false)->Header("Referred-By"), "");
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  ExpectDone(*target_);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Transfer, TwoCallsOfOnePhoneAreJoined) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee";
  StartWithThreePhones(settings);
  ExpectCallsToCarrySpeech(1);
  const Party caller = Caller();
  RtpPhone asker_phone;
  const auto asker = CallAbout("caller_joins_calls", "1000", asker_phone);
  ASSERT_TRUE(Reached(*target_)) << target_->Account() << asker->Account();
  ExpectDone(*asker);
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(10))) << "both calls of who asked have ended";
  ExpectCallsUp(1);  // one leg has moved to the other's media session
  ExpectToTalk(caller, PartyOf(*target_, target_phone_));
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  ExpectDone(*target_);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(Transfer, ACallTakesThePlaceOfAnother) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller";
  settings.callee_scenario = "callee";
  settings.hold_margin = seconds(6);
  StartWithThreePhones(settings);
  ExpectCallsToCarrySpeech(1);
  RtpPhone third_phone;
  const auto third = CallAbout("caller_replaces", "2000", third_phone);
  ASSERT_TRUE(Reached(*third)) << third->Account();
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(10)));
  ExpectToTalk(Caller(), PartyOf(*third, third_phone));
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  ExpectDone(*third);
  ExpectAtRest();
  ExpectCleanStop();
}

class TransferBetweenDrivers : public TransferCalls {
 protected:
  /// One of the sample's media servers, and a daemon in the place of the other.
  void StartWithOneOfEach(const CallTrialSettings& settings) {
    const std::string second =
        "<driver>embedded</driver>\n      <mac>02:00:00:00:00:02</mac>\n      <address>127.0.0.2";
    Configuration().Replace("jsr309.xml", second,
                            "<driver>rtpengine</driver>\n      <mac>02:00:00:00:00:02</mac>\n      <control>" +
                                test_support::UdpAddress{daemon_.Address(), daemon_.ControlPort()}.ToString() +
                                "</control>\n      <heartbeat_ms>20000</heartbeat_ms>\n      <address>" +
                                daemon_.Address());
    StartWithThreePhones(settings);
  }

  /// Whether that phone was told of that.
  static bool WasNotified(const SippAgent& phone, const std::string& status_line) {
    const SipDialogue dialogue = phone.Dialogues().at(0);
    return std::any_of(dialogue.Messages().begin(), dialogue.Messages().end(), [&](const auto& message) {
      return !message.sent && message.Method() == "NOTIFY" && message.body.rfind(status_line, 0) == 0;
    });
  }

  test_support::RtpengineDaemon daemon_;
};

// The legs of the one cannot be moved to the other. Who asked for it is told, and nobody stays in a call alone.
TEST_F(TransferBetweenDrivers, IsRefusedWithTheirPlacesNamedAndEndsTheCalls) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee";
  StartWithOneOfEach(settings);
  ExpectCallsToCarrySpeech(1);
  ASSERT_EQ(Caller().far.address, "127.0.0.1");
  RtpPhone asker_phone;
  const auto asker = CallAbout("caller_joins_calls", "1000", asker_phone);
  ASSERT_TRUE(Reached(*target_)) << target_->Account() << asker->Account();
  EXPECT_EQ(PartyOf(*target_, target_phone_).far.address, daemon_.Address());
  ExpectLogLine({"[ERR]", "Refused import of endpoint ",
                 ": it is on media server 127.0.0.1, whose driver is not that of " + daemon_.Address()});
  // Told of another end than these two wait for.
  for (SippAgent* phone : {asker.get(), target_.get()})
    EXPECT_TRUE(phone->WaitForExit(seconds(30))) << phone->Account();
  EXPECT_TRUE(WasNotified(*asker, "SIP/2.0 503 ")) << asker->Account();
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(20)));
  ExpectAtRest();
  EXPECT_TRUE(test_support::wait_until(seconds(10), [this] { return daemon_.Calls() == 0; }));
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

INSTANTIATE_TEST_SUITE_P(Over, Transfer, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
