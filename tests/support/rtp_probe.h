#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/rtp_comparison.h"
#include "support/rtp_reporter.h"
#include "support/rtp_seal.h"
#include "support/rtp_talk.h"
#include "support/udp_socket.h"

namespace test_support {

/// The media side of one phone: an RTP socket on an even port and the RTCP socket on the port after it, so that
/// reports for this phone never reach another one's RTP port.
class RtpPhone {
 public:
  explicit RtpPhone(bool ipv6 = false) : RtpPhone(std::string(ipv6 ? "::1" : "127.0.0.1")) {}
  /// On that address of loopback.
  static RtpPhone At(const std::string& address) { return RtpPhone(address); }

  std::uint16_t Port() const { return rtp_.Port(); }
  UdpSocket& Rtp() { return rtp_; }
  UdpSocket& Rtcp() { return rtcp_; }

 private:
  explicit RtpPhone(const std::string& address);

  UdpSocket rtp_;
  UdpSocket rtcp_;
};

/// One direction: what `from` says to the media server at `to`, and what `at` hears of it.
struct RtpDirectionSettings {
  RtpTalkSettings talk;
  RtpSeal* sealed_by = nullptr;  // SRTP of who talks, and of who listens; null: in the clear
  RtpSeal* opened_by = nullptr;
  UdpAddress to;
  RtpExpectation expected;
  /// Of so many packets of the script one is lost on the way: counted as sent, never to arrive. 0: none. The last ones
  /// all go out, since nobody could tell that they are missing.
  std::size_t lose_one_of = 0;
};

struct RtpCallSettings {
  RtpPhone* caller = nullptr;  // not owned; outlives the exchange
  RtpPhone* callee = nullptr;
  RtpDirectionSettings to_callee;
  RtpDirectionSettings to_caller;
  bool reports = false;  // both phones send RTCP, to the port after that of RTP, and read what comes
};

struct RtpCallResult {
  RtpComparison to_callee;
  RtpComparison to_caller;
  std::size_t rtcp_at_caller = 0;  // datagrams on the RTCP ports
  std::size_t rtcp_at_callee = 0;
  std::size_t lost_to_callee = 0;  // on the way to the media server, of what the caller sent
  std::size_t lost_to_caller = 0;
  RtcpAccount caller_reports;  // empty without reports
  RtcpAccount callee_reports;

  bool Passed() const { return to_callee.Passed() && to_caller.Passed(); }
};

struct RtpExchangeLimits {
  std::chrono::milliseconds path_open{5000};    // from the first priming packet to the first arrival
  std::chrono::milliseconds last_packet{2000};  // from the last packet sent to the last arrival
  std::chrono::milliseconds afterwards{100};    // listening on for what should not come
};

/// Speaks and listens on all calls at once, on the caller's thread, and compares both ends. Bounded by the longest
/// script plus the limits.
std::vector<RtpCallResult> exchange_rtp(const std::vector<RtpCallSettings>& calls,
                                        const RtpExchangeLimits& limits = {});

/// The same in one direction while the other phone says nothing: `from` speaks, `to` listens.
RtpComparison say_rtp(RtpPhone& from, RtpPhone& to, const RtpDirectionSettings& settings,
                      const RtpExchangeLimits& limits = {});

}  // namespace test_support
