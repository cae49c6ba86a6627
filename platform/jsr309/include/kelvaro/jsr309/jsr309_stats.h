/// The use of all media servers at one moment: the sum, and each by itself.
#pragma once

#include "kelvaro/jsr309/media_session_stats.h"

namespace kelvaro::jsr309 {

/// A value, filled by MSControlFactory::GetStats. Threads: no locking, one thread at a time.
class JSR309Stats {
 public:
  /// All servers taken together. The highest count is that of all servers at one moment, not the sum of their highest
  /// counts; in service means that at least one server is.
  const MediaSessionStats& GetMediaSessionStats() const { return summarystats_; }
  void SetMediaSessionStats(const MediaSessionStats& stats) { summarystats_ = stats; }
  const MediaSessionStatsMap& GetMediaSessionStatsPerMediaServer() const { return statsmap_; }
  void SetMediaSessionStatsPerMediaServer(const MediaSessionStatsMap& stats) { statsmap_ = stats; }

 private:
  MediaSessionStats summarystats_;
  MediaSessionStatsMap statsmap_;
};

}  // namespace kelvaro::jsr309
