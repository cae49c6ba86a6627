#include "fleet_demo.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "account.h"
#include "support/process_child.h"
#include "support/rtp_fax.h"
#include "support/rtpengine_fleet.h"
#include "support/sipp_call_trial.h"
#include "support/switch_process.h"
#include "support/switch_process_rest.h"

namespace kvx_demo {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;
using test_support::RtpCallResult;
using test_support::SipDialogue;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kChecks = 22;
constexpr const char* kSuite = "AES_CM_128_HMAC_SHA1_80";
constexpr std::size_t kCalls = 100;
constexpr unsigned kHeartbeatMs = 2000;
/// lost_events_per_second of the sample configuration, which says nothing of it.
constexpr std::size_t kLostEventsPerSecond = 100;
/// For the signalling of the last hang-up.
constexpr milliseconds kSignalling{1500};
constexpr const char* kCauseOfLoss = "cause=27";  // Q.850, destination out of order

std::string Milliseconds(Clock::duration time) {
  return std::to_string(std::chrono::duration_cast<milliseconds>(time).count()) + " ms";
}

class FleetDemo {
 public:
  int Run() {
    account_.Title(
        "Calls through the switch over two rtpengine daemons, one of which is killed under a hundred calls.");
    Attempt([this] {
      Start();
      SpeakingCalls();
      SecureCall();
      FaxCall();
      KillOneUnderLoad();
      CallTheOther();
      EndTheRest();
      BringItBack();
    });
    if (switch_ && switch_->Running()) {
      Attempt([this] { Stop(); });
    } else if (switch_) {
      account_.Failure("the switch ended before it was told to");
    }
    if (account_.Failed() && switch_) {
      account_.Step("What the switch wrote last");
      account_.Title(test_support::last_lines(switch_->Log(), 40));
    }
    return account_.Verdict(kChecks) ? 0 : 1;
  }

 private:
  void Attempt(const std::function<void()>& steps) {
    try {
      steps();
    } catch (const std::exception& error) {
      account_.Failure(error.what());
    }
  }

  std::unique_ptr<CallTrial> Phones(const std::string& name, CallTrialSettings settings, std::uint16_t port = 0) {
    settings.directory = directory_.Path() / name;
    std::filesystem::create_directory(settings.directory);
    settings.callee_port = port;
    settings.relays_source = true;
    return std::make_unique<CallTrial>(settings);
  }

  void Start() {
    account_.Step("Start");
    fleet_ = std::make_unique<test_support::RtpengineFleet>(2);
    for (std::size_t i = 0; i < 2; ++i) {
      test_support::RtpengineDaemon& daemon = fleet_->At(i);
      account_.Fact("rtpengine " + std::to_string(i + 1),
                    "process " + std::to_string(daemon.Pid()) + (geteuid() == 0 ? " of nobody's" : "") + ", media on " +
                        daemon.Address() + ", commands at port " + std::to_string(daemon.ControlPort()));
    }
    fleet_->PutInto(configuration_, kHeartbeatMs);
    CallTrialSettings speaking;
    speaking.calls = 2;
    speaking.talk = seconds(4);
    speaking.caller_digits = "1234*";
    speaking.callee_digits = "90#";
    trial_ = Phones("speaking", speaking);
    CallTrialSettings later;
    later.calls = 6;
    later.dialled = "1000";
    later_ = Phones("later", later);
    test_support::SwitchProcessSettings settings;
    settings.directory = directory_.Path();
    settings.conf = configuration_.Path();
    settings.variables = {{"phone_b", trial_->CalleeAddress().ToString()},
                          {"phone_a", later_->CalleeAddress().ToString()},
                          {"rtp_secure_media", "optional"}};
    switch_ = std::make_unique<test_support::SwitchProcess>(settings);
    switch_->WaitReady();
    account_.Fact("switch", "kvx-switch, process " + std::to_string(switch_->Pid()));
    before_ = switch_->SettledHoldings();
    account_.Fact("it holds", before_.ToString());
  }

  std::size_t On(std::size_t daemon, const CallTrial& trial) const {
    const auto& calls = trial.Calls();
    return static_cast<std::size_t>(std::count_if(calls.begin(), calls.end(), [&](const test_support::CallView& call) {
      return call.caller_far.address == fleet_->At(daemon).Address() &&
             call.callee_far.address == fleet_->At(daemon).Address();
    }));
  }

  static bool AllHeard(const RtpCallResult& result) {
    return result.Passed() && result.to_callee.received == result.to_callee.sent &&
           result.to_caller.received == result.to_caller.sent;
  }
  static std::string HeardOf(const test_support::RtpComparison& heard) {
    return std::to_string(heard.received) + " of " + std::to_string(heard.sent) + " " + heard.Reasons();
  }
  void CheckSpeech(const std::string& what, const std::vector<RtpCallResult>& results, std::size_t calls) {
    std::string reasons = results.size() == calls ? "" : std::to_string(results.size()) + " calls have spoken";
    for (const RtpCallResult& result : results) {
      if (!AllHeard(result) && reasons.empty()) {
        reasons = "to the callee " + HeardOf(result.to_callee) + "; to the caller " + HeardOf(result.to_caller);
      }
    }
    account_.Check(reasons.empty(), what + ": all that was said arrived both ways as it was sent", reasons);
  }

  void SpeakingCalls() {
    account_.Step("Two calls: speech and dialled digits");
    trial_->Dial(switch_->Sip(), 2);
    trial_->WaitEstablished(seconds(20));
    account_.Check(On(0, *trial_) == 1 && On(1, *trial_) == 1, "one call on each daemon, both legs of it",
                   trial_->Account());
    CheckSpeech("both calls", trial_->Talk(), 2);
    End(*trial_);
    CheckRest();
  }

  void End(CallTrial& trial) {
    trial.WaitHungUp(seconds(30));
    trial.WaitCalleeDone(seconds(10));
  }

  void CheckRest() {
    const auto rest = test_support::await_rest(*switch_, before_, seconds(10));
    account_.Check(rest.AtRest(), "afterwards: 0 legs, 0 media sessions, descriptors, threads and ports as before",
                   rest.Faults());
  }

  void PlaceCall(const std::string& name, const CallTrialSettings& settings) {
    const std::uint16_t port = trial_->CalleeAddress().port;
    trial_.reset();
    trial_ = Phones(name, settings, port);
    trial_->Dial(switch_->Sip(), settings.calls);
    trial_->WaitEstablished(seconds(60));
  }

  void SecureCall() {
    account_.Step("Encrypted call: SRTP on both legs, under keys of their own");
    CallTrialSettings call;
    call.caller_srtp = call.callee_srtp = kSuite;
    call.dialled = "2002";
    PlaceCall("secure", call);
    const auto& view = trial_->Calls().at(0);
    account_.Check(!view.caller_far.crypto.empty() && view.caller_far.crypto != view.callee_far.crypto,
                   "each leg has a key of its own");
    CheckSpeech("encrypted", trial_->Talk(), 1);
    End(*trial_);
  }

  static std::optional<test_support::UdpAddress> ImageOffered(const test_support::SippAgent& phone) {
    const SipDialogue dialogue = phone.Dialogues().at(0);
    for (const auto& message : dialogue.Messages()) {
      if (message.sent) continue;
      if (const auto image = test_support::parse_sdp_image(message.body)) return image;
    }
    return std::nullopt;
  }
  std::size_t AcknowledgedByCaller() const {
    const SipDialogue dialogue = trial_->Caller().Dialogues().at(0);
    const auto& messages = dialogue.Messages();
    return static_cast<std::size_t>(
        std::count_if(messages.begin(), messages.end(),
                      [](const test_support::SipMessage& message) { return message.Method() == "ACK"; }));
  }

  void FaxCall() {
    account_.Step("Fax: the call turns to T.38 and back to audio");
    CallTrialSettings call;
    call.talk = seconds(1);
    call.hold_margin = milliseconds(1000);
    call.caller_scenario = "caller_faxes";
    call.callee_scenario = "callee_faxes";
    PlaceCall("fax", call);
    const bool turned = test_support::wait_until(seconds(10), [this] { return AcknowledgedByCaller() >= 2; });
    const auto to_callee = ImageOffered(trial_->Caller()), to_caller = ImageOffered(trial_->Callee());
    if (!account_.Check(turned && to_callee && to_caller, "both phones were told where fax goes", trial_->Account())) {
      return;
    }
    const auto fax = test_support::exchange_fax(trial_->CallerPhone(0), *to_callee, trial_->CalleePhone(0), *to_caller,
                                                60, 1400, milliseconds(500));
    account_.Check(fax.to_callee.Passed() && fax.to_caller.Passed(),
                   "there: " + fax.to_callee.ToString() + "; back: " + fax.to_caller.ToString());
    const bool back = test_support::wait_until(seconds(10), [this] { return AcknowledgedByCaller() >= 3; });
    CheckSpeech("then, as a call again", back ? trial_->Talk() : std::vector<RtpCallResult>(), 1);
    End(*trial_);
  }

  void KillOneUnderLoad() {
    account_.Step("A hundred calls, and one daemon is killed");
    CallTrialSettings many;
    many.calls = kCalls;
    many.caller_scenario = "caller_awaits_bye";
    many.calls_per_second = 25;
    many.talk = seconds(10);
    PlaceCall("many", many);
    const std::size_t lost = On(0, *trial_), kept = On(1, *trial_);
    account_.Check(lost + kept == kCalls && lost >= 45 && lost <= 55,
                   std::to_string(lost) + " calls on the one daemon, " + std::to_string(kept) + " on the other");
    auto talk = std::async(std::launch::async, [this] { return trial_->Talk(); });
    std::this_thread::sleep_for(seconds(3));  // everybody talks
    fleet_->At(0).Kill();
    const auto killed = Clock::now();
    const auto counted = [this](std::size_t calls) {
      return test_support::wait_until(
          seconds(60), [&] { return test_support::ask_counts(*switch_).media_sessions <= static_cast<long>(calls); });
    };
    counted(kCalls - 1);
    const auto first = Clock::now();
    const bool ended = counted(kept);
    const auto last = Clock::now();
    account_.Fact("killed", "first call over after " + Milliseconds(first - killed) + ", the last " +
                                Milliseconds(last - first) + " later");
    const auto pace = milliseconds(1000 * (lost - 1) / kLostEventsPerSecond);
    account_.Check(ended && last - killed <= milliseconds(kHeartbeatMs) + pace + kSignalling,
                   "its calls have ended within the heartbeat and the pace of " + std::to_string(kLostEventsPerSecond) +
                       " a second");
    account_.Check(last - first >= pace * 8 / 10, "and not all at once");
    CheckSurvivors(talk.get(), kept);
    CheckEnds(lost);
  }

  void CheckSurvivors(const std::vector<RtpCallResult>& results, std::size_t kept) {
    std::vector<RtpCallResult> survivors;
    for (std::size_t i = 0; i < results.size(); ++i) {
      if (trial_->Calls().at(i).caller_far.address == fleet_->At(1).Address()) survivors.push_back(results[i]);
    }
    CheckSpeech("the " + std::to_string(kept) + " calls on the other daemon", survivors, kept);
  }

  /// Each phone of a lost call got one BYE, with the cause; the others got none.
  void CheckEnds(std::size_t lost) {
    std::size_t told = 0, wrong = 0;
    for (const SipDialogue& dialogue : trial_->Caller().Dialogues()) {
      std::size_t byes = 0, right = 0;
      for (const auto& message : dialogue.Messages()) {
        if (message.sent || !message.IsRequest() || message.Method() != "BYE") continue;
        ++byes;
        if (message.Header("Reason").find(kCauseOfLoss) != std::string::npos) ++right;
      }
      if (byes == 1 && right == 1) ++told;
      if (byes > 1 || byes != right) ++wrong;
    }
    account_.Check(told == lost && wrong == 0, "each of its callers was told once: Q.850 cause 27",
                   std::to_string(told) + " were told, " + std::to_string(wrong) + " wrongly");
    const std::string log = switch_->Log();
    const std::string line = "Media server lost, sessions affected: " + std::to_string(lost);
    const std::size_t at = log.find(line);
    account_.Check(at != std::string::npos && log.find("Media server lost", at + 1) == std::string::npos,
                   "the loss is in the log, once: \"" + line + "\"");
  }

  void CallTheOther() {
    account_.Step("New calls while it is gone");
    later_->Dial(switch_->Sip(), 2);
    later_->WaitEstablished(seconds(20));
    account_.Check(On(1, *later_) == 2, "they are on the other daemon", later_->Account());
    CheckSpeech("new calls", later_->Talk(), 2);
    later_->WaitHungUp(seconds(30));
  }

  void EndTheRest() {
    switch_->Api("hupall");
    trial_->WaitHungUp(seconds(60));
    CheckRest();
  }

  void BringItBack() {
    account_.Step("It is started again");
    fleet_->At(0).Start();
    account_.Check(switch_->WaitForLog("Media server back", seconds(30)), "the switch has noticed");
    later_->Dial(switch_->Sip(), 4);
    later_->WaitEstablished(seconds(20));
    account_.Check(On(0, *later_) >= 1, std::to_string(On(0, *later_)) + " of 4 new calls are on it",
                   later_->Account());
    CheckSpeech("new calls", later_->Talk(), 4);
    End(*later_);
    CheckRest();
  }

  void Stop() {
    account_.Step("Stop: SIGINT");
    switch_->Interrupt();
    const auto exit = switch_->WaitForExit(seconds(20));
    account_.Check(exit && exit->Succeeded(), "the switch ended with exit code 0",
                   exit ? exit->ToString() : "it still runs after 20 s");
  }

  Account account_;
  test_support::TemporaryDirectory directory_;
  std::unique_ptr<test_support::RtpengineFleet> fleet_;
  test_support::ConfigurationCopy configuration_;
  std::unique_ptr<CallTrial> trial_, later_;
  std::unique_ptr<test_support::SwitchProcess> switch_;
  test_support::ProcessHoldings before_;
};

}  // namespace

int RunFleetDemo() {
  return FleetDemo().Run();
}

}  // namespace kvx_demo
