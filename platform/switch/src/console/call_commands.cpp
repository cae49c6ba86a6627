#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/leg_lookup.h"

namespace kvx_switch {
namespace {

constexpr size_t kMostCauseDigits = 3;

/// The core takes an unknown name for an ordinary hang-up; an operator's slip should not pass for one.
bool parse_cause(const std::string& text, switch_call_cause_t& cause) {
  const bool number = text.find_first_not_of("0123456789") == std::string::npos;
  if (number && text.size() > kMostCauseDigits) return false;
  cause = switch_channel_str2cause(text.c_str());
  if (number) return static_cast<int>(cause) == std::stoi(text);
  return equal_without_case(switch_channel_cause2str(cause), text);
}

}  // namespace

switch_status_t hupall_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  switch_call_cause_t cause = SWITCH_CAUSE_MANAGER_REQUEST;
  if (words.size() > 1) return answer_usage(stream, "hupall", kHupallSyntax);
  if (words.size() == 1 && !parse_cause(words[0], cause)) {
    return answer_error(stream, "\"" + words[0] + "\" is no hang-up cause");
  }
  switch_core_session_hupall(cause);
  return answer_ok(stream, std::string("hangup all channels with cause ") + switch_channel_cause2str(cause));
}

switch_status_t uuid_kill_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  switch_call_cause_t cause = SWITCH_CAUSE_NORMAL_CLEARING;
  if (words.empty() || words.size() > 2) return answer_usage(stream, "uuid_kill", kUuidKillSyntax);
  if (words.size() == 2 && !parse_cause(words[1], cause)) {
    return answer_error(stream, "\"" + words[1] + "\" is no hang-up cause");
  }
  const LockedSession session = find_leg(words[0]);
  if (!session) return answer_error(stream, kNoSuchLeg);
  switch_channel_hangup(switch_core_session_get_channel(session.get()), cause);
  return answer_ok(stream);
}

}  // namespace kvx_switch
