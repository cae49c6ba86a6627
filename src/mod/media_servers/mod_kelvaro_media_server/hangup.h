#pragma once

#include <switch.h>

#include <string>

#include "locked_session.h"

namespace kvx_media_server {

/// Ends a leg whose media is gone. The leg is only marked here; it goes on its own thread, later.
inline void hang_up(const LockedSession& session) {
  switch_channel_hangup(switch_core_session_get_channel(session.get()), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
}

/// The same for a leg known by its uuid; false when it is not found, or hanging up already.
inline bool hang_up(const std::string& fs_uuid) {
  const LockedSession session = locate_session(fs_uuid.c_str());
  if (!session) return false;
  hang_up(session);
  return true;
}

}  // namespace kvx_media_server
