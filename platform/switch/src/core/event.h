#pragma once

#include <functional>
#include <string>

#include <switch.h>

namespace kvx_switch {

void StartEvents();
/// Delivers what is queued, ends the dispatcher's thread, forgets all bindings and reservations.
void StopEvents();
/// Returns when every event fired before the call has been delivered. Not from inside a callback.
void FlushEvents();

/// Whether anybody is bound for events of that kind. One that nobody wants need not be made: it costs a hundred
/// allocations, and a call has dozens.
bool IsEventWanted(switch_event_types_t id);

/// What every event begins with: its name, the core's identity, the time, where it was made, and its number.
void AddCoreHeaders(switch_event_t* event, const char* file, const char* func, int line);

/// What could end a line or a word of a client's, and what is not ASCII, becomes %XX (RFC 3986, 2.1).
std::string UrlEncoded(const char* text);

/// Removes the bindings whose callback `is_doomed` names; returns how many there were.
int RemoveEventBindingsIf(const std::function<bool(void* callback)>& is_doomed);

}  // namespace kvx_switch
