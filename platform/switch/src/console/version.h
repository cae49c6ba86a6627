#pragma once

namespace kvx_switch {

inline constexpr char kSwitchName[] = "kvx-switch";
inline constexpr char kSwitchVersion[] = "0.1.0";

}  // namespace kvx_switch
