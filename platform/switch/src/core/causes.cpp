#include <switch.h>

namespace {

struct Cause {
  const char* name;
  switch_call_cause_t value;
};

#define CAUSE(name) \
  { #name, SWITCH_CAUSE_##name }

constexpr Cause kCauses[] = {CAUSE(NONE),
                             CAUSE(UNALLOCATED_NUMBER),
                             CAUSE(NO_ROUTE_TRANSIT_NET),
                             CAUSE(NO_ROUTE_DESTINATION),
                             CAUSE(CHANNEL_UNACCEPTABLE),
                             CAUSE(CALL_AWARDED_DELIVERED),
                             CAUSE(NORMAL_CLEARING),
                             CAUSE(USER_BUSY),
                             CAUSE(NO_USER_RESPONSE),
                             CAUSE(NO_ANSWER),
                             CAUSE(SUBSCRIBER_ABSENT),
                             CAUSE(CALL_REJECTED),
                             CAUSE(NUMBER_CHANGED),
                             CAUSE(REDIRECTION_TO_NEW_DESTINATION),
                             CAUSE(EXCHANGE_ROUTING_ERROR),
                             CAUSE(DESTINATION_OUT_OF_ORDER),
                             CAUSE(INVALID_NUMBER_FORMAT),
                             CAUSE(FACILITY_REJECTED),
                             CAUSE(RESPONSE_TO_STATUS_ENQUIRY),
                             CAUSE(NORMAL_UNSPECIFIED),
                             CAUSE(NORMAL_CIRCUIT_CONGESTION),
                             CAUSE(NETWORK_OUT_OF_ORDER),
                             CAUSE(NORMAL_TEMPORARY_FAILURE),
                             CAUSE(SWITCH_CONGESTION),
                             CAUSE(ACCESS_INFO_DISCARDED),
                             CAUSE(REQUESTED_CHAN_UNAVAIL),
                             CAUSE(PRE_EMPTED),
                             CAUSE(FACILITY_NOT_SUBSCRIBED),
                             CAUSE(OUTGOING_CALL_BARRED),
                             CAUSE(INCOMING_CALL_BARRED),
                             CAUSE(BEARERCAPABILITY_NOTAUTH),
                             CAUSE(BEARERCAPABILITY_NOTAVAIL),
                             CAUSE(SERVICE_UNAVAILABLE),
                             CAUSE(BEARERCAPABILITY_NOTIMPL),
                             CAUSE(CHAN_NOT_IMPLEMENTED),
                             CAUSE(FACILITY_NOT_IMPLEMENTED),
                             CAUSE(SERVICE_NOT_IMPLEMENTED),
                             CAUSE(INVALID_CALL_REFERENCE),
                             CAUSE(INCOMPATIBLE_DESTINATION),
                             CAUSE(INVALID_MSG_UNSPECIFIED),
                             CAUSE(MANDATORY_IE_MISSING),
                             CAUSE(MESSAGE_TYPE_NONEXIST),
                             CAUSE(WRONG_MESSAGE),
                             CAUSE(IE_NONEXIST),
                             CAUSE(INVALID_IE_CONTENTS),
                             CAUSE(WRONG_CALL_STATE),
                             CAUSE(RECOVERY_ON_TIMER_EXPIRE),
                             CAUSE(MANDATORY_IE_LENGTH_ERROR),
                             CAUSE(PROTOCOL_ERROR),
                             CAUSE(INTERWORKING),
                             CAUSE(SUCCESS),
                             CAUSE(ORIGINATOR_CANCEL),
                             CAUSE(CRASH),
                             CAUSE(SYSTEM_SHUTDOWN),
                             CAUSE(LOSE_RACE),
                             CAUSE(MANAGER_REQUEST),
                             CAUSE(BLIND_TRANSFER),
                             CAUSE(ATTENDED_TRANSFER),
                             CAUSE(ALLOTTED_TIMEOUT),
                             CAUSE(USER_CHALLENGE),
                             CAUSE(MEDIA_TIMEOUT),
                             CAUSE(PICKED_OFF),
                             CAUSE(USER_NOT_REGISTERED),
                             CAUSE(PROGRESS_TIMEOUT),
                             CAUSE(INVALID_GATEWAY),
                             CAUSE(GATEWAY_DOWN),
                             CAUSE(INVALID_URL),
                             CAUSE(INVALID_PROFILE),
                             CAUSE(NO_PICKUP),
                             CAUSE(SRTP_READ_ERROR),
                             CAUSE(BOWOUT),
                             CAUSE(BUSY_EVERYWHERE),
                             CAUSE(DECLINE),
                             CAUSE(DOES_NOT_EXIST_ANYWHERE),
                             CAUSE(NOT_ACCEPTABLE),
                             CAUSE(UNWANTED)};

#undef CAUSE

}  // namespace

const char* switch_channel_cause2str(switch_call_cause_t cause) {
  for (const Cause& at : kCauses) {
    if (at.value == cause) return at.name;
  }
  return "UNKNOWN";
}

switch_call_cause_t switch_channel_str2cause(const char* str) {
  if (zstr(str)) return SWITCH_CAUSE_NONE;
  const int number = isdigit(static_cast<unsigned char>(*str)) ? atoi(str) : -1;
  for (const Cause& at : kCauses) {
    if (at.value == number || !strcasecmp(at.name, str)) return at.value;
  }
  return SWITCH_CAUSE_NORMAL_CLEARING;
}
