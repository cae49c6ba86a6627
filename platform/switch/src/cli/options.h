#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kvx_cli {

/// What a call of kvx-cli asks for. The order of precedence is command line, environment, built-in default.
struct Options {
  std::string host = "127.0.0.1";
  uint16_t port = 8021;
  std::string password = "kelvaro";  ///< the sample configuration's, which the switch accepts on loopback only
  std::chrono::milliseconds timeout{10000};
  bool timeout_given = false;
  std::vector<std::string> commands;  ///< from -x, in order; none means interactive
  std::string log_level;              ///< of the lines of the log to show, from -l; empty: none
  bool batch = false;                 ///< no prompt and no colours, the first failure ends it
  bool coloured = false;              ///< from --color, or what the terminal takes
  bool help = false;
  bool version = false;
};

/// The address as messages and prompts show it, an IPv6 address in brackets.
std::string shown_address(const Options& options);

/// How long to wait for the answer to a command line: "originate" answers when the phone has, and phones may ring for
/// long; unless the caller has said how long.
std::chrono::milliseconds patience_for(const std::string& command, const Options& options);

/// Fills the options from KVX_EVENT_SOCKET and KVX_EVENT_SOCKET_PASSWORD, then from the command line.
/// False with a sentence that names the argument or variable when one makes no sense.
bool read_options(int argc, char** argv, Options& options, std::string& error);

/// The text of --help.
std::string usage();

}  // namespace kvx_cli
