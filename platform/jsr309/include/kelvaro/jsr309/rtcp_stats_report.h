/// What an endpoint counted, and what its far end reported over RTCP (RFC 3550, section 6.4).
#pragma once

#include <cstdint>
#include <vector>

namespace kelvaro::jsr309 {

/// The figures of one RTP stream pair. Prefixes: lss local sender (what this endpoint sent), lrs local receiver (what
/// it measured on what came in), rss remote sender (the far end's sender reports), rrs remote receiver (the far end's
/// receiver reports). Jitter is in RTP timestamp units, fractions lost in 1/256, round-trip times in milliseconds.
struct RtcpStatsReport {
  uint64_t lssRTPPacketsSent = 0;
  uint64_t lssBytesSent = 0;  ///< payload octets, headers not counted
  unsigned long lssSenderReportCnt = 0;

  unsigned long lrsTotalLostRTPPacketsCnt = 0;
  uint8_t lrsMaxFractionLost = 0;
  uint32_t lrsMaxInterArrivalJitter = 0;
  uint32_t lrsAvgInterArrivalJitter = 0;

  unsigned long maxroundtriptime = 0;
  unsigned long avgroundtriptime = 0;

  uint64_t rssRTPPacketsSent = 0;
  uint64_t rssBytesSent = 0;
  unsigned long rssSenderReportCnt = 0;

  unsigned long rrsTotalLostRTPPacketsCnt = 0;
  uint8_t rrsMaxFractionLost = 0;
  uint32_t rrsMaxInterArrivalJitter = 0;
  uint32_t rrsAvgInterArrivalJitter = 0;
};

class RtcpStatsReporterContainer {
 public:
  virtual ~RtcpStatsReporterContainer() = default;
  /// Replaces the content of the list by the reports of the endpoint, one per stream that was seen; none is a success.
  /// False, and the list as it was, when the endpoint is closed or its server does not answer in time.
  virtual bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) = 0;
};

}  // namespace kelvaro::jsr309
