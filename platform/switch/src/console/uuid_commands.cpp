#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/leg_lookup.h"
#include "sip/leg_control.h"

namespace kvx_switch {
namespace {

/// What follows the first `count` words of `cmd`, with the blanks inside it.
std::string text_behind_words(const char* cmd, int count) {
  std::string rest = cmd != nullptr ? cmd : "";
  for (; count >= 0; --count) {
    rest.erase(0, std::min(rest.find_first_not_of(" \t"), rest.size()));
    if (count > 0) rest.erase(0, std::min(rest.find_first_of(" \t"), rest.size()));
  }
  rest.erase(rest.find_last_not_of(" \t") + 1);
  return rest;
}

std::string dumped(switch_core_session_t* session, bool as_json) {
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, SWITCH_EVENT_CHANNEL_DATA) != SWITCH_STATUS_SUCCESS) return "";
  switch_channel_event_set_data(switch_core_session_get_channel(session), event);
  char* text = nullptr;
  const switch_status_t status =
      as_json ? switch_event_serialize_json(event, &text) : switch_event_serialize(event, &text, SWITCH_FALSE);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  switch_event_destroy(&event);
  return status == SWITCH_STATUS_SUCCESS && text != nullptr ? text : "";
}

}  // namespace

switch_status_t uuid_exists_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() != 1) return answer_usage(stream, "uuid_exists", kUuidExistsSyntax);
  write_text(stream, find_leg(words[0]) ? "true" : "false");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t uuid_getvar_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() != 2) return answer_usage(stream, "uuid_getvar", kUuidGetvarSyntax);
  const LockedSession session = find_leg(words[0]);
  if (!session) return answer_error(stream, kNoSuchChannel);
  const char* value = switch_channel_get_variable(switch_core_session_get_channel(session.get()), words[1].c_str());
  write_text(stream, value != nullptr ? value : "_undef_");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t uuid_setvar_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() < 2) return answer_usage(stream, "uuid_setvar", kUuidSetvarSyntax);
  const LockedSession session = find_leg(words[0]);
  if (!session) return answer_error(stream, kNoSuchChannel);
  switch_channel_t* channel = switch_core_session_get_channel(session.get());
  if (switch_channel_set_variable(channel, words[1].c_str(), text_behind_words(cmd, 2).c_str()) !=
      SWITCH_STATUS_SUCCESS) {
    return answer_error(stream, "the value refers to a variable");
  }
  return answer_ok(stream);
}

switch_status_t uuid_dump_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  const bool as_json = words.size() == 2 && equal_without_case(words[1], "json");
  const bool as_text = words.size() == 1 || (words.size() == 2 && equal_without_case(words[1], "plain"));
  if (!as_json && !as_text) return answer_usage(stream, "uuid_dump", kUuidDumpSyntax);
  const LockedSession session = find_leg(words[0]);
  if (!session) return answer_error(stream, kNoSuchChannel);
  write_text(stream, dumped(session.get(), as_json));
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace kvx_switch
