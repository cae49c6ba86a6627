// A media server that stops serving under running calls: it alone loses them, and comes back.

#include <gtest/gtest.h>

#include <algorithm>

#include "ordered_call.h"
#include "support/process_threads.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;
using test_support::SipDialogue;
using test_support::SipMessage;
using test_support::StoppedThreads;

constexpr std::size_t kWorkers = 2;  // of each media server of the sample

class MediaServerLoss : public OnEachDriver<SwitchCall> {
 protected:
  /// Phones at 2000, whose calls are to be lost, and at 1000, which talk for longer than it takes to find that out.
  void StartWithPhonesAtBothNumbers() {
    CallTrialSettings ones;
    ones.calls = 4;
    ones.talk = milliseconds(500);
    ones_ = Phones("ones", ones);
    CallTrialSettings others;
    others.calls = 2;
    others.dialled = "1000";
    others.talk = seconds(6);
    others_ = Phones("others", others);
    switch_settings_.variables = {{"phone_a", others_->CalleeAddress().ToString()}};
    StartSwitch(ones_->CalleeAddress().ToString());
  }

  void Establish(CallTrial& trial, std::size_t calls, const std::string& at) {
    trial.Dial(switch_->Sip(), calls);
    trial.WaitEstablished(seconds(30));
    for (const auto& call : trial.Calls()) {
      EXPECT_EQ(call.caller_far.address, at);
      EXPECT_EQ(call.callee_far.address, at);
    }
  }

  static void ExpectSpeech(CallTrial& trial) {
    for (const auto& result : trial.Talk()) {
      EXPECT_TRUE(result.to_callee.Passed()) << "to the callee: " << result.to_callee.Reasons();
      EXPECT_TRUE(result.to_caller.Passed()) << "to the caller: " << result.to_caller.Reasons();
      EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
      EXPECT_EQ(result.to_caller.received, result.to_caller.sent);
    }
  }

  void Service(const std::string& state, const std::string& server) {
    const CliRun run = Cli({"-x", "kvrms_control service " + state + " ip " + server});
    EXPECT_EQ(run.code, 0) << run.output;
    EXPECT_NE(run.output.find("Media Server " + server + " is put"), std::string::npos) << run.output;
  }

  /// Each phone was hung up once, and told why.
  static void ExpectEndedOnce(const std::vector<SipDialogue>& phones, std::size_t calls) {
    ASSERT_EQ(phones.size(), calls);
    for (const SipDialogue& phone : phones) {
      const auto is_bye = [](const SipMessage& m) { return m.IsRequest() && m.Method() == "BYE"; };
      EXPECT_EQ(count_messages(phone, is_bye), 1u) << phone.Flow();
      const auto* bye = phone.Request("BYE", false);
      ASSERT_NE(bye, nullptr) << phone.Flow();
      EXPECT_EQ(bye->Header("Reason"), "Q.850;cause=27;text=\"DESTINATION_OUT_OF_ORDER\"");
    }
  }

  /// The first media server serves no more: its threads are stopped, or its process is killed.
  void StopTheFirst() {
    if (IsOnRtpengine()) return fleet_->At(0).Kill();
    workers_ = std::make_unique<StoppedThreads>(switch_->Pid(), "media-worker", 0, kWorkers);
  }
  void ContinueTheFirst() {
    if (IsOnRtpengine()) return fleet_->At(0).Start();
    workers_->Continue();
  }

  void HangUpAll() { EXPECT_EQ(switch_->Api("hupall"), "+OK hangup all channels with cause MANAGER_REQUEST\n"); }

  std::unique_ptr<CallTrial> ones_;
  std::unique_ptr<CallTrial> others_;

 private:
  std::unique_ptr<StoppedThreads> workers_;
  std::unique_ptr<CallTrial> Phones(const std::string& name, CallTrialSettings settings) {
    settings.caller_scenario = "caller_awaits_bye";
    settings.relays_source = IsOnRtpengine();
    settings.directory = directory_.Path() / name;
    std::filesystem::create_directory(settings.directory);
    return std::make_unique<CallTrial>(settings);
  }
};

TEST_P(MediaServerLoss, EndsItsCallsOnceEachLeavesTheOthersAloneAndIsMadeGood) {
  StartWithPhonesAtBothNumbers();
  Service("down", MediaServerAddress(1));
  Establish(*ones_, 2, MediaServerAddress(0));
  ExpectSpeech(*ones_);
  Service("up", MediaServerAddress(1));
  Service("down", MediaServerAddress(0));
  Establish(*others_, 2, MediaServerAddress(1));
  Service("up", MediaServerAddress(0));

  StopTheFirst();
  ExpectSpeech(*others_);
  ones_->WaitHungUp(seconds(60));
  ExpectEndedOnce(ones_->Caller().Dialogues(), 2);
  ExpectEndedOnce(ones_->Callee().Dialogues(), 2);
  ExpectLogLine({"02:00:00:00:00:01", "Media server lost, sessions affected: 2"});
  EXPECT_EQ(switch_->Log().find("02:00:00:00:00:02 - Media server lost"), std::string::npos);

  // Emptier, and back in service, but not there.
  Establish(*ones_, 1, MediaServerAddress(1));
  ExpectSpeech(*ones_);
  HangUpAll();
  ones_->WaitHungUp(seconds(30));
  others_->WaitHungUp(seconds(30));
  others_->WaitCalleeDone(seconds(30));

  ContinueTheFirst();
  ExpectLogLine({"02:00:00:00:00:01", "Media server back"});
  Establish(*ones_, 1, MediaServerAddress(0));
  ExpectSpeech(*ones_);
  HangUpAll();
  ones_->WaitHungUp(seconds(30));
  ones_->WaitCalleeDone(seconds(30));
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
  const auto errors = test_support::error_lines(switch_->Log());
  EXPECT_EQ(std::count_if(errors.begin(), errors.end(),
                          [](const std::string& line) { return line.find("Media server lost") != std::string::npos; }),
            1);
}

INSTANTIATE_TEST_SUITE_P(Over, MediaServerLoss, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
