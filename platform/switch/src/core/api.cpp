#include <string>

#include <switch.h>

#include "core/guard.h"

namespace {

void fire_event(const char* command, const char* argument) {
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, SWITCH_EVENT_API) != SWITCH_STATUS_SUCCESS) return;
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "API-Command", command);
  if (!zstr(argument)) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "API-Command-Argument", argument);
  }
  switch_event_fire(&event);
}

/// An exception stops here: the command counts as failed, its user is told so, and the log says what it was.
switch_status_t run(switch_api_interface_t* api, const char* argument, switch_core_session_t* session,
                    switch_stream_handle_t* stream) {
  switch_status_t status = SWITCH_STATUS_GENERR;
  std::string what;
  if (kvx_switch::RunGuarded([&] { status = api->function(argument, session, stream); }, what)) return status;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the command %s: %s\n", api->interface_name,
                    what.c_str());
  stream->write_function(stream, "-ERR the command failed\n");
  return SWITCH_STATUS_GENERR;
}

}  // namespace

switch_status_t switch_api_execute(const char* cmd, const char* arg, switch_core_session_t* session,
                                   switch_stream_handle_t* stream) {
  switch_assert(stream && stream->write_function);
  switch_api_interface_t* api = switch_loadable_module_get_api_interface(cmd);
  if (!api || !api->function) {
    UNPROTECT_INTERFACE(api);
    stream->write_function(stream, "INVALID COMMAND!\n");
    return SWITCH_STATUS_FALSE;
  }
  fire_event(api->interface_name, arg);
  const switch_status_t status = run(api, arg, session, stream);
  UNPROTECT_INTERFACE(api);
  return status;
}

switch_status_t switch_console_execute(char* line, int, switch_stream_handle_t* stream) {
  std::string command = switch_str_nil(line);
  const char* const kBlanks = " \t\r\n";
  command.erase(0, command.find_first_not_of(kBlanks));
  command.erase(command.find_last_not_of(kBlanks) + 1);
  if (command.empty()) return SWITCH_STATUS_SUCCESS;
  const size_t end = command.find_first_of(kBlanks);
  std::string argument;
  if (end != std::string::npos) {
    argument = command.substr(command.find_first_not_of(kBlanks, end));
    command.erase(end);
  }
  return switch_api_execute(command.c_str(), argument.empty() ? nullptr : argument.c_str(), nullptr, stream);
}
