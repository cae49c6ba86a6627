#pragma once

/// Log lines from any thread. The text is formatted and copied by the caller and handed to the sinks by the log's own
/// thread, in order, so that a slow sink never holds up a call. Nothing adds a line end: the text carries its own.

#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

#define SWITCH_CHANNEL_LOG SWITCH_CHANNEL_ID_LOG, __FILE__, __SWITCH_FUNC__, __LINE__, NULL
#define SWITCH_CHANNEL_LOG_CLEAN SWITCH_CHANNEL_ID_LOG_CLEAN, __FILE__, __SWITCH_FUNC__, __LINE__, NULL
#define SWITCH_CHANNEL_SESSION_LOG(x) SWITCH_CHANNEL_ID_SESSION, __FILE__, __SWITCH_FUNC__, __LINE__, (const char*)(x)
#define SWITCH_CHANNEL_CHANNEL_LOG(x) \
  SWITCH_CHANNEL_ID_SESSION, __FILE__, __SWITCH_FUNC__, __LINE__, (const char*)switch_channel_get_session(x)
#define SWITCH_CHANNEL_UUID_LOG(x) SWITCH_CHANNEL_ID_LOG, __FILE__, __SWITCH_FUNC__, __LINE__, (x)

/// One line, as a sink sees it. Borrowed: valid during the call only.
typedef struct switch_log_node {
  char* data;  ///< the line with its prefix, as the console prints it
  char file[80];
  uint32_t line;
  char func[80];
  switch_log_level_t level;
  switch_time_t timestamp;
  char* content;   ///< the caller's text alone, inside `data`
  char* userdata;  ///< the leg's uuid, or null
  switch_text_channel_t channel;
  switch_log_level_t slevel;
  switch_event_t* tags;  ///< always null here
  int64_t sequence;      ///< counts lines from 1
} switch_log_node_t;

typedef switch_status_t (*switch_log_function_t)(const switch_log_node_t* node, switch_log_level_t level);

/// Levels 101 to 110 are dropped unless the core's debug level is at least the level minus 100. For the channel
/// SWITCH_CHANNEL_ID_SESSION `userdata` is a session, else null or a leg's uuid.
SWITCH_DECLARE_NONSTD(void)
switch_log_printf(switch_text_channel_t channel, const char* file, const char* func, int line, const char* userdata,
                  switch_log_level_t level, const char* fmt, ...) PRINTF_FUNCTION(7, 8);
SWITCH_DECLARE(void)
switch_log_vprintf(switch_text_channel_t channel, const char* file, const char* func, int line, const char* userdata,
                   switch_log_level_t level, const char* fmt, va_list ap) PRINTF_FUNCTION(7, 0);

/// `level` is the least urgent one the sink wants. A sink may log; it must not bind or unbind.
SWITCH_DECLARE(switch_status_t)
switch_log_bind_logger(switch_log_function_t function, switch_log_level_t level, switch_bool_t is_console);
/// After it returns the sink is not called again.
SWITCH_DECLARE(switch_status_t) switch_log_unbind_logger(switch_log_function_t function);

SWITCH_DECLARE(const char*) switch_log_level2str(switch_log_level_t level);
/// A name in any case or a number 0 to 7 (higher numbers: DEBUG); SWITCH_LOG_INVALID for anything else.
SWITCH_DECLARE(switch_log_level_t) switch_log_str2level(const char* str);

SWITCH_END_EXTERN_C
