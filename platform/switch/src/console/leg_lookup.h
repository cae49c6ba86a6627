#pragma once

#include <memory>
#include <string>

#include <switch.h>

namespace kvx_switch {

/// A leg that is up, kept in place while it is held; null when there is none of that uuid.
using LockedSession = std::unique_ptr<switch_core_session_t, decltype(&switch_core_session_rwunlock)>;

inline LockedSession find_leg(const std::string& uuid) {
  return LockedSession(switch_core_session_locate(uuid.c_str()), &switch_core_session_rwunlock);
}

}  // namespace kvx_switch
