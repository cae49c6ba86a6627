#include <algorithm>
#include <string>
#include <vector>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/command_arguments.h"
#include "sip/bridge_target.h"
#include "sip/dialplan.h"
#include "sip/dialplan_applications.h"
#include "sip/originate.h"
#include "sip/sip_agent.h"
#include "sip/sip_front.h"

namespace kvx_switch {
namespace {

constexpr size_t kFewestWords = 2;
constexpr size_t kMostWords = 7;

/// Reads "&application(data)" or "&application".
bool parse_application(const std::string& text, DialplanAction& action, std::string& error) {
  const size_t open = text.find('(');
  action.application = text.substr(1, open == std::string::npos ? open : open - 1);
  if (open != std::string::npos) {
    if (text.back() != ')') {
      error = "\"" + text + "\": \"(\" is not closed";
      return false;
    }
    action.data = text.substr(open + 1, text.size() - open - 2);
  }
  error = FaultOfAction(action.application, action.data);
  return error.empty();
}

bool parse_destination(const std::vector<std::string>& words, Destination& destination, std::string& error) {
  std::vector<std::string> place(words.begin() + 1, words.begin() + std::min<size_t>(words.size(), 4));
  const auto parsed = ParseDestination(place, error);
  if (!parsed) return false;
  destination = *parsed;
  if (words[1][0] == '&') {
    DialplanAction action;
    if (!parse_application(words[1], action, error)) return false;
    destination.actions.push_back(action);
  }
  const auto agent = FindSipAgent("");
  const auto dialplan = CurrentDialplan();
  if (!agent || !dialplan) {
    error = "SIP is not running";
    return false;
  }
  if (destination.context.empty()) destination.context = agent->profile().context;
  if (dialplan->HasContext(destination.context)) return true;
  error = "there is no context \"" + destination.context + "\"";
  return false;
}

bool parse_request(const std::vector<std::string>& words, OriginateRequest& request, std::string& error) {
  if (!ParseBridgePlan(words[0], request.plan, error)) return false;
  error = FaultsOfDialString(words[0]);
  if (!error.empty() || !parse_destination(words, request.answered, error)) return false;
  if (words.size() > 4) request.caller_name = words[4];
  if (words.size() > 5) request.caller_number = words[5];
  if (words.size() > 6) {
    request.timeout = RingTimeOfText(words[6]);
    if (!request.timeout) error = "timeout is \"" + words[6] + "\", not a number from 1 to 3600";
  }
  return error.empty();
}

}  // namespace

switch_status_t originate_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = arguments_of(cmd);
  if (words.size() < kFewestWords || words.size() > kMostWords) {
    return answer_usage(stream, "originate", kOriginateSyntax);
  }
  OriginateRequest request;
  std::string error;
  if (!parse_request(words, request, error)) return answer_error(stream, error);
  const OriginateResult result = Originate(request);
  if (result.uuid.empty()) return answer_error(stream, switch_channel_cause2str(result.cause));
  return answer_ok(stream, result.uuid);
}

}  // namespace kvx_switch
