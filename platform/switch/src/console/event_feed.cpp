#include "console/event_feed.h"

#include <cinttypes>
#include <utility>

#include "console/event_message.h"

namespace kvx_switch {

EventFeed::EventFeed(std::string peer, EventOutbox& outbox) : peer_(std::move(peer)), outbox_(outbox) {}

EventFeed::~EventFeed() {
  Stop();
}

void EventFeed::Stop() {
  Want({});
  const uint64_t untold = outbox_.dropped() - dropped_told_;
  if (untold == 0) return;
  dropped_told_ += untold;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                    "Event socket: %" PRIu64 " events were dropped for %s, which read too slowly\n", untold,
                    peer_.c_str());
}

void EventFeed::Want(const EventSubscription& wanted) {
  const bool any = wanted.WantsAny();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    wanted_ = std::make_shared<const EventSubscription>(wanted);
  }
  if (any && node_ == nullptr) {
    switch_event_bind_removable(peer_.c_str(), SWITCH_EVENT_ALL, SWITCH_EVENT_SUBCLASS_ANY, &EventFeed::Receive, this,
                                &node_);
  }
  if (any) return;
  switch_event_unbind(&node_);
  outbox_.Clear();
}

void EventFeed::Receive(switch_event_t* event) {
  static_cast<EventFeed*>(event->bind_user_data)->Deliver(*event);
}

void EventFeed::Deliver(switch_event_t& event) {
  std::shared_ptr<const EventSubscription> wanted;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    wanted = wanted_;
  }
  if (!wanted->Wants(event) || outbox_.Put(EventMessage(event, wanted->format()))) return;
  if (told_of_loss_.exchange(true)) return;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                    "Event socket: %s reads too slowly, events for it are dropped from %s on\n", peer_.c_str(),
                    switch_event_name(event.event_id));
}

}  // namespace kvx_switch
