/// What a daemon counts of a call ("query"), read.
///
/// Daemons relay RTCP between the far ends and learn from it: what a far end reports of the stream it gets is kept
/// under the stream's SSRC. They count packets themselves. Not told are sender reports and what is in them.
///
/// Plain functions; any thread.
#pragma once

#include "kelvaro/jsr309/rtcp_stats_report.h"
#include "rtpengine/bencode.h"
#include "rtpengine/leg_image.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

/// Of one side of a call, RTP only.
struct StreamFigures {
  uint64_t packets = 0;  ///< that were taken, what came from strangers left out
  uint64_t octets = 0;   ///< of RTP payload in them
  uint32_t ssrc = 0;     ///< the latest; 0 before the first packet
};
/// tag: "leg" or "bus".
StreamFigures ReadFigures(const Dictionary& query, const char* tag);

/// Where the far end's media comes from, once the daemon has made up its mind on that; empty before.
NgPlace ReadFoundPlace(const Dictionary& query);

/// The figures of an endpoint, from both sides of its call: one report when RTP came from its far end or went there.
/// clock_rate: of its codec.
std::vector<RtcpStatsReport> ReadReports(const Dictionary& query, uint32_t clock_rate);

}  // namespace kelvaro::jsr309::rtpengine
