#include "sip/target_needs.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>

namespace kvx_switch {

bool TargetNeeds::MetBy(const SipProfile& profile) const {
  return ipv6.value_or(profile.IsIpv6()) == profile.IsIpv6() && (!udp || profile.transports.udp) &&
         (!tcp || profile.transports.tcp);
}

TargetNeeds NeedsOfTarget(const std::string& uri) {
  TargetNeeds needs;
  const size_t scheme = uri.find(':');
  if (scheme == std::string::npos) return needs;
  const size_t at = uri.find('@', scheme);
  const size_t start = (at == std::string::npos ? scheme : at) + 1;
  const bool bracketed = start < uri.size() && uri[start] == '[';
  const size_t end = std::min(uri.find_first_of(bracketed ? "]" : ":;?", start), uri.size());
  in_addr ignored{};
  if (bracketed) {
    needs.ipv6 = true;
  } else if (inet_pton(AF_INET, uri.substr(start, end - start).c_str(), &ignored) == 1) {
    needs.ipv6 = false;
  }
  const std::string name = ";transport=";
  for (size_t parameter = uri.find(';', end); parameter != std::string::npos;
       parameter = uri.find(';', parameter + 1)) {
    if (strncasecmp(uri.c_str() + parameter, name.c_str(), name.size()) != 0) continue;
    const size_t value = parameter + name.size();
    const std::string transport = uri.substr(value, uri.find_first_of(";?", value) - value);
    needs.udp = strcasecmp(transport.c_str(), "udp") == 0;
    needs.tcp = strcasecmp(transport.c_str(), "tcp") == 0;
  }
  return needs;
}

}  // namespace kvx_switch
