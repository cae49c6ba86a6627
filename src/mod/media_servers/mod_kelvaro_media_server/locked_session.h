#pragma once

#include <switch.h>

#include <memory>

namespace kvx_media_server {

/// A session that was found through the switch comes with a read lock, and that lock must go back on every way out of a
/// function, else the leg never ends. Held by this pointer it does.
struct SessionReadUnlock {
  void operator()(switch_core_session_t* session) const { switch_core_session_rwunlock(session); }
};
using LockedSession = std::unique_ptr<switch_core_session_t, SessionReadUnlock>;

/// Null for an unknown uuid and for a leg that is hanging up.
inline LockedSession locate_session(const char* fs_uuid) {
  return LockedSession(switch_core_session_locate(fs_uuid));
}

/// The leg that `session` is bridged to, or is to be bridged to; null when there is none.
inline LockedSession partner_of(switch_core_session_t* session) {
  switch_core_session_t* partner = NULL;
  if (!session || switch_core_session_get_partner(session, &partner) != SWITCH_STATUS_SUCCESS) return LockedSession();
  return LockedSession(partner);
}

}  // namespace kvx_media_server
