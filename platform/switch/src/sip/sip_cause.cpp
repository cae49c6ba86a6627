#include "sip/sip_cause.h"

#include <strings.h>
#include <switch.h>

#include <algorithm>
#include <cstdlib>

namespace kvx_switch {

namespace {

// Q.850 causes take seven bits.
constexpr int kLastQ850Cause = 127;

struct StatusPhrase {
  int status;
  const char* phrase;
};

constexpr StatusPhrase kPhrases[] = {
    {100, "Trying"},
    {180, "Ringing"},
    {181, "Call Is Being Forwarded"},
    {182, "Queued"},
    {183, "Session Progress"},
    {200, "OK"},
    {202, "Accepted"},
    {400, "Bad Request"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {408, "Request Timeout"},
    {410, "Gone"},
    {415, "Unsupported Media Type"},
    {480, "Temporarily Unavailable"},
    {483, "Too Many Hops"},
    {481, "Call/Transaction Does Not Exist"},
    {484, "Address Incomplete"},
    {486, "Busy Here"},
    {487, "Request Terminated"},
    {488, "Not Acceptable Here"},
    {491, "Request Pending"},
    {500, "Server Internal Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Server Time-out"},
    {600, "Busy Everywhere"},
    {603, "Decline"},
    {604, "Does Not Exist Anywhere"},
    {606, "Not Acceptable"},
};

}  // namespace

int StatusOfCause(switch_call_cause_t cause) {
  switch (cause) {
    case SWITCH_CAUSE_UNALLOCATED_NUMBER:
    case SWITCH_CAUSE_NO_ROUTE_TRANSIT_NET:
    case SWITCH_CAUSE_NO_ROUTE_DESTINATION:
      return 404;
    case SWITCH_CAUSE_USER_BUSY:
      return 486;
    case SWITCH_CAUSE_NO_USER_RESPONSE:
      return 408;
    case SWITCH_CAUSE_CALL_REJECTED:
      return 603;
    case SWITCH_CAUSE_NUMBER_CHANGED:
    case SWITCH_CAUSE_REDIRECTION_TO_NEW_DESTINATION:
      return 410;
    case SWITCH_CAUSE_EXCHANGE_ROUTING_ERROR:
      return 483;
    case SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER:
    case SWITCH_CAUSE_NETWORK_OUT_OF_ORDER:
      return 502;
    case SWITCH_CAUSE_INVALID_NUMBER_FORMAT:
      return 484;
    case SWITCH_CAUSE_FACILITY_REJECTED:
    case SWITCH_CAUSE_FACILITY_NOT_IMPLEMENTED:
    case SWITCH_CAUSE_SERVICE_NOT_IMPLEMENTED:
      return 501;
    case SWITCH_CAUSE_NORMAL_CIRCUIT_CONGESTION:
    case SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE:
    case SWITCH_CAUSE_SWITCH_CONGESTION:
    case SWITCH_CAUSE_REQUESTED_CHAN_UNAVAIL:
    case SWITCH_CAUSE_BEARERCAPABILITY_NOTAVAIL:
    case SWITCH_CAUSE_SYSTEM_SHUTDOWN:
      return 503;
    case SWITCH_CAUSE_OUTGOING_CALL_BARRED:
    case SWITCH_CAUSE_INCOMING_CALL_BARRED:
    case SWITCH_CAUSE_BEARERCAPABILITY_NOTAUTH:
      return 403;
    case SWITCH_CAUSE_BEARERCAPABILITY_NOTIMPL:
    case SWITCH_CAUSE_INCOMPATIBLE_DESTINATION:
      return 488;
    case SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE:
      return 504;
    case SWITCH_CAUSE_ORIGINATOR_CANCEL:
      return 487;
    default:
      return 480;
  }
}

switch_call_cause_t CauseOfStatus(int status) {
  switch (status) {
    case 401:
    case 402:
    case 403:
    case 407:
    case 603:
    case 608:
      return SWITCH_CAUSE_CALL_REJECTED;
    case 404:
      return SWITCH_CAUSE_UNALLOCATED_NUMBER;
    case 485:
    case 604:
      return SWITCH_CAUSE_NO_ROUTE_DESTINATION;
    case 408:
    case 504:
      return SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE;
    case 410:
      return SWITCH_CAUSE_NUMBER_CHANGED;
    case 300:
    case 301:
    case 302:
    case 305:
    case 380:
      return SWITCH_CAUSE_REDIRECTION_TO_NEW_DESTINATION;
    case 413:
    case 414:
    case 416:
    case 420:
    case 421:
    case 423:
    case 505:
    case 513:
      return SWITCH_CAUSE_INTERWORKING;
    case 480:
      return SWITCH_CAUSE_NO_USER_RESPONSE;
    case 400:
    case 481:
    case 500:
    case 503:
      return SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE;
    case 486:
    case 600:
      return SWITCH_CAUSE_USER_BUSY;
    case 484:
      return SWITCH_CAUSE_INVALID_NUMBER_FORMAT;
    case 488:
    case 606:
      return SWITCH_CAUSE_INCOMPATIBLE_DESTINATION;
    case 502:
      return SWITCH_CAUSE_NETWORK_OUT_OF_ORDER;
    case 405:
      return SWITCH_CAUSE_SERVICE_UNAVAILABLE;
    case 406:
    case 415:
    case 501:
      return SWITCH_CAUSE_SERVICE_NOT_IMPLEMENTED;
    case 482:
    case 483:
      return SWITCH_CAUSE_EXCHANGE_ROUTING_ERROR;
    case 487:
      return SWITCH_CAUSE_ORIGINATOR_CANCEL;
    default:
      return SWITCH_CAUSE_NORMAL_UNSPECIFIED;
  }
}

bool StatusPassesThrough(int status) {
  static constexpr int kOneHop[] = {401, 407, 408, 421, 422, 423, 481, 487, 491, 494};
  return status >= 400 && status < 700 &&
         std::find(std::begin(kOneHop), std::end(kOneHop), status) == std::end(kOneHop);
}

std::string ReasonHeader(switch_call_cause_t cause) {
  if (cause == SWITCH_CAUSE_ORIGINATOR_CANCEL) return "SIP;cause=487;text=\"ORIGINATOR_CANCEL\"";
  if (cause == SWITCH_CAUSE_LOSE_RACE) return "SIP;cause=200;text=\"Call completed elsewhere\"";
  int number = cause > SWITCH_CAUSE_NONE && cause <= kLastQ850Cause ? cause : SWITCH_CAUSE_NORMAL_UNSPECIFIED;
  return "Q.850;cause=" + std::to_string(number) + ";text=\"" + switch_channel_cause2str(cause) + "\"";
}

const char* PhraseOfStatus(int status) {
  auto found = std::find_if(std::begin(kPhrases), std::end(kPhrases),
                            [status](const StatusPhrase& row) { return row.status == status; });
  return found == std::end(kPhrases) ? "Call Ended" : found->phrase;
}

switch_call_cause_t CauseOfReason(const std::string& protocol, const std::string& cause) {
  char* end = nullptr;
  const long number = std::strtol(cause.c_str(), &end, 10);
  if (end == cause.c_str() || *end != '\0' || number <= 0) return SWITCH_CAUSE_NONE;
  if (strcasecmp(protocol.c_str(), "Q.850") == 0) {
    return number <= kLastQ850Cause ? static_cast<switch_call_cause_t>(number) : SWITCH_CAUSE_NONE;
  }
  if (strcasecmp(protocol.c_str(), "SIP") != 0) return SWITCH_CAUSE_NONE;
  if (number == 200) return SWITCH_CAUSE_LOSE_RACE;
  return number >= 300 && number < 700 ? CauseOfStatus(static_cast<int>(number)) : SWITCH_CAUSE_NONE;
}

}  // namespace kvx_switch
