#include <cstdio>

#include "command_run.h"
#include "console/version.h"
#include "console_loop.h"
#include "log_view.h"
#include "options.h"

int main(int argc, char** argv) {
  using namespace kvx_cli;
  Options options;
  std::string error;
  if (!read_options(argc, argv, options, error)) {
    std::fprintf(stderr, "kvx-cli: %s\nkvx-cli --help shows the options\n", error.c_str());
    return kExitWrongUse;
  }
  if (options.help) {
    std::fputs(usage().c_str(), stdout);
    return kExitDone;
  }

  if (options.version) {
    std::printf("kvx-cli %s\n", kvx_switch::kSwitchVersion);
    return kExitDone;
  }

  EventSocketClient client;
  client.OnLog([&options](const EventSocketMessage& line) {
    std::fputs(shown_log_line(line, options.coloured).c_str(), stdout);
    std::fflush(stdout);
  });
  ExitCode result = connect_to_switch(client, options);
  if (result != kExitDone) return result;
  if (options.commands.empty()) return run_console(client, options);
  for (const std::string& command : options.commands) {
    result = run_command(client, options, command);
    if (result != kExitDone) break;
  }
  return result;
}
