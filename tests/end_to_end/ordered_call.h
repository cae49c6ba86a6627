#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "sent_on_fixture.h"

namespace end_to_end {

/// A call whose phones do what the test tells them while it is up: no step waits for a clock, and none comes too soon
/// on a slow machine.
class OrderedCall : public SentOn {
 protected:
  /// The trial's phones wait for orders, those aside for which `settings` names scenarios of their own; the call is up.
  void StartCall(test_support::CallTrialSettings settings = {});
  /// The same without the call: phones and switch.
  void StartPhones(test_support::CallTrialSettings settings);
  void Dial();

  test_support::SippAgent& CallerAgent() { return trial_->Caller(); }
  test_support::SippAgent& CalleeAgent() { return trial_->Callee(); }
  /// The phone does it, and has acknowledged what it got for it: that final answer.
  test_support::SipMessage Order(test_support::SippAgent& phone, const test_support::SippOrder& order);
  /// An order that no request of the phone follows.
  void Tell(test_support::SippAgent& phone, const std::string& what, std::uint16_t media_port = 9);
  /// Until the caller has been told where the media of the call is that nobody has answered yet; told what.
  test_support::SdpAudio AwaitEarlyMedia();
  /// The caller hangs up; both phones' scenarios end as they are written.
  void HangUp();
  /// What holds after every call: nothing left, no error.
  void ExpectEndedWell();

  /// Where the far end is told that this phone hears: an order that moves nothing names it.
  static test_support::UdpAddress MediaOf(const Party& party) { return {"127.0.0.1", party.media->Port()}; }
  /// All of what `from` says is heard at `to`, unaltered.
  void ExpectHeard(const Party& from, const Party& to,
                   std::chrono::milliseconds length = std::chrono::milliseconds(400)) const;
  /// Nothing of what `from` says is heard at `to`, as soon as the bridge has turned.
  static void ExpectUnheard(const Party& from, const Party& to);

 private:
  int orders_ = 10;  // beyond the CSeq that any scenario uses by itself
};

/// The n-th message of the dialogue for which `wanted` holds, from 0; empty when there are fewer.
template <typename Wanted>
std::optional<test_support::SipMessage> nth_message(const test_support::SipDialogue& dialogue, std::size_t n,
                                                    Wanted wanted) {
  for (const auto& message : dialogue.Messages()) {
    if (wanted(message) && n-- == 0) return message;
  }
  return std::nullopt;
}

/// How many there are; one that was sent again since nobody answered in time counts once.
template <typename Wanted>
std::size_t count_messages(const test_support::SipDialogue& dialogue, Wanted wanted) {
  std::set<std::string> different;
  for (const auto& message : dialogue.Messages()) {
    if (wanted(message)) different.insert(message.start_line + message.Header("CSeq"));
  }
  return different.size();
}

}  // namespace end_to_end
