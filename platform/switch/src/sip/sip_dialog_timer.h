#pragma once

#include "sip/session_timer.h"
#include "sip/sofia.h"

namespace kvx_switch {

SessionTimerHeaders TimerHeaders(const sip_s* sip);

/// The message's sender understands UPDATE.
bool AllowsUpdate(const sip_s* sip);

/// A request that is answered later than it is looked at.
struct SavedRequest {
  explicit SavedRequest(nua_t* stack) { nua_save_event(stack, event); }
  ~SavedRequest() { nua_destroy_event(event); }
  SavedRequest(const SavedRequest&) = delete;
  SavedRequest& operator=(const SavedRequest&) = delete;

  const msg_t* Message() const { return nua_saved_event_request(event); }

  nua_saved_event_t event[1];
};

}  // namespace kvx_switch
