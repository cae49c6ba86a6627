#pragma once

#include <switch.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace event_socket_test {

struct DestroyEvent {
  void operator()(switch_event_t* event) const { switch_event_destroy(&event); }
};
using EventPtr = std::unique_ptr<switch_event_t, DestroyEvent>;
using EventHeaders = std::vector<std::pair<std::string, std::string>>;

/// An event with the core's own headers and these.
inline EventPtr make_event(switch_event_types_t kind, const EventHeaders& headers = {},
                           const char* subclass = nullptr) {
  switch_event_t* event = nullptr;
  switch_event_create_subclass(&event, kind, subclass);
  for (const auto& [name, value] : headers) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, name.c_str(), value.c_str());
  }
  return EventPtr(event);
}

/// An event with these headers alone, whose kind is `kind` all the same.
inline EventPtr make_bare_event(switch_event_types_t kind, const EventHeaders& headers) {
  EventPtr event = make_event(SWITCH_EVENT_CLONE, headers);
  event->event_id = kind;
  return event;
}

inline void fire(EventPtr event) {
  switch_event_t* fired = event.release();
  switch_event_fire(&fired);
}

}  // namespace event_socket_test
