#include "ordered_call.h"

#include <random>
#include <stdexcept>

namespace end_to_end {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::SipMessage;
using test_support::SippAgent;
using test_support::SippOrder;
using test_support::UdpAddress;

namespace {

constexpr seconds kPatience{20};
constexpr int kBurst = 10;  // packets

std::uint32_t next_seed() {
  static std::mt19937 seeds{std::random_device{}()};
  return static_cast<std::uint32_t>(seeds());
}

bool anything_arrives(const Party& at, milliseconds limit) {
  return test_support::wait_until(limit, [&at] { return at.media->Rtp().Receive().has_value(); });
}

}  // namespace

void OrderedCall::StartPhones(test_support::CallTrialSettings settings) {
  if (settings.caller_scenario == "caller") settings.caller_scenario = "caller_on_order";
  if (settings.callee_scenario == "callee") settings.callee_scenario = "callee_on_order";
  StartWithPhones(settings);
}

void OrderedCall::Dial() {
  trial_->Dial(switch_->Sip(), 1);
}

void OrderedCall::StartCall(test_support::CallTrialSettings settings) {
  StartPhones(settings);
  Dial();
  trial_->WaitEstablished(kPatience);
}

SipMessage OrderedCall::Order(SippAgent& phone, const SippOrder& order) {
  const int number = orders_++;
  const std::string method = order.what == "REFRESH" ? "UPDATE" : order.what;
  const std::string sequence = std::to_string(number) + " " + method;
  const std::string acknowledged = std::to_string(number) + " ACK";
  phone.Order(phone.Dialogues().at(0).CallId(), order, number);
  std::optional<SipMessage> answer;
  const bool settled = test_support::wait_until(kPatience, [&] {
    const auto dialogue = phone.Dialogues().at(0);
    answer = nth_message(dialogue, 0, [&](const SipMessage& message) {
      return message.Status() >= 200 && message.Header("CSeq") == sequence;
    });
    const bool sent_on = method != "INVITE" || nth_message(dialogue, 0, [&](const SipMessage& message) {
                           return message.Header("CSeq") == acknowledged;
                         });
    return answer && sent_on;
  });
  if (!settled) throw std::runtime_error("no answer to " + order.what + "\n" + trial_->Account());
  return *answer;
}

void OrderedCall::Tell(SippAgent& phone, const std::string& what, std::uint16_t media_port) {
  phone.Order(phone.Dialogues().at(0).CallId(), {what, {"127.0.0.1", media_port}}, orders_++);
}

test_support::SdpAudio OrderedCall::AwaitEarlyMedia() {
  const bool told = test_support::wait_until(kPatience, [this] {
    const auto calls = CallerAgent().Dialogues();
    return !calls.empty() && calls[0].Answer(183, "INVITE", false) != nullptr;
  });
  const auto audio = told ? CallerAgent().Dialogues().at(0).FarAudio() : std::nullopt;
  if (!audio) throw std::runtime_error("no early media\n" + trial_->Account());
  return *audio;
}

void OrderedCall::HangUp() {
  EXPECT_EQ(Order(CallerAgent(), {"BYE", {"127.0.0.1", 9}}).Status(), 200);
  ExpectHungUp();
}

void OrderedCall::ExpectEndedWell() {
  ExpectAtRest();
  ExpectCleanStop();
}

void OrderedCall::ExpectHeard(const Party& from, const Party& to, milliseconds length) const {
  while (to.media->Rtp().Receive()) {
  }
  test_support::RtpDirectionSettings direction;
  direction.talk = test_support::random_talk(next_seed());
  direction.talk.length = length;
  direction.to = {from.far.address, from.far.port};
  direction.expected.from = UdpAddress{to.far.address, to.far.port}.ToString();
  direction.expected.relays_source = IsOnRtpengine();
  const auto heard = test_support::say_rtp(*from.media, *to.media, direction);
  EXPECT_TRUE(heard.Passed()) << heard.Reasons();
  EXPECT_EQ(heard.received, heard.sent);
}

void OrderedCall::ExpectUnheard(const Party& from, const Party& to) {
  test_support::RtpTalk talk(test_support::random_talk(next_seed()));
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (int silences = 0; silences < 2;) {
    while (to.media->Rtp().Receive()) {
    }
    for (int packet = 0; packet < kBurst; ++packet) {
      from.media->Rtp().SendTo({from.far.address, from.far.port}, test_support::serialise_rtp(talk.Prime()));
    }
    silences = anything_arrives(to, milliseconds(250)) ? 0 : silences + 1;
    if (std::chrono::steady_clock::now() > deadline) FAIL() << "it is still heard";
  }
}

}  // namespace end_to_end
