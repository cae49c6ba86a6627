/// A leg of the switch without signalling, and the module's callbacks called on it as the switch calls them.
#pragma once

#include <switch.h>

#include "mod_kelvaro_media_server.h"

namespace bench {

class ModuleLeg {
 public:
  explicit ModuleLeg(switch_call_direction_t direction);
  ~ModuleLeg();
  ModuleLeg(const ModuleLeg&) = delete;
  ModuleLeg& operator=(const ModuleLeg&) = delete;

  void BondWith(ModuleLeg& other);

  // Each throws std::runtime_error when the module refuses.
  void Create();
  void GetMedia(switch_sdp_negotiation_state_t state);
  void SetMedia(switch_sdp_negotiation_state_t state);
  void Bridge();
  void Unbridge();
  void Destroy();

 private:
  switch_media_connection_t* Connection() const { return switch_core_session_get_media_connection(session_); }

  switch_core_session_t* session_;
};

/// One two-way call from its first callback to its last: A offers, B is offered and answers, both are bridged and go.
void PlaceCall(ModuleLeg& a, ModuleLeg& b);

}  // namespace bench
