#pragma once

#include <string>

namespace kvx_cli {

/// Where the console keeps the lines typed: kvx/cli_history below XDG_STATE_HOME, or below ~/.local/state.
/// Makes the directories, for the user alone. Empty when neither variable is set or a directory cannot be made;
/// the console then has a history for the session only.
std::string history_file();

}  // namespace kvx_cli
