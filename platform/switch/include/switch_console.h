#pragma once

/// Commands: the stream they write to, their execution, and completion of a line that is being typed.

#include "switch_module_interfaces.h"
#include "switch_types.h"
#include "switch_xml.h"

SWITCH_BEGIN_EXTERN_C

typedef struct switch_console_callback_match_node {
  char* val;
  struct switch_console_callback_match_node* next;
} switch_console_callback_match_node_t;

/// What a completion function offers. Made with push_match, owned by whoever asked.
typedef struct switch_console_callback_match {
  switch_console_callback_match_node_t* head;
  switch_console_callback_match_node_t* end;
  int count;
  int dynamic;
} switch_console_callback_match_t;

typedef switch_status_t (*switch_console_complete_callback_t)(const char* line, const char* last_word,
                                                              switch_console_callback_match_t** matches);

SWITCH_DECLARE(void) switch_console_push_match(switch_console_callback_match_t** matches, const char* new_val);
SWITCH_DECLARE(void) switch_console_free_matches(switch_console_callback_match_t** matches);
SWITCH_DECLARE(switch_status_t)
switch_console_add_complete_func(const char* name, switch_console_complete_callback_t cb);
SWITCH_DECLARE(switch_status_t) switch_console_del_complete_func(const char* name);

/// Offers words for the end of `line`, whose last, unfinished word is `last_word`. Writes a list to `console_out` when
/// that is not null; to `stream`, when not null, lines of the candidates and, when they share more than was typed, a
/// line "write=<characters to remove>:<text to add>", with a blank behind a sole candidate; to `xml`, when not null,
/// one <match> per candidate below it. Returns the number of candidates, at most 255.
SWITCH_DECLARE(unsigned char)
switch_console_complete(const char* line, const char* last_word, FILE* console_out, switch_stream_handle_t* stream,
                        switch_xml_t xml);

/// Runs a line (command, blank, arguments). FALSE when there is no such command.
SWITCH_DECLARE(switch_status_t) switch_console_execute(char* line, int recursion, switch_stream_handle_t* stream);

SWITCH_DECLARE_NONSTD(switch_status_t)
switch_console_stream_write(switch_stream_handle_t* handle, const char* fmt, ...) PRINTF_FUNCTION(2, 3);
SWITCH_DECLARE(switch_status_t)
switch_console_stream_raw_write(switch_stream_handle_t* handle, uint8_t* data, switch_size_t datalen);

#define SWITCH_CMD_CHUNK_LEN 1024
/// A stream with a heap buffer in `s.data`, which the caller frees.
#define SWITCH_STANDARD_STREAM(s)                         \
  memset(&s, 0, sizeof(s));                               \
  s.data = malloc(SWITCH_CMD_CHUNK_LEN);                  \
  switch_assert(s.data);                                  \
  memset(s.data, 0, SWITCH_CMD_CHUNK_LEN);                \
  s.end = s.data;                                         \
  s.data_size = SWITCH_CMD_CHUNK_LEN;                     \
  s.write_function = switch_console_stream_write;         \
  s.raw_write_function = switch_console_stream_raw_write; \
  s.alloc_len = SWITCH_CMD_CHUNK_LEN;                     \
  s.alloc_chunk = SWITCH_CMD_CHUNK_LEN

SWITCH_END_EXTERN_C
