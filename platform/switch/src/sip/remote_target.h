#pragma once

#include <string>

struct sip_s;

/// Where the requests of a dialog go (RFC 3261, 12.1 and 12.2). The stack knows, but does not tell; who sends a request
/// past the stack's queue has to know it too. Used on the SIP thread only.
namespace kvx_switch {

class RemoteTarget {
 public:
  /// The INVITE that the far end began the dialog with.
  void OnTheirInvite(const sip_s* sip);
  /// The 2xx to ours.
  void OnOurInviteAnswered(const sip_s* sip);
  /// Any request or 2xx that may move the far end: the route stays.
  void OnRefresh(const sip_s* sip);

  /// False also where a proxy of the route would have the request written for itself, as before RFC 3261.
  bool known() const { return !uri_.empty() && !strict_; }
  const std::string& uri() const { return uri_; }
  const std::string& route() const { return route_; }  ///< header value; "": none

 private:
  std::string uri_;
  std::string route_;
  bool strict_ = false;
};

}  // namespace kvx_switch
