// kvx-demo: one real call through the switch and its media-server module, told step by step and checked from outside.

#include <chrono>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "account.h"
#include "fleet_demo.h"
#include "support/process_child.h"
#include "support/rtp_fax.h"
#include "support/sipp_call_trial.h"
#include "support/switch_process.h"
#include "support/switch_process_rest.h"

namespace kvx_demo {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallView;
using test_support::RtpComparison;
using test_support::SdpAudio;
using test_support::UdpAddress;

constexpr std::size_t kChecks = 26;
constexpr const char* kSuite = "AES_CM_128_HMAC_SHA1_80";

std::string media_of(const SdpAudio& audio) {
  std::string text = UdpAddress{audio.address, audio.port}.ToString();
  for (const auto& codec : audio.codecs) text += "  " + codec.name + "=" + std::to_string(codec.payload_type);
  return text;
}

class Demo {
 public:
  int Run() {
    account_.Title(
        "Calls from phone A to phone B through the switch; the media server carries speech, encrypted speech and fax.");
    Attempt([this] {
      Start();
      Call();
      Talk();
      HangUp();
      SecureCall();
      FaxCall();
      CheckRest();
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

  void Start() {
    account_.Step("Start");
    test_support::CallTrialSettings call;
    call.directory = directory_.Path();
    call.talk = seconds(6);
    call.caller_digits = "1234*";
    call.callee_digits = "90#";
    trial_ = std::make_unique<test_support::CallTrial>(call);
    account_.Fact("phone B", "sipp, waits at " + trial_->CalleeAddress().ToString());

    test_support::SwitchProcessSettings settings;
    settings.directory = directory_.Path();
    settings.variables = {{"phone_b", trial_->CalleeAddress().ToString()}, {"rtp_secure_media", "optional"}};
    switch_ = std::make_unique<test_support::SwitchProcess>(settings);
    switch_->WaitReady();
    account_.Fact("switch", "kvx-switch, process " + std::to_string(switch_->Pid()) + ", configuration conf/");
    account_.Fact("SIP", switch_->Sip().ToString());
    account_.Fact("event socket", switch_->EventSocket().ToString());
    CheckCounts("before the call", 0, 0);
    before_ = switch_->SettledHoldings();
    account_.Fact("it holds", before_.ToString());
  }

  void CheckCounts(const std::string& when, long sessions, long media_sessions) {
    const auto counts = test_support::ask_counts(*switch_);
    account_.Check(counts.sessions == sessions, when + ": " + std::to_string(sessions) + " legs (show channels count)",
                   "there are " + std::to_string(counts.sessions));
    account_.Check(counts.media_sessions == media_sessions,
                   when + ": " + std::to_string(media_sessions) + " media sessions (ms_count_show)",
                   "there are " + std::to_string(counts.media_sessions));
  }

  void Call() {
    account_.Step("Call: phone A dials 2000");
    trial_->Dial(switch_->Sip(), 1);
    trial_->WaitEstablished(seconds(10));
    view_ = trial_->Calls().at(0);
    account_.Fact("A leg", "phone A " + trial_->Caller().Address().ToString() + ":  " + view_.caller.Flow());
    account_.Fact("B leg", "phone B " + trial_->Callee().Address().ToString() + ":  " + view_.callee.Flow());
    account_.Fact("A offers", media_of(view_.caller_own));
    account_.Fact("A is answered", media_of(view_.caller_far));
    account_.Fact("B is offered", media_of(view_.callee_far));
    account_.Fact("B answers", media_of(view_.callee_own));
    ports_ = {view_.caller_far.port, static_cast<std::uint16_t>(view_.caller_far.port + 1), view_.callee_far.port,
              static_cast<std::uint16_t>(view_.callee_far.port + 1)};
    CheckMediaServer();
    CheckCounts("during the call", 2, 1);
  }

  // The addresses in the descriptions that the phones got must be sockets of the process that runs the media server,
  // not each other's: else the call would bypass it.
  void CheckMediaServer() {
    const auto now = test_support::inspect_process(switch_->Pid());
    account_.Fact("it holds now", now.ToString());
    for (const auto& [leg, port] :
         {std::pair<const char*, std::uint16_t>{"A", view_.caller_far.port}, {"B", view_.callee_far.port}}) {
      account_.Check(now.udp_ports.count(port) == 1 && before_.udp_ports.count(port) == 0,
                     std::string("phone ") + leg + " speaks to the media server at port " + std::to_string(port),
                     "the switch's process has not opened it for the call");
    }
    account_.Check(view_.caller_far.port != view_.callee_far.port, "each leg has an endpoint of its own");
  }

  void Talk() {
    account_.Step("Talk: 6 s of speech-like audio and dialled digits in both directions at once");
    const auto results = trial_->Talk();
    if (!account_.Check(results.size() == 1, "both phones have spoken and listened")) return;
    Tell("A to B", results[0].to_callee, "1234*");
    Tell("B to A", results[0].to_caller, "90#");
  }

  void Tell(const std::string& direction, const RtpComparison& heard, const std::string& digits) {
    account_.Fact(direction, std::to_string(heard.sent) + " packets sent, none in the pauses of speech; " +
                                 std::to_string(heard.received) + " arrived; longest time between two: " +
                                 std::to_string(heard.longest_gap.count()) + " ms");
    account_.Fact("", std::to_string(heard.priming_sent) + " sent before to see the path open, " +
                          std::to_string(heard.priming_sent - heard.priming_missed) + " of them arrived");
    account_.Check(heard.Passed() && heard.received == heard.sent && heard.sent > 50,
                   direction + ": all arrived as sent: bytes, order, number, times, under one SSRC of the media server",
                   heard.Reasons());
    if (digits.empty()) return;
    account_.Check(heard.digits == digits, direction + ": digits " + digits, "heard \"" + heard.digits + "\"");
  }

  void HangUp() {
    account_.Step("Hang-up: phone A says BYE");
    trial_->WaitHungUp(seconds(20));
    trial_->WaitCalleeDone(seconds(10));
    account_.Fact("A leg", trial_->Caller().Dialogues().at(0).Flow());
    account_.Fact("B leg", trial_->Callee().Dialogues().at(0).Flow());
    account_.Check(trial_->Callee().Dialogues().at(0).Request("BYE", false) != nullptr, "phone B was told");
    CheckRest();
    const auto taken = test_support::ports_in_use(*switch_, ports_, seconds(2));
    account_.Check(taken.empty(), "the call's " + std::to_string(ports_.size()) + " RTP and RTCP ports are free again",
                   taken.empty() ? "" : "port " + std::to_string(taken.front()) + " cannot be bound");
  }

  void CheckRest() {
    const auto rest = test_support::await_rest(*switch_, before_, seconds(5));
    account_.Fact("it holds", test_support::inspect_process(switch_->Pid()).ToString());
    account_.Check(rest.AtRest(),
                   "after the call: 0 legs, 0 media sessions (ms_count_show), descriptors, threads and ports as before",
                   rest.Faults());
  }

  // Phone B waits where it waited before: the switch knows no other place.
  void PlaceCall(test_support::CallTrialSettings call) {
    call.directory = directory_.Path();
    call.callee_port = trial_->CalleeAddress().port;
    trial_.reset();
    trial_ = std::make_unique<test_support::CallTrial>(call);
    trial_->Dial(switch_->Sip(), 1);
    trial_->WaitEstablished(seconds(10));
    view_ = trial_->Calls().at(0);
  }

  void SecureCall() {
    account_.Step("Encrypted call: both phones speak SRTP with keys of their own");
    test_support::CallTrialSettings call;
    call.talk = seconds(2);
    call.hold_margin = milliseconds(1500);
    call.caller_srtp = call.callee_srtp = kSuite;
    call.dialled = "2002";
    PlaceCall(call);
    account_.Fact("A is answered", view_.caller_far.transport + ", " + SuiteOf(view_.caller_far));
    account_.Fact("B is offered", view_.callee_far.transport + ", " + SuiteOf(view_.callee_far));
    account_.Check(!view_.caller_far.crypto.empty() && view_.caller_far.crypto != view_.callee_far.crypto,
                   "each leg has a key of its own");
    const auto results = trial_->Talk();
    if (!account_.Check(results.size() == 1, "both phones have spoken and listened")) return;
    Tell("A to B", results[0].to_callee, "");
    Tell("B to A", results[0].to_caller, "");
    trial_->WaitHungUp(seconds(20));
    trial_->WaitCalleeDone(seconds(10));
  }

  // The suite, never the key.
  static std::string SuiteOf(const SdpAudio& audio) {
    const std::size_t start = audio.crypto.find(' ');
    return start == std::string::npos ? "in the clear"
                                      : audio.crypto.substr(start + 1, audio.crypto.find(' ', start + 1) - start - 1);
  }

  void FaxCall() {
    account_.Step("Fax: phone A turns the call to T.38 and back to audio");
    test_support::CallTrialSettings call;
    call.talk = seconds(1);
    call.hold_margin = milliseconds(1000);
    call.caller_scenario = "caller_faxes";
    call.callee_scenario = "callee_faxes";
    PlaceCall(call);
    const bool turned = test_support::wait_until(seconds(10), [this] { return AcknowledgedByA() >= 2; });
    const auto to_b = ImageOffered(trial_->Caller());
    const auto to_a = ImageOffered(trial_->Callee());
    if (!account_.Check(turned && to_b && to_a, "both phones were told where fax goes", trial_->Account())) return;
    const auto fax = test_support::exchange_fax(trial_->CallerPhone(0), *to_b, trial_->CalleePhone(0), *to_a, 60, 1400,
                                                milliseconds(500));
    account_.Check(fax.to_callee.Passed(), "A to B: " + fax.to_callee.ToString());
    account_.Check(fax.to_caller.Passed(), "B to A: " + fax.to_caller.ToString());
    const bool back = test_support::wait_until(seconds(10), [this] { return AcknowledgedByA() >= 3; });
    const auto results = back ? trial_->Talk() : std::vector<test_support::RtpCallResult>{};
    account_.Check(
        results.size() == 1 && results[0].Passed(), "then both hear each other again",
        results.empty() ? trial_->Account() : results[0].to_callee.Reasons() + results[0].to_caller.Reasons());
    trial_->WaitHungUp(seconds(20));
    trial_->WaitCalleeDone(seconds(10));
  }

  std::size_t AcknowledgedByA() const {
    const test_support::SipDialogue dialogue = trial_->Caller().Dialogues().at(0);
    std::size_t count = 0;
    for (const auto& message : dialogue.Messages()) count += message.Method() == "ACK" ? 1 : 0;
    return count;
  }

  // The first place for fax that the switch named to the phone.
  static std::optional<UdpAddress> ImageOffered(const test_support::SippAgent& phone) {
    const test_support::SipDialogue dialogue = phone.Dialogues().at(0);
    std::optional<UdpAddress> image;
    for (const auto& message : dialogue.Messages()) {
      if (!message.sent && !image) image = test_support::parse_sdp_image(message.body);
    }
    return image;
  }

  void Stop() {
    account_.Step("Stop: SIGINT");
    switch_->Interrupt();
    const auto exit = switch_->WaitForExit(seconds(10));
    account_.Check(exit && exit->Succeeded(), "the switch ended with exit code 0",
                   exit ? exit->ToString() : "it still runs after 10 s");
    const auto errors = test_support::error_lines(switch_->Log());
    account_.Check(errors.empty(), "its log has no error", errors.empty() ? "" : errors.front());
  }

  Account account_;
  test_support::TemporaryDirectory directory_;
  std::unique_ptr<test_support::CallTrial> trial_;
  std::unique_ptr<test_support::SwitchProcess> switch_;
  test_support::ProcessHoldings before_;
  CallView view_;
  std::vector<std::uint16_t> ports_;
};

}  // namespace
}  // namespace kvx_demo

int main(int count, char** words) {
  const std::vector<std::string> arguments(words + 1, words + count);
  if (arguments.empty() || arguments == std::vector<std::string>{"--media", "embedded"}) return kvx_demo::Demo().Run();
  if (arguments == std::vector<std::string>{"--media", "rtpengine"}) return kvx_demo::RunFleetDemo();
  std::cerr << "usage: kvx-demo [--media embedded|rtpengine]\n";
  return 2;
}
