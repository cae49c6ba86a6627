#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "support/rtp_probe.h"
#include "support/sipp_agent.h"
#include "switch_call_fixture.h"

namespace end_to_end {

/// A phone that is called, with its media: beyond the caller and the callee of a trial.
class CalledPhone {
 public:
  CalledPhone(const std::string& name, const std::filesystem::path& directory, const std::string& scenario = "callee");

  test_support::UdpAddress Address() const { return agent_.Address(); }
  /// Until it has answered the call that shows `from` as the caller's number.
  void WaitEstablished(const std::string& from);
  /// Until its one call is over, as its scenario says.
  void ExpectDone();

  test_support::RtpPhone& Media() { return media_; }
  const test_support::SdpAudio& Own() const { return own_; }
  const test_support::SdpAudio& Far() const { return far_; }
  test_support::SippAgent& Agent() { return agent_; }

 private:
  test_support::RtpPhone media_;
  test_support::SippAgent agent_;
  test_support::SdpAudio own_;
  test_support::SdpAudio far_;
};

/// One end of a conversation: its media, and what it was told of the switch's.
struct Party {
  test_support::RtpPhone* media;
  test_support::SdpAudio far;
};

/// Calls whose legs an operator sends elsewhere: "1000" of the sample is carol, "2000" the callee of the trial.
class SentOn : public SwitchCall {
 protected:
  /// Carol, the trial's phones, and the switch.
  void StartWithCarol(test_support::CallTrialSettings settings, const std::string& carols_scenario = "callee");
  /// The trial's call, up and talking.
  void TalkToCallee();

  Party Caller();
  Party Callee();
  Party Carol() { return {&carol_->Media(), carol_->Far()}; }
  /// Both say something and hear all of what the other says.
  void ExpectTheyTalk(const Party& one, const Party& other,
                      std::chrono::milliseconds length = std::chrono::milliseconds(1500)) const;
  /// What arrived before is taken away; then nothing comes while `talk` runs.
  template <typename Talk>
  static void ExpectNothingReaches(const Party& party, Talk talk) {
    while (party.media->Rtp().Receive()) {
    }
    talk();
    std::size_t heard = 0;
    while (party.media->Rtp().Receive()) ++heard;
    EXPECT_EQ(heard, 0u) << "packets at a party that was left";
  }

  /// The uuid of the leg that called in, or of the one that was called.
  std::string LegOf(const std::string& direction);
  void ExpectApi(const std::string& line, const std::string& answer);

  std::unique_ptr<CalledPhone> carol_;
};

}  // namespace end_to_end
