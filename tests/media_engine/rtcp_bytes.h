/// RTCP written and read octet by octet after RFC 3550, section 6, beside the engine's own code: what the engine sends
/// is checked with this, and what it must take or refuse is made with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "far_end.h"

namespace media_engine_test {

struct RtcpBlock {
  uint32_t ssrc = 0;
  uint8_t fraction = 0;
  int32_t lost = 0;
  uint32_t highest = 0;
  uint32_t jitter = 0;
  uint32_t lsr = 0;
  uint32_t dlsr = 0;
};

struct RtcpSender {
  uint64_t ntp = 0;
  uint32_t timestamp = 0;
  uint32_t packets = 0;
  uint32_t octets = 0;
};

Bytes SenderReportBytes(uint32_t ssrc, const RtcpSender& sender, const std::vector<RtcpBlock>& blocks = {});
Bytes ReceiverReportBytes(uint32_t ssrc, const std::vector<RtcpBlock>& blocks = {});
Bytes CnameBytes(uint32_t ssrc, const std::string& cname);
Bytes GoodbyeBytes(const std::vector<uint32_t>& ssrcs, const std::string& reason = "");
Bytes operator+(Bytes first, const Bytes& second);

/// A compound packet as a far end reads it.
struct RtcpSeen {
  uint32_t ssrc = 0;                 // of the report
  std::optional<RtcpSender> sender;  // none in a receiver report
  std::vector<RtcpBlock> blocks;
  std::optional<uint32_t> cname_of;
  std::string cname;
  std::vector<uint32_t> goodbyes;
};

/// None for anything but one report, one source description with one CNAME, and a goodbye maybe, in this order, with
/// nothing behind them.
std::optional<RtcpSeen> ReadRtcp(const Bytes& packet);

}  // namespace media_engine_test
