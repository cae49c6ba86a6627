#pragma once

#include <switch.h>

#include <atomic>

#include "console/event_outbox.h"

namespace kvx_switch {

/// Brings the log's lines, down to the level that one client wants, into that client's outbox as log/data messages. A
/// client that does not keep up loses lines, and holds up nobody.
///
/// Follow and Stop are for the client's thread.
class LogFeed {
 public:
  explicit LogFeed(EventOutbox& outbox) : outbox_(outbox) {}  ///< which outlives the feed
  ~LogFeed() { Stop(); }
  LogFeed(const LogFeed&) = delete;
  LogFeed& operator=(const LogFeed&) = delete;

  void Follow(switch_log_level_t level);
  /// No line comes any more once it has returned. False when none was followed.
  bool Stop();

 private:
  static switch_status_t Receive(const switch_log_node_t* node, switch_log_level_t level);

  EventOutbox& outbox_;
  bool following_ = false;
  std::atomic<int> level_{SWITCH_LOG_DEBUG};
};

}  // namespace kvx_switch
