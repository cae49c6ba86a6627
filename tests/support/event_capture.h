#pragma once

#include <switch.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

/// A copy of an event that was fired.
struct CapturedEvent {
  switch_event_types_t type = SWITCH_EVENT_ALL;
  std::vector<std::pair<std::string, std::string>> headers;  // in the event's order, the core's own first
  std::string body;

  /// Empty text when there is none.
  std::string Header(const std::string& name) const;
  /// The headers from the first one of that name on: what the sender added itself.
  std::vector<std::pair<std::string, std::string>> HeadersFrom(const std::string& name) const;
};

/// The events of one kind (and, when given, subclass) that are fired while it lives. They come on threads of the
/// switch: ask with a number and a time.
class EventCapture {
 public:
  explicit EventCapture(switch_event_types_t type, const char* subclass = nullptr);
  ~EventCapture();
  EventCapture(const EventCapture&) = delete;
  EventCapture& operator=(const EventCapture&) = delete;

  /// Returns as soon as that many have come, or with fewer when the time is over.
  std::vector<CapturedEvent> WaitFor(std::size_t count,
                                     std::chrono::milliseconds limit = std::chrono::milliseconds(5000));
  /// Waits until events fired before the call have been delivered, then says what came.
  std::vector<CapturedEvent> All();

 private:
  static void Receive(switch_event_t* event);

  switch_event_node_t* node_ = nullptr;
  switch_event_node_t* fence_node_ = nullptr;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<CapturedEvent> events_;  // guarded by mutex_
  unsigned long fences_sent_ = 0;      // guarded by mutex_
  unsigned long fence_seen_ = 0;       // guarded by mutex_
};

}  // namespace test_support
