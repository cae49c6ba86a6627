#pragma once

#include <string>

#include "event_socket_client.h"
#include "options.h"

namespace kvx_cli {

/// What kvx-cli ends with; scripts depend on these numbers.
enum ExitCode {
  kExitDone = 0,
  kExitNoSwitch = 1,
  kExitWrongPassword = 2,
  kExitUnknownCommand = 3,
  kExitCommandFailed = 4,
  kExitWrongUse = 64,
};

/// Connects and logs in; on failure says why on stderr.
ExitCode connect_to_switch(EventSocketClient& client, const Options& options);

/// Has the switch send its log, down to options.log_level, or, when that is empty, no more of it. A level that is none
/// is told of.
ExitCode follow_log(EventSocketClient& client, const Options& options);

/// Runs one command line: its output goes to stdout, what went wrong on the way to stderr.
ExitCode run_command(EventSocketClient& client, const Options& options, const std::string& line);

}  // namespace kvx_cli
