// Legs that go on elsewhere while they are up: their media follows them, and nothing of it stays behind.

#include <gtest/gtest.h>

#include "sent_on_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;

class SentOnCall : public OnEachDriver<SentOn> {
 protected:
  static CallTrialSettings Patient() {
    CallTrialSettings settings;
    settings.caller_scenario = "caller_awaits_bye";
    return settings;
  }
};

TEST_P(SentOnCall, CallerTalksToTheNewPartyAndTheOldOneHearsNothing) {
  StartWithCarol(Patient());
  TalkToCallee();
  const std::string leg = LegOf("inbound");
  ExpectApi("uuid_transfer " + leg + " 1000", "+OK\n");
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(20))) << "the old party is hung up";
  carol_->WaitEstablished("3000");
  ExpectNothingReaches(Callee(), [this] { ExpectTheyTalk(Caller(), Carol()); });
  ExpectCallsUp(1);
  ExpectApi("uuid_kill " + leg, "+OK\n");
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  carol_->ExpectDone();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SentOnCall, CalleeTakesItsMediaAlongToTheNewParty) {
  StartWithCarol(Patient());
  TalkToCallee();
  const std::string callee = LegOf("outbound");
  ExpectApi("uuid_transfer " + LegOf("inbound") + " -bleg 1000", "+OK\n");
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20))) << "the caller is hung up";
  carol_->WaitEstablished("2000");
  ExpectNothingReaches(Caller(), [this] { ExpectTheyTalk(Callee(), Carol()); });
  ExpectApi("uuid_kill " + callee, "+OK\n");
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(20)));
  carol_->ExpectDone();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SentOnCall, BothLegsMayBeParkedAndHearNothingOfEachOther) {
  StartWithCarol(Patient());
  TalkToCallee();
  ExpectApi("uuid_transfer " + LegOf("inbound") + " -both 3001", "+OK\n");
  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    const std::string channels = switch_->Api("show channels");
    return channels.find("CS_PARK") != channels.rfind("CS_PARK");
  }));
  // Both speak; a parked leg's media goes nowhere.
  ExpectNothingReaches(Caller(), [this] {
    ExpectNothingReaches(Callee(), [this] {
      for (const Party& party : {Caller(), Callee()}) {
        test_support::RtpTalk talk(test_support::random_talk(7));
        for (int packet = 0; packet < 20; ++packet) {
          party.media->Rtp().SendTo({party.far.address, party.far.port}, test_support::serialise_rtp(talk.Prime()));
        }
      }
      test_support::wait_until(milliseconds(300), [] { return false; });  // far longer than a packet takes
    });
  });
  ExpectApi("hupall", "+OK hangup all channels with cause MANAGER_REQUEST\n");
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(20)));
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(20)));
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SentOnCall, ParkedCallerIsSentToAPhone) {
  CallTrialSettings settings = Patient();
  settings.dialled = "3001";
  StartWithCarol(settings);
  trial_->Dial(switch_->Sip(), 1);
  ASSERT_TRUE(switch_->WaitForLog("Parked", seconds(20)));
  ASSERT_TRUE(test_support::wait_until(seconds(10), [this] {
    const auto calls = trial_->Caller().Dialogues();
    return !calls.empty() && calls.front().Established();
  }));
  const std::string leg = LegOf("inbound");
  ExpectApi("uuid_transfer " + leg + " 2000", "+OK\n");
  trial_->WaitEstablished(seconds(20));
  ExpectTheyTalk(Caller(), Callee());
  ExpectApi("uuid_kill " + leg, "+OK\n");
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(SentOnCall, ByTheDialplanLeadsToAnotherNumber) {
  CallTrialSettings settings;
  settings.dialled = "3002";
  StartWithPhones(settings);
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

class HeldCall : public OnEachDriver<SentOn> {
 protected:
  static std::size_t Arrived(const Party& party) {
    std::size_t heard = 0;
    while (party.media->Rtp().Receive()) ++heard;
    return heard;
  }

  /// A few packets of one party's.
  static void Say(const Party& party) {
    test_support::RtpTalk talk(test_support::random_talk(11));
    for (int packet = 0; packet < 20; ++packet) {
      party.media->Rtp().SendTo({party.far.address, party.far.port}, test_support::serialise_rtp(talk.Prime()));
    }
  }
};

TEST_P(HeldCall, HeldPhoneIsNotHeardUntilItIsTakenBack) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee_is_held";
  StartWithPhones(settings);
  TalkToCallee();
  const std::string callee = LegOf("outbound");
  ExpectApi("uuid_hold " + callee, "+OK Success\n");
  ASSERT_TRUE(switch_->WaitForLog("The far end only receives now", seconds(20)));
  test_support::wait_until(milliseconds(200), [] { return false; });  // the bridge turns just behind that line
  Arrived(Caller());
  Arrived(Callee());
  Say(Callee());
  Say(Caller());
  EXPECT_TRUE(test_support::wait_until(seconds(5), [this] { return Arrived(Callee()) > 0; })) << "it may listen";
  EXPECT_EQ(Arrived(Caller()), 0u) << "packets of a phone on hold";
  ExpectApi("uuid_hold toggle " + callee, "+OK Success\n");
  ASSERT_TRUE(switch_->WaitForLog("The far end sends and receives now", seconds(20)));
  Arrived(Callee());  // what was said meanwhile
  ExpectTheyTalk(Caller(), Callee());
  ExpectApi("uuid_kill " + callee, "+OK\n");
  ExpectHungUp();
  ExpectAtRest();
  ExpectCleanStop();
}

class BridgeFailover : public SentOn {};

TEST_F(BridgeFailover, SecondPhoneIsCalledWhenTheFirstIsBusy) {
  CallTrialSettings settings;
  settings.dialled = "3000";
  settings.directory = directory_.Path();
  trial_ = std::make_unique<test_support::CallTrial>(settings);
  switch_settings_.variables.emplace_back("phone_a", trial_->CalleeAddress().ToString());
  CalledPhone busy("busy", directory_.Path(), "callee_is_busy");
  StartSwitch(busy.Address().ToString());
  ExpectCallsToCarrySpeech(1);
  ExpectHungUp();
  busy.ExpectDone();
  ExpectAtRest();
  ExpectCleanStop();
}

class OriginatedCall : public OnEachDriver<SentOn> {};

TEST_P(OriginatedCall, CallsTwoPhonesAndJoinsThem) {
  CalledPhone bob("bob", directory_.Path());
  carol_ = std::make_unique<CalledPhone>("carol", directory_.Path());
  StartSwitch();
  const std::string answer = switch_->Api("originate sip:2000@" + bob.Address().ToString() + " &bridge(sip:1000@" +
                                          carol_->Address().ToString() + ") XML default Desk 4711 20");
  ASSERT_EQ(answer.substr(0, 4), "+OK ") << answer;
  bob.WaitEstablished("4711");
  carol_->WaitEstablished("4711");
  ExpectTheyTalk({&bob.Media(), bob.Far()}, Carol());
  ExpectCallsUp(1);
  ExpectApi("uuid_kill " + answer.substr(4, 36), "+OK\n");
  bob.ExpectDone();
  carol_->ExpectDone();
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(OriginatedCall, NamesTheCauseOfABusyPhone) {
  CalledPhone busy("busy", directory_.Path(), "callee_is_busy");
  StartSwitch();
  ExpectApi("originate sip:2000@" + busy.Address().ToString() + " 2000", "-ERR USER_BUSY\n");
  busy.ExpectDone();
  ExpectAtRest();
  ExpectCleanStop();
}

INSTANTIATE_TEST_SUITE_P(Over, SentOnCall, every_media_driver(), media_driver_name);
INSTANTIATE_TEST_SUITE_P(Over, HeldCall, every_media_driver(), media_driver_name);
INSTANTIATE_TEST_SUITE_P(Over, OriginatedCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
