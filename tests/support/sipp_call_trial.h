#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/rtp_probe.h"
#include "support/sipp_agent.h"

namespace test_support {

struct CallTrialSettings {
  std::size_t calls = 1;
  std::string caller_scenario = "caller";
  std::string callee_scenario = "callee";
  std::string dialled = "2000";
  SippNetwork caller_network;
  SippNetwork callee_network;
  std::uint16_t callee_port = 0;  // where the phones called wait; 0: any free port
  SippCallFields caller;          // codec fields; numbers and media ports are filled in per call
  SippCallFields callee;
  RtpCodec codec;                        // how the talk's payload is made
  std::chrono::milliseconds talk{1500};  // length of the script in each direction
  std::string caller_srtp;  // suites of phones that encrypt ("AES_CM_128_HMAC_SHA1_80"); empty: in the clear
  std::string callee_srtp;
  std::string caller_digits;
  std::string callee_digits;
  bool reports = false;         // the phones send RTCP
  bool relays_source = false;   // the media server has no SSRCs of its own
  std::size_t lose_one_of = 0;  // packets, each way, on the way from a phone to the media server; 0: none
  int calls_per_second = 20;
  /// How much longer than the talk a call lasts: for signalling, and for media to open.
  std::chrono::milliseconds hold_margin{2500};
  std::filesystem::path directory;  // of the phones' files; must exist
};

/// One call from both ends: what each phone was told in signalling, and where its media goes.
struct CallView {
  SipDialogue caller;
  SipDialogue callee;
  SdpAudio caller_own;  // the caller's offer
  SdpAudio caller_far;  // the switch's answer to it
  SdpAudio callee_own;  // the callee's answer
  SdpAudio callee_far;  // the switch's offer to it
};

/// Real calls from sipp phones to sipp phones, with real RTP between them. A step that does not come to its end
/// throws std::runtime_error with an account of both phones, so that no later step passes on nothing.
///
/// The phones called are up from the start, since the switch has to be told their address; calls are then placed in
/// batches, each batch by a sipp of its own.
class CallTrial {
 public:
  explicit CallTrial(const CallTrialSettings& settings);

  UdpAddress CalleeAddress() const { return callee_->Address(); }
  /// The same as the host and parameters of a SIP URI.
  std::string CalleeUriAddress() const {
    return CalleeAddress().ToString() + (settings_.callee_network.tcp ? ";transport=tcp" : "");
  }

  /// Places `count` calls, at settings.calls_per_second.
  void Dial(const UdpAddress& to, std::size_t count);
  /// Until every call of the batch is up at both ends.
  void WaitEstablished(std::chrono::milliseconds limit);
  /// The batch, in order of calling; only after WaitEstablished.
  const std::vector<CallView>& Calls() const { return views_; }
  /// Both parties of every call talk and listen. Passes nothing by itself: look at the results.
  std::vector<RtpCallResult> Talk();
  /// The phones by the order in which they were made, for calls that are not up yet: the caller's of that call, and the
  /// one that the callee uses for the call that it takes as that one.
  RtpPhone& CallerMedia(std::size_t call) { return caller_phones_.at(call); }
  RtpPhone& CalleeMedia(std::size_t call) { return callee_phones_.at(call); }
  /// The phones of a call of the batch.
  RtpPhone& CallerPhone(std::size_t call);
  RtpPhone& CalleePhone(std::size_t call);
  /// Until the batch's calls are over as the scenarios say.
  void WaitHungUp(std::chrono::milliseconds limit);
  /// Until the phones called have had all their calls, as their scenario says.
  void WaitCalleeDone(std::chrono::milliseconds limit);

  SippAgent& Caller() { return *caller_; }
  SippAgent& Callee() { return *callee_; }
  std::string Account();

 private:
  std::chrono::milliseconds Hold() const;
  bool Collect();
  RtpPhone& PhoneAt(std::vector<RtpPhone>& phones, std::uint16_t port);
  RtpDirectionSettings DirectionOf(const SdpAudio& talker_far, const SdpAudio& listener_own,
                                   const SdpAudio& listener_far, const std::string& digits) const;
  [[noreturn]] void Fail(const std::string& what);

  CallTrialSettings settings_;
  std::vector<RtpPhone> caller_phones_;
  std::vector<RtpPhone> callee_phones_;  // in the order in which the callee takes calls
  std::unique_ptr<SippAgent> callee_;
  std::unique_ptr<SippAgent> caller_;
  std::size_t first_ = 0;  // of the batch
  std::size_t count_ = 0;
  std::size_t dialled_ = 0;
  std::vector<CallView> views_;
  std::vector<std::unique_ptr<RtpSeal>> seals_;
};

}  // namespace test_support
