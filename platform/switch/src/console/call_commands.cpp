#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/leg_lookup.h"
#include "sip/dialplan_applications.h"
#include "sip/leg_control.h"

namespace kvx_switch {
switch_status_t hupall_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() > 1) return answer_usage(stream, "hupall", kHupallSyntax);
  const auto cause = words.empty() ? SWITCH_CAUSE_MANAGER_REQUEST : CauseOfText(words[0]);
  if (!cause) return answer_error(stream, "\"" + words[0] + "\" is no hang-up cause");
  switch_core_session_hupall(*cause);
  return answer_ok(stream, std::string("hangup all channels with cause ") + switch_channel_cause2str(*cause));
}

switch_status_t uuid_kill_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.empty() || words.size() > 2) return answer_usage(stream, "uuid_kill", kUuidKillSyntax);
  const auto cause = words.size() == 1 ? SWITCH_CAUSE_NORMAL_CLEARING : CauseOfText(words[1]);
  if (!cause) return answer_error(stream, "\"" + words[1] + "\" is no hang-up cause");
  const LockedSession session = find_leg(words[0]);
  if (!session) return answer_error(stream, kNoSuchChannel);
  switch_channel_hangup(switch_core_session_get_channel(session.get()), *cause);
  return answer_ok(stream);
}

}  // namespace kvx_switch
