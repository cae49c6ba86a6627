#pragma once

#include <string>

namespace kvx_switch {

/// The settings of switch.conf.xml that bound how many calls the switch takes. A mistake in one of them is not guessed
/// around: a switch that starts with another limit than the one written down fails when it matters.
bool IsCallLimit(const std::string& name);

/// Takes the setting; false and `error`, which names the parameter, its value and what is expected.
bool SetCallLimit(const std::string& name, const std::string& value, std::string& error);

}  // namespace kvx_switch
