#include "sip/message_limits.h"

#include <sofia-sip/msg.h>

#include "sip/sofia.h"

namespace kvx_switch {

namespace {

std::string Excess(const char* part, size_t size, size_t largest) {
  if (size <= largest) return "";
  return std::string(part) + " of " + std::to_string(size) + " bytes, at most " + std::to_string(largest) +
         " are taken";
}

}  // namespace

std::string TooLarge(nua_s* nua, const sip_s* sip) {
  const msg_t* message = nua_current_request(nua);
  const size_t body = sip->sip_payload ? sip->sip_payload->pl_len : 0;
  const size_t whole = message ? msg_size(message) : 0;
  const std::string excess = Excess("a body", body, kLargestBody);
  return excess.empty() && whole > body ? Excess("headers", whole - body, kLargestHeaders) : excess;
}

}  // namespace kvx_switch
