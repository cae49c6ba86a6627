#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/process_child.h"
#include "support/sipp_call_trial.h"
#include "support/switch_process.h"
#include "support/switch_process_configuration.h"
#include "support/switch_process_rest.h"

namespace end_to_end {

/// A switch of its own for each test, and the phones around it. Tests say what a call has to do; what holds after
/// every call (nothing left behind, clean end) is said here.
class SwitchCall : public testing::Test {
 protected:
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
  /// No leg, media session, port, descriptor or thread left.
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
  std::unique_ptr<test_support::CallTrial> trial_;
  std::unique_ptr<test_support::SwitchProcess> switch_;
  test_support::ProcessHoldings before_;

 private:
  int refused_calls_ = 0;
};

/// True when some line of `log` has all of `texts`.
bool has_line(const std::string& log, const std::vector<std::string>& texts);

}  // namespace end_to_end
