/// Put in front of sources of the module by the compiler. What they include is all in place before the names below
/// change their meaning, so that only the calls that these sources make themselves are intercepted.
#pragma once

#include <utility>

#include "faults.h"
#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "locked_session.h"
#include "mod_kelvaro_media_server.h"

namespace module_faults {

/// Lets the test do its work first and hands the argument on.
template <typename Argument>
Argument&& before(const char* call, Argument&& argument) {
  reached(call);
  return std::forward<Argument>(argument);
}

}  // namespace module_faults

// A macro is not expanded within itself: the inner name is the real one.
#define GetFSMediaSession(ms_uuid) GetFSMediaSession(module_faults::before("GetFSMediaSession", ms_uuid))
#define RegisterMediaSessionUuid(fs_uuid, ms_uuid) \
  RegisterMediaSessionUuid(module_faults::before("RegisterMediaSessionUuid", fs_uuid), ms_uuid)
#define RegisterNetworkConnection(ms_uuid, connection, fs_uuid) \
  RegisterNetworkConnection(module_faults::before("RegisterNetworkConnection", ms_uuid), connection, fs_uuid)
#define AddListener(listener) AddListener(module_faults::before("AddListener", listener))
