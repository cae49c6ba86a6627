#pragma once

/// Events: ordered lists of named text headers, fired by anyone and delivered to those who bound to their kind.
/// An event is owned by whoever created it until it is fired or delivered; after that the pointer is null.

#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

struct switch_event_header {
  char* name;
  char* value;
  char** array;        ///< always null: headers hold one value each
  int idx;             ///< always 0
  unsigned long hash;  ///< of the name in lower case
  struct switch_event_header* next;
};

struct switch_event {
  switch_event_types_t event_id;
  switch_priority_t priority;
  char* owner;
  char* subclass_name;
  switch_event_header_t* headers;
  switch_event_header_t* last_header;
  char* body;
  void* bind_user_data;   ///< what the receiver bound with; set for each call of it
  void* event_user_data;  ///< what the sender fired with
  unsigned long key;
  struct switch_event* next;
  int flags;
};

#define SWITCH_EVENT_SUBCLASS_ANY NULL

/// All kinds but CLONE start with the core's own headers. A subclass goes with CUSTOM and CLONE only, else GENERR.
SWITCH_DECLARE(switch_status_t)
switch_event_create_subclass_detailed(const char* file, const char* func, int line, switch_event_t** event,
                                      switch_event_types_t event_id, const char* subclass_name);
#define switch_event_create_subclass(_e, _eid, _sn) \
  switch_event_create_subclass_detailed(__FILE__, __SWITCH_FUNC__, __LINE__, _e, _eid, _sn)
#define switch_event_create(event, id) \
  switch_event_create_subclass_detailed(__FILE__, __SWITCH_FUNC__, __LINE__, event, id, SWITCH_EVENT_SUBCLASS_ANY)

/// BOTTOM appends, TOP prepends. A null value adds nothing and gives GENERR.
SWITCH_DECLARE(switch_status_t)
switch_event_add_header_string(switch_event_t* event, switch_stack_t stack, const char* header_name, const char* data);
SWITCH_DECLARE_NONSTD(switch_status_t)
switch_event_add_header(switch_event_t* event, switch_stack_t stack, const char* header_name, const char* fmt, ...)
    PRINTF_FUNCTION(4, 5);
/// Names are compared without case; the first match counts. Borrowed; null when there is none. `idx` is -1 or 0.
SWITCH_DECLARE(char*) switch_event_get_header_idx(switch_event_t* event, const char* header_name, int idx);
#define switch_event_get_header(_e, _h) switch_event_get_header_idx(_e, _h, -1)
/// Removes every header of that name (and value, unless null).
SWITCH_DECLARE(switch_status_t)
switch_event_del_header_val(switch_event_t* event, const char* header_name, const char* val);
#define switch_event_del_header(_e, _h) switch_event_del_header_val(_e, _h, NULL)
SWITCH_DECLARE_NONSTD(switch_status_t)
switch_event_add_body(switch_event_t* event, const char* fmt, ...) PRINTF_FUNCTION(2, 3);

/// Queues the event for the dispatcher thread, in order; takes it and nulls the pointer. When the core is not running
/// the event is destroyed and the result is FALSE.
SWITCH_DECLARE(switch_status_t)
switch_event_fire_detailed(const char* file, const char* func, int line, switch_event_t** event, void* user_data);
#define switch_event_fire(event) switch_event_fire_detailed(__FILE__, __SWITCH_FUNC__, __LINE__, event, NULL)
#define switch_event_fire_data(event, data) switch_event_fire_detailed(__FILE__, __SWITCH_FUNC__, __LINE__, event, data)
/// Delivers on the calling thread, destroys the event and nulls the pointer.
SWITCH_DECLARE(void) switch_event_deliver(switch_event_t** event);
SWITCH_DECLARE(void) switch_event_destroy(switch_event_t** event);
#define switch_event_safe_destroy(_event) \
  if (_event) switch_event_destroy(&_event)
SWITCH_DECLARE(switch_status_t) switch_event_dup(switch_event_t** event, switch_event_t* todup);

/// The callback runs on the dispatcher's thread; the event stays the core's and `bind_user_data` holds `user_data`.
SWITCH_DECLARE(switch_status_t)
switch_event_bind(const char* id, switch_event_types_t event, const char* subclass_name,
                  switch_event_callback_t callback, void* user_data);
SWITCH_DECLARE(switch_status_t)
switch_event_bind_removable(const char* id, switch_event_types_t event, const char* subclass_name,
                            switch_event_callback_t callback, void* user_data, switch_event_node_t** node);
/// After an unbind returns the callback is not running and not called again, unless it unbinds itself.
SWITCH_DECLARE(switch_status_t) switch_event_unbind(switch_event_node_t** node);
SWITCH_DECLARE(switch_status_t) switch_event_unbind_callback(switch_event_callback_t callback);

SWITCH_DECLARE(const char*) switch_event_name(switch_event_types_t event);
SWITCH_DECLARE(switch_status_t) switch_name_event(const char* name, switch_event_types_t* type);

/// "Name: value" lines, an empty line, and the body after a Content-Length. Heap text, the caller frees it.
SWITCH_DECLARE(switch_status_t) switch_event_serialize(switch_event_t* event, char** str, switch_bool_t encode);
/// One JSON object (RFC 8259); the body is the member "_body".
SWITCH_DECLARE(switch_status_t) switch_event_serialize_json(switch_event_t* event, char** str);

/// One owner may reserve a CUSTOM subclass; INUSE when another has it.
SWITCH_DECLARE(switch_status_t)
switch_event_reserve_subclass_detailed(const char* owner, const char* subclass_name);
SWITCH_DECLARE(switch_status_t) switch_event_free_subclass_detailed(const char* owner, const char* subclass_name);
#define switch_event_reserve_subclass(subclass_name) switch_event_reserve_subclass_detailed(__FILE__, subclass_name)
#define switch_event_free_subclass(subclass_name) switch_event_free_subclass_detailed(__FILE__, subclass_name)

SWITCH_END_EXTERN_C
