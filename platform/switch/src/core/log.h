#pragma once

#include <functional>

#include <switch.h>

namespace kvx_switch {

/// Before StartLog and after StopLog lines go to standard error, at once.
void StartLog();
/// Writes what is queued, ends the log's thread, forgets all sinks.
void StopLog();
/// Returns when every line logged before the call has been handed to the sinks. Not from inside a sink.
void FlushLog();

/// Lines above this level go nowhere, whatever the sinks want.
void SetLogLevel(switch_log_level_t level);
switch_log_level_t LogLevel();

/// 0 to 10: which of the levels DEBUG1 to DEBUG10 count as DEBUG; the others are dropped.
void SetDebugLevel(int level);
int DebugLevel();

/// The least urgent level that the console prints.
void SetConsoleLogLevel(switch_log_level_t level);
/// The console's sink: standard output, which the log flushes after each batch of lines; levels coloured on a terminal,
/// as the journal wants it where that reads, a line end added where the text has none.
switch_status_t LogToConsole(const switch_log_node_t* node, switch_log_level_t level);

/// Removes the sinks whose function `is_doomed` names; returns how many there were.
int RemoveLoggersIf(const std::function<bool(void* function)>& is_doomed);

}  // namespace kvx_switch
