#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "support/rtp_probe.h"

namespace test_support {

/// What came of datagrams that one phone sent to the other.
struct FaxResult {
  std::size_t sent = 0;
  std::size_t identical = 0;  // byte for byte, each counted once
  std::size_t foreign = 0;    // none of those sent

  bool Passed() const { return sent > 0 && identical == sent && foreign == 0; }
  std::string ToString() const;
};

struct FaxResults {
  FaxResult to_callee;
  FaxResult to_caller;
};

/// Sends `count` datagrams of all lengths up to `longest` both ways at once, evenly spread, and compares what arrives.
/// The datagrams are random: nothing on the way may care what they are. `caller_to` and `callee_to` are where the two
/// phones were told to send.
FaxResults exchange_fax(RtpPhone& caller, const UdpAddress& caller_to, RtpPhone& callee, const UdpAddress& callee_to,
                        std::size_t count, std::size_t longest, std::chrono::milliseconds patience);

}  // namespace test_support
