#pragma once

#include <switch.h>

#include <string>

#include "console/event_subscription.h"

namespace kvx_switch {

/// An event as it goes over the event socket: "Content-Length" and "Content-Type" of the form, an empty line, and the
/// event. Plain: "Name: value" lines with the values percent-encoded, then the event's own body after a length of its
/// own. JSON: one object with the body as "_body". XML: <event> with the headers, percent-encoded too, and the body.
std::string EventMessage(switch_event_t& event, EventFormat format);

}  // namespace kvx_switch
