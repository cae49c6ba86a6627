#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kvx_switch {

/// An operator who has changed a file wants to know what is wrong with it before calls are lost by it: every mistake,
/// with its file and line. Reads what a start would read, vars.xml first, then the switch's files, then, through the
/// modules that modules.conf names, theirs. Opens no port, starts no module and changes nothing. The directories are to
/// be set and overrides of variables given; the core must not be running. Mistakes come in the order of reading, as
/// lines "file:line: what", each once.
std::vector<std::string> FindConfigurationMistakes();

/// A line for each of these variables that no file of the configuration sets or refers to, with the names that are
/// known; empty when all are.
std::vector<std::string> FindUnknownVariables(const std::vector<std::pair<std::string, std::string>>& variables);

}  // namespace kvx_switch
