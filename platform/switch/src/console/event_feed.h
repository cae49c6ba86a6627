#pragma once

#include <switch.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "console/event_outbox.h"
#include "console/event_subscription.h"

namespace kvx_switch {

/// Brings the events that one client wants from the switch's event thread into that client's outbox, in the client's
/// form. A client that does not keep up loses events; that is logged when it begins, and with their number when the
/// feed stops, and holds up nobody.
///
/// Want and Stop are for the client's thread. The core's events must be running from the first wish for events until
/// the feed's end.
class EventFeed {
 public:
  /// `peer` names the client in log lines; `outbox` outlives the feed.
  EventFeed(std::string peer, EventOutbox& outbox);
  /// Stops the feed.
  ~EventFeed();
  EventFeed(const EventFeed&) = delete;
  EventFeed& operator=(const EventFeed&) = delete;

  /// From now on these events, and no others. What waits in the outbox stays, unless none at all are wanted.
  void Want(const EventSubscription& wanted);
  /// No event comes any more once it has returned, and what was lost has been told.
  void Stop();

 private:
  static void Receive(switch_event_t* event);
  void Deliver(switch_event_t& event);

  const std::string peer_;
  EventOutbox& outbox_;
  switch_event_node_t* node_ = nullptr;  // of the client's thread
  uint64_t dropped_told_ = 0;            // of the client's thread
  std::atomic<bool> told_of_loss_{false};
  std::mutex mutex_;
  std::shared_ptr<const EventSubscription> wanted_;  // guarded by mutex_
};

}  // namespace kvx_switch
