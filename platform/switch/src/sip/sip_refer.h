#pragma once

#include <string>

/// What a REFER asks for (RFC 3515), copied out of it. Values only.
namespace kvx_switch {

struct ReferRequest {
  unsigned id = 0;           ///< names the subscription that it made: the REFER's CSeq number
  std::string user;          ///< of the URI to call
  std::string uri;           ///< without its headers
  std::string referred_by;   ///< RFC 3892, as written; "" when not given
  bool replaces = false;     ///< an attended transfer (RFC 3891), and of this dialog:
  std::string replaced_leg;  ///< "" when it is none of this profile's
};

}  // namespace kvx_switch
