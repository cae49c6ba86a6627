#include "sip_applications_fixture.h"

#include "core/session.h"
#include "sip/sip_front.h"

namespace kvx_switch {

std::string SipApplications::SipAddressNow() {
  return SipAddress();
}

bool SipApplications::StateBecomes(const std::string& state) {
  for (int tries = 0; tries < 1000; ++tries) {
    const std::vector<SessionInfo> legs = ListSessions();
    if (legs.size() == 1 && legs[0].state == state) return true;
    switch_sleep(5000);
  }
  return false;
}

bool SipApplications::LogBecomes(switch_log_level_t level, const std::string& part) const {
  for (int tries = 0; tries < 1000; ++tries) {
    if (Logged(level, part)) return true;
    switch_sleep(5000);
  }
  return false;
}

}  // namespace kvx_switch
