#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <switch.h>

namespace kvx_switch {

/// What modules and the switch itself have registered, as copies: a module may be unloaded at any time, and with it
/// the texts that its interfaces point to. Each list is ordered by name, then module; any thread.

struct ApiInfo {
  std::string name;
  std::string description;
  std::string syntax;
  std::string module;
};
std::vector<ApiInfo> ListApis();

/// One codec interface, however many implementations it has.
struct CodecInfo {
  std::string name;
  std::string module;
};
std::vector<CodecInfo> ListCodecs();

/// The run of the switch in figures: since switch_core_init.
struct SwitchTotals {
  switch_time_t started = 0;   ///< microseconds since the epoch
  uint64_t sessions = 0;       ///< legs created
  uint32_t peak_sessions = 0;  ///< most legs at once
};
SwitchTotals GetSwitchTotals();

}  // namespace kvx_switch
