/// What an endpoint counted, and what its far end reported over RTCP (RFC 3550, section 6.4).
#pragma once

#include <cstdint>
#include <vector>

namespace kelvaro::jsr309 {

/// The figures of one RTP stream pair: what one source (SSRC) of the far end sent, and what went to the far end
/// meanwhile. Prefixes: lss local sender (what this endpoint sent), lrs local receiver (what it measured on what came
/// in), rss remote sender (the far end's sender reports), rrs remote receiver (the far end's reports on what it got).
///
/// Jitter is in RTP timestamp units; the local average is over packets, the remote one over reports. Fractions lost are
/// in 1/256, of the intervals between reports. Round-trip times are in milliseconds, to the nearest, as the far end's
/// answers to sender reports of ours show them (RFC 3550, section 6.4.1). What the far end did not report is 0.
struct RtcpStatsReport {
  uint64_t lssRTPPacketsSent = 0;
  uint64_t lssBytesSent = 0;  ///< payload octets, headers not counted
  unsigned long lssSenderReportCnt = 0;

  unsigned long lrsTotalLostRTPPacketsCnt = 0;  ///< late packets are not lost, duplicates do not make up for losses
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
