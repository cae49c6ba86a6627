#include "support/event_capture.h"

#include <cstdlib>
#include <stdexcept>

namespace test_support {

namespace {

constexpr char kFenceHeader[] = "Event-Capture-Fence";
constexpr std::chrono::seconds kLongest(10);

CapturedEvent copy_of(const switch_event_t& event) {
  CapturedEvent copy;
  copy.type = event.event_id;
  for (const switch_event_header_t* header = event.headers; header != nullptr; header = header->next) {
    copy.headers.emplace_back(header->name, header->value);
  }
  if (event.body != nullptr) copy.body = event.body;
  return copy;
}

}  // namespace

std::string CapturedEvent::Header(const std::string& name) const {
  for (const auto& header : headers) {
    if (header.first == name) return header.second;
  }
  return "";
}

std::vector<std::pair<std::string, std::string>> CapturedEvent::HeadersFrom(const std::string& name) const {
  std::vector<std::pair<std::string, std::string>> found;
  for (const auto& header : headers) {
    if (!found.empty() || header.first == name) found.push_back(header);
  }
  return found;
}

EventCapture::EventCapture(switch_event_types_t type, const char* subclass) {
  switch_event_bind_removable("event_capture", type, subclass, Receive, this, &node_);
  switch_event_bind_removable("event_capture_fence", SWITCH_EVENT_GENERAL, nullptr, Receive, this, &fence_node_);
}

EventCapture::~EventCapture() {
  switch_event_unbind(&node_);
  switch_event_unbind(&fence_node_);
}

void EventCapture::Receive(switch_event_t* event) {
  auto* capture = static_cast<EventCapture*>(event->bind_user_data);
  const char* fence = switch_event_get_header(event, kFenceHeader);
  std::lock_guard<std::mutex> guard(capture->mutex_);
  if (fence != nullptr) {
    capture->fence_seen_ = std::strtoul(fence, nullptr, 10);
  } else {
    capture->events_.push_back(copy_of(*event));
  }
  capture->arrived_.notify_all();
}

std::vector<CapturedEvent> EventCapture::WaitFor(std::size_t count, std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  arrived_.wait_for(lock, limit, [&] { return events_.size() >= count; });
  return events_;
}

std::vector<CapturedEvent> EventCapture::All() {
  std::unique_lock<std::mutex> lock(mutex_);
  const unsigned long fence = ++fences_sent_;
  lock.unlock();
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_GENERAL);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, kFenceHeader, std::to_string(fence).c_str());
  switch_event_fire(&event);
  lock.lock();
  if (!arrived_.wait_for(lock, kLongest, [&] { return fence_seen_ >= fence; })) {
    throw std::runtime_error("the switch did not deliver an event within 10 s");
  }
  return events_;
}

}  // namespace test_support
