#include "command_run.h"

#include <algorithm>
#include <cstdio>

namespace kvx_cli {
namespace {

std::string seconds(std::chrono::milliseconds time) {
  return std::to_string(time.count() / 1000) + " s";
}

ExitCode report_lost_switch(Outcome outcome, const EventSocketClient& client, const Options& options) {
  const std::string address = shown_address(options);
  std::string text;
  switch (outcome) {
    case Outcome::kUnreachable:
      text = "no switch at " + address + ": " + client.error() + "; start one, or say with -H and -P where it listens";
      break;
    case Outcome::kTimedOut:
      text = "no answer from " + address + " within " + seconds(options.timeout);
      break;
    case Outcome::kWrongPassword:
      text = "wrong password for " + address +
             "; give the one that its configuration sets (event_socket_password in vars.xml) with -p or "
             "KVX_EVENT_SOCKET_PASSWORD";
      break;
    case Outcome::kDisconnected:
      text = "connection to " + address + " lost: " + client.error();
      break;
    default:
      text = "unexpected answer from " + address + ": " + client.error();
      break;
  }
  std::fprintf(stderr, "kvx-cli: %s\n", text.c_str());
  return outcome == Outcome::kWrongPassword ? kExitWrongPassword : kExitNoSwitch;
}

bool starts_with(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

/// A command's output may or may not end its last line; a terminal wants it ended.
void print_output(const std::string& output) {
  std::fwrite(output.data(), 1, output.size(), stdout);
  if (!output.empty() && output.back() != '\n') std::fputc('\n', stdout);
  std::fflush(stdout);
}

}  // namespace

ExitCode connect_to_switch(EventSocketClient& client, const Options& options) {
  const Outcome outcome = client.Connect(options.host, options.port, options.password, options.timeout);
  if (outcome != Outcome::kDone) return report_lost_switch(outcome, client, options);
  return options.log_level.empty() ? kExitDone : follow_log(client, options);
}

ExitCode follow_log(EventSocketClient& client, const Options& options) {
  EventSocketMessage reply;
  const std::string line = options.log_level.empty() ? "nolog" : "log " + options.log_level;
  const Outcome outcome = client.Command(line, options.timeout, reply);
  if (outcome != Outcome::kDone) return report_lost_switch(outcome, client, options);
  if (options.log_level.empty() || starts_with(reply.Header("Reply-Text"), "+OK")) return kExitDone;
  std::fprintf(stderr, "kvx-cli: \"%s\" is no log level: console, alert, crit, err, warning, notice, info or debug\n",
               options.log_level.c_str());
  return kExitWrongUse;
}

ExitCode run_command(EventSocketClient& client, const Options& options, const std::string& line) {
  const std::string command = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
  Options waited = options;
  waited.timeout = patience_for(command, options);
  std::string output;
  const Outcome outcome = client.Api(command, waited.timeout, output);
  if (outcome != Outcome::kDone) return report_lost_switch(outcome, client, waited);

  const std::string name = command.substr(0, command.find(' '));
  if (starts_with(output, "-ERR " + name + " Command not found!")) {
    std::fprintf(stderr, "kvx-cli: unknown command: %s\n", name.c_str());
    return kExitUnknownCommand;
  }
  // How the event socket says that a command wrote nothing; that is no failure of the command.
  if (output == "-ERR no reply\n") return kExitDone;
  print_output(output);
  return starts_with(output, "-ERR") || starts_with(output, "-USAGE") ? kExitCommandFailed : kExitDone;
}

}  // namespace kvx_cli
