#include <switch.h>
#include <switch_media_server.h>

#include <cstring>

#include "faults.h"

// The linker gives every call in this program of a function f to __wrap_f; __real_f is the function itself.

using module_faults::reached;

namespace {

/// Of all texts that are copied in this program, those that the module copies.
bool is_the_modules(const char* text) {
  return std::strstr(text, "octet-align") != nullptr;
}

/// The tests' own event captures fire events too.
bool is_the_modules(switch_event_types_t type) {
  return type == SWITCH_EVENT_RECV_RTCP_MESSAGE;
}

}  // namespace

extern "C" {

char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text) {
  return is_the_modules(text) && !reached("strdup") ? nullptr : __real_strdup(text);
}

switch_channel_t* __real_switch_core_session_get_channel(switch_core_session_t* session);
switch_channel_t* __wrap_switch_core_session_get_channel(switch_core_session_t* session) {
  return reached("switch_core_session_get_channel") ? __real_switch_core_session_get_channel(session) : nullptr;
}

switch_media_connection_t* __real_switch_core_session_get_media_connection(switch_core_session_t* session);
switch_media_connection_t* __wrap_switch_core_session_get_media_connection(switch_core_session_t* session) {
  return reached("switch_core_session_get_media_connection") ? __real_switch_core_session_get_media_connection(session)
                                                             : nullptr;
}

switch_status_t __real_switch_event_create_subclass_detailed(const char* file, const char* func, int line,
                                                             switch_event_t** event, switch_event_types_t type,
                                                             const char* subclass);
switch_status_t __wrap_switch_event_create_subclass_detailed(const char* file, const char* func, int line,
                                                             switch_event_t** event, switch_event_types_t type,
                                                             const char* subclass) {
  if (is_the_modules(type) && !reached("switch_event_create")) return SWITCH_STATUS_MEMERR;
  return __real_switch_event_create_subclass_detailed(file, func, line, event, type, subclass);
}

switch_status_t __real_switch_event_fire_detailed(const char* file, const char* func, int line, switch_event_t** event,
                                                  void* data);
switch_status_t __wrap_switch_event_fire_detailed(const char* file, const char* func, int line, switch_event_t** event,
                                                  void* data) {
  if (is_the_modules((*event)->event_id) && !reached("switch_event_fire")) return SWITCH_STATUS_FALSE;
  return __real_switch_event_fire_detailed(file, func, line, event, data);
}

}  // extern "C"
