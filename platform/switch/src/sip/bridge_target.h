#pragma once

#include <string>
#include <utility>
#include <vector>

/// What the application "bridge" is told: "{name=value,name=value}sip:user@host:port".
namespace kvx_switch {

struct BridgeTarget {
  std::vector<std::pair<std::string, std::string>> variables;  ///< of the leg that is called
  std::string uri;
};

/// False and `error` when `data` is nothing of that form.
bool ParseBridgeTarget(const std::string& data, BridgeTarget& target, std::string& error);

}  // namespace kvx_switch
