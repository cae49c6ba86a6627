#include <optional>
#include <string>
#include <vector>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "sip/call_leg.h"
#include "sip/destination.h"
#include "sip/dialplan.h"
#include "sip/sip_front.h"

namespace kvx_switch {
namespace {

/// A context that is named has to be there; the leg's own is.
std::string fault_of(const Destination& destination) {
  const auto dialplan = CurrentDialplan();
  if (destination.context.empty() || (dialplan && dialplan->HasContext(destination.context))) return "";
  return "there is no context \"" + destination.context + "\"";
}

}  // namespace

switch_status_t uuid_transfer_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  auto words = words_of(cmd);
  const std::string flag = words.size() > 1 && words[1][0] == '-' ? words[1] : "";
  if (!flag.empty()) words.erase(words.begin() + 1);
  const bool partner_goes = equal_without_case(flag, "-bleg");
  const bool both_go = equal_without_case(flag, "-both");
  if (words.size() < 2 || words.size() > 4 || (!flag.empty() && !partner_goes && !both_go)) {
    return answer_usage(stream, "uuid_transfer", kUuidTransferSyntax);
  }
  std::string error;
  const auto destination = ParseDestination({words.begin() + 1, words.end()}, error);
  if (destination) error = fault_of(*destination);
  if (!error.empty()) return answer_error(stream, error);
  Redirection redirection;
  if (!partner_goes) redirection.own = destination;
  if (partner_goes || both_go) redirection.partners = destination;
  error = AskLeg(words[0], [redirection](CallLeg& leg) { return leg.Redirect(redirection); });
  return error.empty() ? answer_ok(stream) : answer_error(stream, error);
}

switch_status_t uuid_hold_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  const bool off = !words.empty() && equal_without_case(words[0], "off");
  const bool toggle = !words.empty() && equal_without_case(words[0], "toggle");
  const HoldChange change = off ? HoldChange::kResume : toggle ? HoldChange::kToggle : HoldChange::kHold;
  if (words.size() != (off || toggle ? 2 : 1)) return answer_usage(stream, "uuid_hold", kUuidHoldSyntax);
  const std::string error = AskLeg(words.back(), [change](CallLeg& leg) { return leg.Hold(change); });
  return error.empty() ? answer_ok(stream, "Success") : answer_error(stream, error);
}

}  // namespace kvx_switch
