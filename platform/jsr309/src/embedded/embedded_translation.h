/// From the library's record of a media description to the engine's, and back.
#pragma once

#include "embedded/embedded_context.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"
#include "media_engine/description.h"
#include "media_engine/statistics.h"

#include <vector>

namespace kelvaro::jsr309 {

enum class LocalKind { kOffer, kAnswer };
enum class Side { kLocal, kRemote };

media_engine::LocalSettings ToLocalSettings(const MediaConfig& config, LocalKind kind);
media_engine::RemoteDescription ToRemoteDescription(const MediaConfig& config);
media_engine::Direction ToEngineDirection(Direction direction);
void FillLocal(const media_engine::LocalDescription& description, MediaConfig& config);
/// Address, port, and the header fields of what is sent towards the far end.
void FillImage(const media_engine::ImageDescription& image, MediaConfig& config);
/// One report for each of the far end's sources; none when no RTP was seen.
std::vector<RtcpStatsReport> ToReports(const media_engine::EndpointStatistics& statistics);

/// Names what the record asks for and the engine cannot do.
void NameUnsupportedSettings(const MediaConfig& config, Side side, EmbeddedContext& context);

}  // namespace kelvaro::jsr309
