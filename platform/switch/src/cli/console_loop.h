#pragma once

#include "command_run.h"

namespace kvx_cli {

/// The console: reads lines, from a terminal with editing and history, else as they come, and runs each as a command.
/// Ends at end of input or "exit"; returns what the last command would have ended with under -x. A lost switch does not
/// end the console: the next line connects again.
ExitCode run_console(EventSocketClient& client, const Options& options);

}  // namespace kvx_cli
