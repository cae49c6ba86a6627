#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/process_child.h"
#include "support/rtpengine_fleet.h"
#include "support/sipp_call_trial.h"
#include "support/switch_process.h"
#include "support/switch_process_configuration.h"
#include "support/switch_process_rest.h"

namespace end_to_end {

/// A switch of its own for each test, and the phones around it. Tests say what a call has to do; what holds after
/// every call (nothing left behind, clean end) is said here.
class SwitchCall : public testing::Test {
 protected:
  ~SwitchCall() override;
  /// A copy of the sample configuration, with which the switch is started from now on.
  test_support::ConfigurationCopy& Configuration();
  /// Two daemons take the places of the sample's two media servers. heartbeat_ms: of each.
  void PutMediaOnRtpengine(unsigned heartbeat_ms = 20000);
  bool IsOnRtpengine() const { return fleet_ != nullptr; }
  /// Of the first (0) or second (1) media server.
  std::string MediaServerAddress(std::size_t server) const;
  /// Of the process that has the sockets of the media server with that address.
  pid_t MediaServerPid(const std::string& address) const;

  /// The phones called first, since the switch is told their address; then the switch, until it listens.
  void StartWithPhones(test_support::CallTrialSettings settings);
  /// A switch alone, with `phone_b` as it is given.
  void StartSwitch(const std::string& phone_b = "127.0.0.1:9");

  /// Dials all calls of the trial at once, has both ends talk, expects what arrives to be what was sent.
  void ExpectCallsToCarrySpeech(std::size_t calls);
  /// So many calls in the switch, the two legs of each in one media session. The phones know of the answer a little
  /// before that is so.
  void ExpectCallsUp(std::size_t calls);
  /// The calls end as both sides' scenarios say.
  void ExpectHungUp();
  /// The phones' legs cannot be joined, so the call that they take ends at once, and the log's error has `reason`.
  void ExpectCallThatCannotBeJoined(test_support::CallTrialSettings settings, const std::string& reason);
  /// No leg, media session, port, descriptor or thread left, and no call on a daemon.
  void ExpectAtRest();
  /// SIGINT ends it with exit code 0, and its log has no error.
  void ExpectCleanStop();
  /// A call by a phone that nobody answers: the final status that it got; 0 when it got none.
  int RefusedWith(const std::string& scenario, const std::string& dialled,
                  const test_support::SippCallFields& fields = {});
  /// What kvx-cli prints and how it ends, run against the switch or, when it is not 0, against that port.
  struct CliRun {
    int code = -1;
    std::string output;  // both streams
  };
  CliRun Cli(std::vector<std::string> arguments, std::uint16_t port = 0);
  /// The log has all of `texts` on one line.
  void ExpectLogLine(const std::vector<std::string>& texts);

  test_support::TemporaryDirectory directory_;
  test_support::SwitchProcessSettings switch_settings_;
  std::unique_ptr<test_support::RtpengineFleet> fleet_;  // ends after the switch
  std::unique_ptr<test_support::CallTrial> trial_;
  std::unique_ptr<test_support::SwitchProcess> switch_;
  test_support::ProcessHoldings before_;

 private:
  std::unique_ptr<test_support::ConfigurationCopy> configuration_;
  int refused_calls_ = 0;
};

/// What the media servers of a test are.
enum class MediaDriver { kEmbedded, kRtpengine };

/// A fixture whose tests run over each kind of media server: TEST_P, and INSTANTIATE_TEST_SUITE_P(Over, ...,
/// every_media_driver(), media_driver_name).
template <typename Fixture>
class OnEachDriver : public Fixture, public testing::WithParamInterface<MediaDriver> {
 protected:
  void SetUp() override {
    if (GetParam() == MediaDriver::kRtpengine) this->PutMediaOnRtpengine();
  }
};

inline auto every_media_driver() {
  return testing::Values(MediaDriver::kEmbedded, MediaDriver::kRtpengine);
}

inline std::string media_driver_name(const testing::TestParamInfo<MediaDriver>& info) {
  return info.param == MediaDriver::kEmbedded ? "embedded" : "rtpengine";
}

/// True when some line of `log` has all of `texts`.
bool has_line(const std::string& log, const std::vector<std::string>& texts);

}  // namespace end_to_end
