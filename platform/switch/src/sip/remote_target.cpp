#include "sip/remote_target.h"

#include <algorithm>
#include <vector>

#include "sip/sip_home.h"
#include "sip/sofia.h"

namespace kvx_switch {

namespace {

std::vector<std::string> RecordedRoute(Home& home, const sip_t* sip, bool& strict) {
  std::vector<std::string> route;
  for (const sip_record_route_t* hop = sip->sip_record_route; hop; hop = hop->r_next) {
    const char* url = url_as_string(home, hop->r_url);
    if (!url) continue;
    route.push_back(std::string("<") + url + ">");
    if (!url_has_param(hop->r_url, "lr")) strict = true;
  }
  return route;
}

std::string Joined(const std::vector<std::string>& route) {
  std::string value;
  for (const std::string& hop : route) value += (value.empty() ? "" : ", ") + hop;
  return value;
}

}  // namespace

void RemoteTarget::OnTheirInvite(const sip_s* sip) {
  Home home;
  route_ = Joined(RecordedRoute(home, sip, strict_));
  OnRefresh(sip);
}

void RemoteTarget::OnOurInviteAnswered(const sip_s* sip) {
  Home home;
  std::vector<std::string> route = RecordedRoute(home, sip, strict_);
  std::reverse(route.begin(), route.end());
  route_ = Joined(route);
  OnRefresh(sip);
}

void RemoteTarget::OnRefresh(const sip_s* sip) {
  if (!sip || !sip->sip_contact) return;
  Home home;
  const char* url = url_as_string(home, sip->sip_contact->m_url);
  if (url) uri_ = url;
}

}  // namespace kvx_switch
