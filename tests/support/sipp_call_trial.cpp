#include "support/sipp_call_trial.h"

#include <map>
#include <random>
#include <stdexcept>

namespace test_support {
namespace {

std::string number_of(std::size_t call) {
  return std::to_string(3000 + call);
}

std::map<std::string, SipDialogue> by_number(const std::vector<SipDialogue>& dialogues) {
  std::map<std::string, SipDialogue> sorted;
  for (const SipDialogue& dialogue : dialogues) sorted[dialogue.FromUser()] = dialogue;
  return sorted;
}

void describe_srtp(const std::string& suite, SippCallFields& fields) {
  if (suite.empty()) return;
  fields.transport = "RTP/SAVP";
  fields.attribute = "crypto:" + RtpSeal::MakeCrypto(suite);
}

}  // namespace

CallTrial::CallTrial(const CallTrialSettings& settings) : settings_(settings) {
  for (std::size_t call = 0; call < settings.calls; ++call) {
    caller_phones_.emplace_back(settings.caller_network.ipv6);
    callee_phones_.emplace_back(settings.callee_network.ipv6);
  }
  SippSettings callee;
  callee.network = settings.callee_network;
  callee.name = "callee";
  callee.scenario = settings.callee_scenario;
  callee.port = settings.callee_port;
  callee.directory = settings.directory;
  callee.hold = Hold();
  callee.limit = std::chrono::seconds(170);
  for (const RtpPhone& phone : callee_phones_) {
    callee.calls.push_back(settings.callee);
    callee.calls.back().number = settings.dialled;
    callee.calls.back().media_port = phone.Port();
    describe_srtp(settings.callee_srtp, callee.calls.back());
  }
  callee_ = std::make_unique<SippAgent>(callee);
}

std::chrono::milliseconds CallTrial::Hold() const {
  const auto ramp = std::chrono::milliseconds(1000 * static_cast<long>(settings_.calls) / settings_.calls_per_second);
  return settings_.talk + settings_.hold_margin + ramp;
}

void CallTrial::Dial(const UdpAddress& to, std::size_t count) {
  if (dialled_ + count > settings_.calls) throw std::runtime_error("more calls dialled than the trial was made for");
  first_ = dialled_;
  count_ = count;
  dialled_ += count;
  views_.clear();
  seals_.clear();
  SippSettings caller;
  caller.name = "caller_" + std::to_string(first_);
  caller.scenario = settings_.caller_scenario;
  caller.dialled = settings_.dialled;
  caller.remote = to;
  caller.network = settings_.caller_network;
  caller.directory = settings_.directory;
  caller.hold = Hold();
  caller.calls_per_second = settings_.calls_per_second;
  caller.limit = std::chrono::duration_cast<std::chrono::seconds>(Hold()) + std::chrono::seconds(60);
  for (std::size_t call = first_; call < first_ + count_; ++call) {
    caller.calls.push_back(settings_.caller);
    caller.calls.back().number = number_of(call);
    caller.calls.back().media_port = caller_phones_[call].Port();
    describe_srtp(settings_.caller_srtp, caller.calls.back());
  }
  caller_ = std::make_unique<SippAgent>(caller);
}

bool CallTrial::Collect() {
  std::vector<CallView> views;
  // The number in From ties the two legs together: the switch hands the caller's on.
  const auto callers = by_number(caller_->Dialogues());
  const auto callees = by_number(callee_->Dialogues());
  for (std::size_t call = first_; call < first_ + count_; ++call) {
    const auto caller = callers.find(number_of(call));
    const auto callee = callees.find(number_of(call));
    if (caller == callers.end() || callee == callees.end()) return false;
    CallView view;
    view.caller = caller->second;
    view.callee = callee->second;
    if (!view.caller.Established() || !view.callee.Established()) return false;
    const auto caller_own = view.caller.OwnAudio();
    const auto caller_far = view.caller.FarAudio();
    const auto callee_own = view.callee.OwnAudio();
    const auto callee_far = view.callee.FarAudio();
    if (!caller_own || !caller_far || !callee_own || !callee_far) Fail("a description without an audio stream");
    view.caller_own = *caller_own;
    view.caller_far = *caller_far;
    view.callee_own = *callee_own;
    view.callee_far = *callee_far;
    views.push_back(view);
  }
  views_ = std::move(views);
  return true;
}

void CallTrial::WaitEstablished(std::chrono::milliseconds limit) {
  if (caller_ == nullptr) throw std::runtime_error("nothing was dialled");
  wait_until(limit, [this] { return Collect() || !caller_->Running() || !callee_->Running(); });
  if (views_.size() != count_ && !Collect()) Fail("not every call came up");
}

RtpDirectionSettings CallTrial::DirectionOf(const SdpAudio& talker_far, const SdpAudio& listener_own,
                                            const SdpAudio& listener_far, const std::string& digits) const {
  static std::mt19937 seeds{std::random_device{}()};
  const SdpCodec* spoken = talker_far.FirstAudio();
  if (spoken == nullptr) throw std::runtime_error("the switch's description has no audio codec");
  const SdpCodec* heard = listener_own.Find(spoken->name);
  if (heard == nullptr) {
    throw std::runtime_error("one leg speaks " + spoken->name + ", the other has no such codec");
  }
  RtpDirectionSettings direction;
  direction.talk = random_talk(static_cast<std::uint32_t>(seeds()));
  direction.talk.codec = settings_.codec;
  direction.talk.length = settings_.talk;
  direction.talk.digits = digits;
  direction.talk.audio_payload_type = static_cast<std::uint8_t>(spoken->payload_type);
  direction.to = {talker_far.address, talker_far.port};
  direction.expected.audio_payload_type = static_cast<std::uint8_t>(heard->payload_type);
  direction.expected.from = UdpAddress{listener_far.address, listener_far.port}.ToString();
  direction.expected.digits = digits;
  direction.expected.relays_source = settings_.relays_source;
  direction.lose_one_of = settings_.lose_one_of;
  if (!digits.empty()) {
    const SdpCodec* sent_events = talker_far.Find("telephone-event");
    const SdpCodec* heard_events = listener_own.Find("telephone-event");
    if (sent_events == nullptr || heard_events == nullptr) throw std::runtime_error("telephone-event not negotiated");
    direction.talk.event_payload_type = static_cast<std::uint8_t>(sent_events->payload_type);
    direction.expected.event_payload_type = static_cast<std::uint8_t>(heard_events->payload_type);
  }
  return direction;
}

RtpPhone& CallTrial::PhoneAt(std::vector<RtpPhone>& phones, std::uint16_t port) {
  for (RtpPhone& phone : phones) {
    if (phone.Port() == port) return phone;
  }
  Fail("a phone named a media port that is none of ours");
}

RtpPhone& CallTrial::CallerPhone(std::size_t call) {
  return PhoneAt(caller_phones_, views_.at(call).caller_own.port);
}

RtpPhone& CallTrial::CalleePhone(std::size_t call) {
  return PhoneAt(callee_phones_, views_.at(call).callee_own.port);
}

std::vector<RtpCallResult> CallTrial::Talk() {
  if (views_.empty()) throw std::runtime_error("no call is up");
  std::vector<RtpCallSettings> calls;
  if (seals_.empty()) seals_.resize(2 * views_.size());  // a stream goes on under its key
  for (std::size_t i = 0; i < views_.size(); ++i) {
    const CallView& view = views_[i];
    RtpCallSettings call;
    call.caller = &CallerPhone(i);
    call.callee = &CalleePhone(i);
    call.to_callee = DirectionOf(view.caller_far, view.callee_own, view.callee_far, settings_.caller_digits);
    call.to_caller = DirectionOf(view.callee_far, view.caller_own, view.caller_far, settings_.callee_digits);
    std::unique_ptr<RtpSeal>& caller = seals_[2 * i];
    std::unique_ptr<RtpSeal>& callee = seals_[2 * i + 1];
    if (!settings_.caller_srtp.empty() && !caller) {
      caller = std::make_unique<RtpSeal>(view.caller_own.crypto, view.caller_far.crypto);
    }
    if (!settings_.callee_srtp.empty() && !callee) {
      callee = std::make_unique<RtpSeal>(view.callee_own.crypto, view.callee_far.crypto);
    }
    call.to_callee.sealed_by = call.to_caller.opened_by = caller.get();
    call.to_callee.opened_by = call.to_caller.sealed_by = callee.get();
    call.reports = settings_.reports;
    calls.push_back(call);
  }
  return exchange_rtp(calls);
}

void CallTrial::WaitHungUp(std::chrono::milliseconds limit) {
  if (caller_ == nullptr) throw std::runtime_error("nothing was dialled");
  const auto exit = caller_->WaitForExit(limit);
  if (!exit) Fail("the caller is not done");
  if (!exit->Succeeded()) Fail("the caller's scenario did not go as written");
}

void CallTrial::WaitCalleeDone(std::chrono::milliseconds limit) {
  const auto exit = callee_->WaitForExit(limit);
  if (!exit) Fail("the callee is not done");
  if (!exit->Succeeded()) Fail("the callee's scenario did not go as written");
}

std::string CallTrial::Account() {
  return (caller_ ? caller_->Account() : "") + callee_->Account();
}

void CallTrial::Fail(const std::string& what) {
  throw std::runtime_error(what + "\n" + Account());
}

}  // namespace test_support
