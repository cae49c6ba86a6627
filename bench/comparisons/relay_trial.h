/// A relay under load: one relay, one set of far ends, and runs at rates that the caller chooses.
#pragma once

#include <memory>
#include <string>

#include "../support/program.h"
#include "../support/rate_search.h"
#include "relay.h"

namespace bench {

/// What one run found.
struct RelayRun {
  double rate = 0;                ///< packets per second that the load sent
  double loss = 0, backlog = 0;   ///< shares of what was sent
  double cpu_us_per_packet = 0;   ///< the relay's, of all its threads, by what it delivered
  double p50_us = 0, p99_us = 0;  ///< from the far end's send to the arrival at the other; only if stamped
  bool load_too_slow = false;     ///< or refused by the system: the run says nothing of the relay
  bool load_stumbled = false;     ///< was put off for a moment: what the relay lost then says nothing of it
  std::string text;               ///< for the log
};

struct RelayPeak {
  RelayRun best;
  Highest highest;
};

class RelayTrial {
 public:
  RelayTrial(const Settings& settings, RelayKind kind, std::size_t legs, bool srtp);

  RelayRun Run(double rate, double seconds, bool stamped = false);
  /// The highest rate with less than 0.1 % loss and 0.5 % backlog.
  RelayPeak FindPeak(double guess, double step);
  /// What a leg takes of resident memory, after its calls have carried packets.
  double KibPerLeg();

 private:
  void WarmUp();

  const Settings settings_;
  const std::size_t legs_;
  Program load_;
  std::unique_ptr<Relay> relay_;
  double idle_kib_ = 0;  // before there were calls
};

Trial VerdictOf(const RelayRun& run);

}  // namespace bench
