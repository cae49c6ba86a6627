#include "sip/unreachable.h"

#include <cstdio>

#include "sip/sofia.h"

namespace kvx_switch {

bool CameFromFarEnd(nua_s* nua) {
  const msg_t* message = nua_current_request(nua);
  const su_sockaddr_t* source = message ? msg_addr(const_cast<msg_t*>(message)) : nullptr;
  return source && (source->su_family == AF_INET || source->su_family == AF_INET6);
}

Unreachable DescribeUnreachable(int status, const std::string& phrase, uint32_t timeout_milliseconds) {
  if (status == 408) {
    char seconds[24];
    std::snprintf(seconds, sizeof(seconds), "%g", timeout_milliseconds / 1000.0);
    return {SWITCH_CAUSE_RECOVERY_ON_TIMER_EXPIRE, std::string("no response within ") + seconds + " s"};
  }
  if (phrase.compare(0, 3, "DNS") == 0) {
    return {SWITCH_CAUSE_NO_ROUTE_DESTINATION, "the name leads to no address (" + phrase + ")"};
  }
  if (status == 503) {
    return {SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER, "nothing listens there, or the network does not lead there"};
  }
  return {SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, std::to_string(status) + " " + phrase};
}

}  // namespace kvx_switch
