#pragma once

#include <optional>
#include <string>

#include "sip/sip_profile.h"

/// What a profile needs for calling an address: a stack that is bound to IPv4 alone cannot reach an IPv6 phone, nor one
/// without TCP a phone that wants it. Values only.
namespace kvx_switch {

struct TargetNeeds {
  std::optional<bool> ipv6;  ///< none: a host name, which may stand for either
  bool udp = false;          ///< asked for with ";transport="
  bool tcp = false;

  bool MetBy(const SipProfile& profile) const;
};

/// Of a SIP URI, "sip:user@host:port;transport=tcp"; nothing in particular of what is none.
TargetNeeds NeedsOfTarget(const std::string& uri);

}  // namespace kvx_switch
