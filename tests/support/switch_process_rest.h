#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "support/process_inspection.h"
#include "support/switch_process.h"

namespace test_support {

/// What the switch says of itself at one moment.
struct SwitchCounts {
  long sessions = -1;        // legs, "show channels count"
  long media_sessions = -1;  // of the module, "ms_count_show"
};

/// Throws std::runtime_error when an answer has no number: no answer is not zero.
SwitchCounts ask_counts(SwitchProcess& process);

/// Whether everything that a call took came back.
struct RestReport {
  SwitchCounts counts;
  std::string holdings_difference;  // to before the call
  std::vector<std::string> faults;  // empty: the switch is at rest

  bool AtRest() const { return faults.empty(); }
  std::string Faults() const;
};

/// Waits up to `limit` for the switch to be at rest: no session, no media session, descriptors, threads and UDP ports
/// as `before`.
RestReport await_rest(SwitchProcess& process, const ProcessHoldings& before, std::chrono::milliseconds limit);

/// Those of `ports` that nobody can bind after up to `limit`, those aside that another process than the switch has
/// taken in the meantime. Throws std::invalid_argument when there is none to look at.
std::vector<std::uint16_t> ports_in_use(SwitchProcess& process, const std::vector<std::uint16_t>& ports,
                                        std::chrono::milliseconds limit);

}  // namespace test_support
