#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace kvx_switch {

/// A global variable that vars.xml does not change (set on the command line); before or after the core's start.
void OverrideVariable(const std::string& name, const std::string& value);
/// Sets a variable as vars.xml does: an overridden one stays as it is.
void SetConfiguredVariable(const std::string& name, const std::string& value);
/// Forgets all, also the overrides; texts handed out end here.
void ClearVariables();

/// Replaces every $${name} in `text` by the global variable; `report(name, offset)` is told of each unknown one, which
/// becomes "".
std::string ExpandVariables(const std::string& text,
                            const std::function<void(const std::string& name, size_t offset)>& report);

}  // namespace kvx_switch
