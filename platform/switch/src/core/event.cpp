#include "core/event.h"

#include <string>

#include <switch.h>

namespace {

char* copy(const char* text) {
  char* copied = strdup(text);
  switch_assert(copied != nullptr);
  return copied;
}

unsigned long hash_of(const char* name) {
  unsigned long hash = 5381;
  for (; *name; ++name) hash = hash * 33 + static_cast<unsigned char>(tolower(static_cast<unsigned char>(*name)));
  return hash;
}

void free_header(switch_event_header_t* header) {
  free(header->name);
  free(header->value);
  free(header);
}

/// Takes over `value`.
void add_header(switch_event_t* event, switch_stack_t stack, const char* name, char* value) {
  auto* header = static_cast<switch_event_header_t*>(calloc(1, sizeof(switch_event_header_t)));
  switch_assert(header != nullptr);
  header->name = copy(name);
  header->value = value;
  header->hash = hash_of(name);
  if (stack & SWITCH_STACK_TOP) {
    header->next = event->headers;
    event->headers = header;
    if (!event->last_header) event->last_header = header;
    return;
  }
  if (event->last_header) {
    event->last_header->next = header;
  } else {
    event->headers = header;
  }
  event->last_header = header;
}

switch_event_t* new_event(switch_event_types_t id) {
  auto* event = static_cast<switch_event_t*>(calloc(1, sizeof(switch_event_t)));
  switch_assert(event != nullptr);
  event->event_id = id;
  return event;
}

}  // namespace

switch_status_t switch_event_create_subclass_detailed(const char* file, const char* func, int line,
                                                      switch_event_t** event, switch_event_types_t event_id,
                                                      const char* subclass_name) {
  *event = nullptr;
  if (subclass_name && event_id != SWITCH_EVENT_CUSTOM && event_id != SWITCH_EVENT_CLONE) return SWITCH_STATUS_GENERR;
  *event = new_event(event_id);
  if (event_id != SWITCH_EVENT_CLONE) kvx_switch::AddCoreHeaders(*event, file, func, line);
  if (subclass_name) {
    (*event)->subclass_name = copy(subclass_name);
    switch_event_add_header_string(*event, SWITCH_STACK_BOTTOM, "Event-Subclass", subclass_name);
  }
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_event_add_header_string(switch_event_t* event, switch_stack_t stack, const char* header_name,
                                               const char* data) {
  if (!event || !header_name || !data) return SWITCH_STATUS_GENERR;
  add_header(event, stack, header_name, copy(data));
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_event_add_header(switch_event_t* event, switch_stack_t stack, const char* header_name,
                                        const char* fmt, ...) {
  if (!event || !header_name) return SWITCH_STATUS_GENERR;
  va_list ap;
  va_start(ap, fmt);
  char* value = switch_vmprintf(fmt, ap);
  va_end(ap);
  if (!value) return SWITCH_STATUS_MEMERR;
  add_header(event, stack, header_name, value);
  return SWITCH_STATUS_SUCCESS;
}

char* switch_event_get_header_idx(switch_event_t* event, const char* header_name, int idx) {
  if (!event || !header_name || idx > 0) return nullptr;
  const unsigned long hash = hash_of(header_name);
  for (switch_event_header_t* header = event->headers; header; header = header->next) {
    if (header->hash == hash && !strcasecmp(header->name, header_name)) return header->value;
  }
  return nullptr;
}

switch_status_t switch_event_del_header_val(switch_event_t* event, const char* header_name, const char* val) {
  if (!event || !header_name) return SWITCH_STATUS_FALSE;
  switch_status_t result = SWITCH_STATUS_FALSE;
  switch_event_header_t* previous = nullptr;
  for (switch_event_header_t* header = event->headers; header;) {
    switch_event_header_t* next = header->next;
    if (strcasecmp(header->name, header_name) || (val && strcmp(val, header->value))) {
      previous = header;
    } else {
      (previous ? previous->next : event->headers) = next;
      if (event->last_header == header) event->last_header = previous;
      free_header(header);
      result = SWITCH_STATUS_SUCCESS;
    }
    header = next;
  }
  return result;
}

switch_status_t switch_event_add_body(switch_event_t* event, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char* body = switch_vmprintf(fmt, ap);
  va_end(ap);
  if (!body) return SWITCH_STATUS_MEMERR;
  free(event->body);
  event->body = body;
  return SWITCH_STATUS_SUCCESS;
}

void switch_event_destroy(switch_event_t** event) {
  if (!event || !*event) return;
  switch_event_t* doomed = *event;
  *event = nullptr;
  for (switch_event_header_t* header = doomed->headers; header;) {
    switch_event_header_t* next = header->next;
    free_header(header);
    header = next;
  }
  free(doomed->owner);
  free(doomed->subclass_name);
  free(doomed->body);
  free(doomed);
}

switch_status_t switch_event_dup(switch_event_t** event, switch_event_t* todup) {
  *event = new_event(todup->event_id);
  (*event)->priority = todup->priority;
  (*event)->key = todup->key;
  (*event)->flags = todup->flags;
  (*event)->event_user_data = todup->event_user_data;
  (*event)->bind_user_data = todup->bind_user_data;
  if (todup->owner) (*event)->owner = copy(todup->owner);
  if (todup->subclass_name) (*event)->subclass_name = copy(todup->subclass_name);
  if (todup->body) (*event)->body = copy(todup->body);
  for (switch_event_header_t* header = todup->headers; header; header = header->next) {
    add_header(*event, SWITCH_STACK_BOTTOM, header->name, copy(header->value));
  }
  return SWITCH_STATUS_SUCCESS;
}
