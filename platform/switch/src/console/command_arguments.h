#pragma once

#include <string>
#include <vector>

namespace kvx_switch {

/// The arguments of a command, which blanks separate: a blank between brackets of any kind or between single quotes
/// does not. Quotes around a whole argument are taken off.
std::vector<std::string> arguments_of(const char* cmd);

}  // namespace kvx_switch
