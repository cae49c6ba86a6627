#pragma once

#include <string>
#include <utility>
#include <vector>

/// Whom the application "bridge" calls: "{name=value,...}[name=value,...]sip:user@host:port|[...]sip:...". The braces
/// hold for every leg, the brackets for one; the targets are called one after the other until one answers. A comma or a
/// quotation mark inside a value stands behind a backslash, or the value stands in single quotes.
namespace kvx_switch {

using VariableList = std::vector<std::pair<std::string, std::string>>;

struct BridgeTarget {
  VariableList variables;  ///< of the leg that is called: those of the braces, then those of its brackets
  std::string uri;
};

struct BridgePlan {
  VariableList variables;             ///< of the braces alone
  std::vector<BridgeTarget> targets;  ///< in the order in which they are called; at least one
};

/// False and `error` when `data` is nothing of that form.
bool ParseBridgePlan(const std::string& data, BridgePlan& plan, std::string& error);

/// What is wrong with a text of that form as it stands in the dialplan, values of variables included; "" when nothing
/// is. Parts with references in them are only known when a call runs them, and pass.
std::string FaultsOfDialString(const std::string& data);

/// The last value given to `name`, in any case; null when it has none.
const std::string* FindInList(const VariableList& variables, const std::string& name);

}  // namespace kvx_switch
