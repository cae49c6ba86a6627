#include "sent_on_fixture.h"

#include <random>
#include <sstream>
#include <stdexcept>

namespace end_to_end {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtpCallSettings;
using test_support::RtpDirectionSettings;
using test_support::SippSettings;
using test_support::UdpAddress;

namespace {

constexpr seconds kPatience{20};

SippSettings settings_of(const std::string& name, const std::filesystem::path& directory, const std::string& scenario,
                         std::uint16_t media_port) {
  SippSettings settings;
  settings.name = name;
  settings.scenario = scenario;
  settings.directory = directory;
  settings.limit = seconds(100);
  settings.calls.resize(1);
  settings.calls[0].number = name;
  settings.calls[0].media_port = media_port;
  return settings;
}

RtpDirectionSettings direction(const Party& talker, const Party& listener, milliseconds length, bool relays_source) {
  static std::mt19937 seeds{std::random_device{}()};
  RtpDirectionSettings settings;
  settings.talk = test_support::random_talk(static_cast<std::uint32_t>(seeds()));
  settings.talk.length = length;
  settings.to = {talker.far.address, talker.far.port};
  settings.expected.from = UdpAddress{listener.far.address, listener.far.port}.ToString();
  settings.expected.relays_source = relays_source;
  return settings;
}

}  // namespace

CalledPhone::CalledPhone(const std::string& name, const std::filesystem::path& directory, const std::string& scenario)
    : agent_(settings_of(name, directory, scenario, media_.Port())) {}

void CalledPhone::WaitEstablished(const std::string& from) {
  const bool up = test_support::wait_until(kPatience, [&] {
    const auto dialogue = agent_.Dialogue(from);
    if (!dialogue || !dialogue->Established() || !dialogue->OwnAudio() || !dialogue->FarAudio()) return false;
    own_ = *dialogue->OwnAudio();
    far_ = *dialogue->FarAudio();
    return true;
  });
  if (!up) throw std::runtime_error("no call from " + from + " came up\n" + agent_.Account());
}

void CalledPhone::ExpectDone() {
  const auto exit = agent_.WaitForExit(kPatience);
  EXPECT_TRUE(exit && exit->Succeeded()) << agent_.Account();
}

void SentOn::StartWithCarol(CallTrialSettings settings, const std::string& carols_scenario) {
  carol_ = std::make_unique<CalledPhone>("carol", directory_.Path(), carols_scenario);
  switch_settings_.variables.emplace_back("phone_a", carol_->Address().ToString());
  StartWithPhones(settings);
}

void SentOn::TalkToCallee() {
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(kPatience);
  ExpectTheyTalk(Caller(), Callee());
}

Party SentOn::Caller() {
  return {&trial_->CallerPhone(0), trial_->Calls().at(0).caller_far};
}

Party SentOn::Callee() {
  return {&trial_->CalleePhone(0), trial_->Calls().at(0).callee_far};
}

void SentOn::ExpectTheyTalk(const Party& one, const Party& other, milliseconds length) const {
  RtpCallSettings call;
  call.caller = one.media;
  call.callee = other.media;
  call.to_callee = direction(one, other, length, IsOnRtpengine());
  call.to_caller = direction(other, one, length, IsOnRtpengine());
  const auto results = test_support::exchange_rtp({call});
  ASSERT_EQ(results.size(), 1u);
  EXPECT_TRUE(results[0].to_callee.Passed()) << "to the second: " << results[0].to_callee.Reasons();
  EXPECT_TRUE(results[0].to_caller.Passed()) << "to the first: " << results[0].to_caller.Reasons();
}

std::string SentOn::LegOf(const std::string& wanted) {
  std::istringstream lines(switch_->Api("show channels"));
  for (std::string line; std::getline(lines, line);) {
    const size_t comma = line.find(',');
    if (comma != std::string::npos && line.compare(comma + 1, wanted.size(), wanted) == 0) return line.substr(0, comma);
  }
  return "no such leg";
}

void SentOn::ExpectApi(const std::string& line, const std::string& answer) {
  EXPECT_EQ(switch_->Api(line), answer) << line;
}

}  // namespace end_to_end
