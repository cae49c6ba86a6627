#include "switch_call_fixture.h"

#include <algorithm>
#include <sstream>
#include <thread>

namespace end_to_end {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;
using test_support::RtpCallResult;
using test_support::SippAgent;
using test_support::SippCallFields;
using test_support::SippSettings;
using test_support::SwitchProcess;

bool has_line(const std::string& log, const std::vector<std::string>& texts) {
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    if (std::all_of(texts.begin(), texts.end(),
                    [&line](const std::string& text) { return line.find(text) != std::string::npos; })) {
      return true;
    }
  }
  return false;
}

SwitchCall::~SwitchCall() = default;

test_support::ConfigurationCopy& SwitchCall::Configuration() {
  if (configuration_ == nullptr) {
    configuration_ = std::make_unique<test_support::ConfigurationCopy>();
    switch_settings_.conf = configuration_->Path();
  }
  return *configuration_;
}

void SwitchCall::PutMediaOnRtpengine(unsigned heartbeat_ms) {
  fleet_ = std::make_unique<test_support::RtpengineFleet>(2);
  fleet_->PutInto(Configuration(), heartbeat_ms);
}

std::string SwitchCall::MediaServerAddress(std::size_t server) const {
  return IsOnRtpengine() ? fleet_->At(server).Address() : "127.0.0." + std::to_string(server + 1);
}

pid_t SwitchCall::MediaServerPid(const std::string& address) const {
  if (!IsOnRtpengine()) return switch_->Pid();
  return fleet_->At(address == MediaServerAddress(0) ? 0 : 1).Pid();
}

void SwitchCall::StartWithPhones(CallTrialSettings settings) {
  settings.directory = directory_.Path();
  settings.relays_source = IsOnRtpengine();
  if (IsOnRtpengine()) settings.hold_margin += milliseconds(1500);  // two daemons more have to get their turns
  trial_ = std::make_unique<CallTrial>(settings);
  StartSwitch(trial_->CalleeUriAddress());
}

void SwitchCall::StartSwitch(const std::string& phone_b) {
  switch_settings_.directory = directory_.Path();
  switch_settings_.variables.emplace_back("phone_b", phone_b);
  switch_ = std::make_unique<SwitchProcess>(switch_settings_);
  switch_->WaitReady(seconds(60));
  before_ = switch_->SettledHoldings();
}

void SwitchCall::ExpectCallsToCarrySpeech(std::size_t calls) {
  trial_->Dial(switch_->Sip(), calls);
  trial_->WaitEstablished(seconds(30));
  ExpectCallsUp(calls);
  const auto results = trial_->Talk();
  ASSERT_EQ(results.size(), calls);
  for (std::size_t call = 0; call < calls; ++call) {
    SCOPED_TRACE("call " + std::to_string(call));
    const RtpCallResult& result = results[call];
    EXPECT_TRUE(result.to_callee.Passed()) << "to the callee: " << result.to_callee.Reasons();
    EXPECT_TRUE(result.to_caller.Passed()) << "to the caller: " << result.to_caller.Reasons();
    EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
    EXPECT_EQ(result.to_caller.received, result.to_caller.sent);
  }
}

void SwitchCall::ExpectCallsUp(std::size_t calls) {
  const auto legs = static_cast<long>(2 * calls);
  const auto media_sessions = static_cast<long>(calls);
  test_support::SwitchCounts counts;
  test_support::wait_until(seconds(30), [&] {
    if (calls > 10) std::this_thread::sleep_for(std::chrono::milliseconds(200));  // asking costs the switch, too
    counts = test_support::ask_counts(*switch_);
    return counts.sessions == legs && counts.media_sessions == media_sessions;
  });
  EXPECT_EQ(counts.sessions, legs);
  EXPECT_EQ(counts.media_sessions, media_sessions);
}

void SwitchCall::ExpectHungUp() {
  ASSERT_NO_THROW(trial_->WaitHungUp(seconds(30)));
  ASSERT_NO_THROW(trial_->WaitCalleeDone(seconds(30)));
}

void SwitchCall::ExpectCallThatCannotBeJoined(CallTrialSettings settings, const std::string& reason) {
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee";
  StartWithPhones(settings);
  trial_->Dial(switch_->Sip(), 1);
  ExpectHungUp();
  ExpectLogLine({"[ERR]", reason});
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

void SwitchCall::ExpectAtRest() {
  const auto rest = test_support::await_rest(*switch_, before_, seconds(15));
  EXPECT_TRUE(rest.AtRest()) << rest.Faults();
  for (std::size_t daemon = 0; IsOnRtpengine() && daemon < 2; ++daemon) {
    std::size_t calls = 0;
    EXPECT_TRUE(test_support::wait_until(seconds(15), [&] { return (calls = fleet_->At(daemon).Calls()) == 0; }))
        << calls << " calls still on the daemon at " << MediaServerAddress(daemon);
  }
}

void SwitchCall::ExpectCleanStop() {
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
  for (const std::string& line : test_support::error_lines(switch_->Log())) ADD_FAILURE() << line;
}

int SwitchCall::RefusedWith(const std::string& scenario, const std::string& dialled, const SippCallFields& fields) {
  SippSettings settings;
  settings.name = "refused_" + std::to_string(refused_calls_++);
  settings.scenario = scenario;
  settings.dialled = dialled;
  settings.remote = switch_->Sip();
  settings.directory = directory_.Path();
  settings.calls = {fields};
  settings.calls[0].number = "3999";
  settings.calls[0].media_port = 40000;  // nothing is ever sent there
  settings.limit = seconds(50);
  SippAgent caller(settings);
  const auto exit = caller.WaitForExit(seconds(60));
  EXPECT_TRUE(exit && exit->Succeeded()) << caller.Account();
  const auto dialogue = caller.Dialogue("3999");
  const auto* answer = dialogue ? dialogue->FinalAnswer() : nullptr;
  EXPECT_NE(answer, nullptr) << caller.Account();
  return answer != nullptr ? answer->Status() : 0;
}

SwitchCall::CliRun SwitchCall::Cli(std::vector<std::string> arguments, std::uint16_t port) {
  test_support::ChildSettings settings;
  settings.command = {test_support::built_program("kvx-cli").string(), "-P",
                      std::to_string(port != 0 ? port : switch_->EventSocket().port)};
  settings.command.insert(settings.command.end(), arguments.begin(), arguments.end());
  settings.output = directory_.Path() / "cli.log";
  test_support::ChildProcess child(settings);
  const auto exit = child.WaitForExit(seconds(30));
  EXPECT_TRUE(exit.has_value()) << "kvx-cli does not end";
  return {exit ? exit->code : -1, child.Output()};
}

void SwitchCall::ExpectLogLine(const std::vector<std::string>& texts) {
  const bool found = test_support::wait_until(seconds(30), [&] { return has_line(switch_->Log(), texts); });
  EXPECT_TRUE(found) << "no line of the log has " << testing::PrintToString(texts) << "\n"
                     << test_support::last_lines(switch_->Log(), 40);
}

}  // namespace end_to_end
