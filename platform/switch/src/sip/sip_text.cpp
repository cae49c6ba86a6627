#include "sip/sip_text.h"

#include "sip/sofia.h"

namespace kvx_switch {

std::string Body(const sip_s* sip) {
  if (!sip || !sip->sip_payload || !sip->sip_payload->pl_data) return "";
  return std::string(sip->sip_payload->pl_data, sip->sip_payload->pl_len);
}

std::string ToTag(const sip_s* sip) {
  return sip && sip->sip_to && sip->sip_to->a_tag ? sip->sip_to->a_tag : "";
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) quoted += c;
  }
  return quoted + "\"";
}

}  // namespace kvx_switch
