#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/rtp_probe.h"
#include "support/rtp_seal.h"
#include "support/udp_socket.h"

namespace test_support {

/// One call under load: both phones speak and listen.
struct RtpLoadCall {
  RtpPhone* caller = nullptr;  // not owned, as all pointers here; they outlive the run
  RtpPhone* callee = nullptr;
  UdpAddress caller_to;  // where the media server wants the caller's RTP
  UdpAddress callee_to;
  RtpSeal* caller_seal = nullptr;  // null: in the clear
  RtpSeal* callee_seal = nullptr;
};

struct RtpLoadSettings {
  std::chrono::milliseconds ptime{20};
  std::chrono::milliseconds length{10000};  // every phone sends length / ptime packets
  std::uint8_t payload_type = 0;
  std::size_t payload_octets = 160;  // from 20
  /// How long the paths of all calls may take to open, and how long to wait for the last packets.
  std::chrono::milliseconds patience{10000};
};

/// One direction of one call. Packets sent before the path was open are not counted.
struct RtpLoadCount {
  std::size_t sent = 0;
  std::size_t received = 0;  // each packet once
  std::size_t duplicated = 0;
  std::size_t foreign = 0;     // readable, but not what the partner said: altered, or another call's
  std::size_t unreadable = 0;  // of what the media server sent; other senders' datagrams do not count

  bool Complete() const { return sent > 0 && received == sent && duplicated == 0 && foreign == 0 && unreadable == 0; }
};

struct RtpLoadResult {
  std::vector<RtpLoadCount> to_callee;  // by call
  std::vector<RtpLoadCount> to_caller;
  bool opened = false;                    // all paths did; otherwise nothing was sent
  std::chrono::milliseconds sending{0};   // from the first packet to the last
  std::chrono::microseconds mean_way{0};  // from one phone to the other, this generator's own delays included
  std::chrono::microseconds longest_way{0};
};

/// Hundreds of calls at once, cheaply: the exchange of rtp_probe.h compares everything that can be told of a stream and
/// keeps every packet, this one counts. Each packet says whose it is and which, so that a stray one is found out. Runs
/// on the caller's thread; the phones' packets are spread evenly over the packet time. What it could not send in time
/// is sent later, all of it: `sending` then is longer than the settings say, and the generator was the limit.
RtpLoadResult run_rtp_load(const std::vector<RtpLoadCall>& calls, const RtpLoadSettings& settings);

}  // namespace test_support
