#include "options.h"

#include <getopt.h>
#include <unistd.h>

#include <cstdlib>

#include "log_view.h"

namespace kvx_cli {
namespace {

constexpr int kHighestPort = 65535;
constexpr int kLongestTimeoutSeconds = 24 * 60 * 60;
constexpr std::chrono::hours kLongestRing{1};  // which the switch lets no call do longer

bool parse_number(const std::string& text, int lowest, int highest, int& number) {
  if (text.empty() || text.size() > 6 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  number = std::atoi(text.c_str());
  return number >= lowest && number <= highest;
}

bool parse_port(const std::string& text, const std::string& source, uint16_t& port, std::string& error) {
  int number = 0;
  if (!parse_number(text, 1, kHighestPort, number)) {
    error = source + ": \"" + text + "\" is not a port (1 to 65535)";
    return false;
  }
  port = static_cast<uint16_t>(number);
  return true;
}

std::string without_brackets(const std::string& host) {
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  return bracketed ? host.substr(1, host.size() - 2) : host;
}

bool read_environment(Options& options, std::string& error) {
  if (const char* password = std::getenv("KVX_EVENT_SOCKET_PASSWORD")) options.password = password;
  const char* address = std::getenv("KVX_EVENT_SOCKET");
  if (address == nullptr) return true;
  const std::string text = address;
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    error = "KVX_EVENT_SOCKET: \"" + text + "\" is not host:port";
    return false;
  }
  options.host = without_brackets(text.substr(0, colon));
  return parse_port(text.substr(colon + 1), "KVX_EVENT_SOCKET", options.port, error);
}

bool read_timeout(const std::string& text, Options& options, std::string& error) {
  int seconds = 0;
  if (!parse_number(text, 1, kLongestTimeoutSeconds, seconds)) {
    error = "-t: \"" + text + "\" is not a number of seconds (1 to 86400)";
    return false;
  }
  options.timeout = std::chrono::seconds(seconds);
  options.timeout_given = true;
  return true;
}

bool read_command(const std::string& text, Options& options, std::string& error) {
  if (text.find_first_not_of(" \t") == std::string::npos) {
    error = "-x: no command given";
    return false;
  }
  if (text.find_first_of("\r\n") != std::string::npos) {
    error = "-x: a command is one line";
    return false;
  }
  options.commands.push_back(text);
  return true;
}

bool read_password(const std::string& text, Options& options, std::string& error) {
  if (text.find_first_of("\r\n") != std::string::npos) {
    error = "-p: a password is one line";
    return false;
  }
  options.password = text;
  return true;
}

bool read_colour(const std::string& text, Options& options, std::string& error) {
  options.coloured = text == "on" || (text == "auto" && takes_colour(STDOUT_FILENO));
  error = "--color: \"" + text + "\" is not on, off or auto";
  return text == "on" || text == "off" || text == "auto";
}

bool read_log_level(const std::string& text, Options& options, std::string& error) {
  options.log_level = text;
  error = "-l: \"" + text + "\" is not a log level";
  return !text.empty() && text.find_first_of(" \t\r\n") == std::string::npos;
}

bool read_option(int option, const std::string& value, Options& options, std::string& error) {
  switch (option) {
    case 'H':
      options.host = without_brackets(value);
      return true;
    case 'P':
      return parse_port(value, "-P", options.port, error);
    case 'p':
      return read_password(value, options, error);
    case 't':
      return read_timeout(value, options, error);
    case 'l':
      return read_log_level(value, options, error);
    case 'c':
      return read_colour(value, options, error);
    case 'b':
      options.batch = true;
      return true;
    case 'x':
      return read_command(value, options, error);
    case 'v':
      options.version = true;
      return true;
    default:
      options.help = true;
      return true;
  }
}

}  // namespace

std::string shown_address(const Options& options) {
  const bool ipv6 = options.host.find(':') != std::string::npos;
  return (ipv6 ? "[" + options.host + "]" : options.host) + ":" + std::to_string(options.port);
}

std::chrono::milliseconds patience_for(const std::string& command, const Options& options) {
  const bool rings = command.substr(0, command.find_first_of(" \t")) == "originate";
  return rings && !options.timeout_given ? kLongestRing : options.timeout;
}

bool read_options(int argc, char** argv, Options& options, std::string& error) {
  if (!read_environment(options, error)) return false;
  static const option kLongOptions[] = {{"host", required_argument, nullptr, 'H'},
                                        {"port", required_argument, nullptr, 'P'},
                                        {"password", required_argument, nullptr, 'p'},
                                        {"execute", required_argument, nullptr, 'x'},
                                        {"loglevel", required_argument, nullptr, 'l'},
                                        {"color", required_argument, nullptr, 'c'},
                                        {"batch", no_argument, nullptr, 'b'},
                                        {"timeout", required_argument, nullptr, 't'},
                                        {"help", no_argument, nullptr, 'h'},
                                        {"version", no_argument, nullptr, 'v'},
                                        {nullptr, 0, nullptr, 0}};
  options.coloured = takes_colour(STDOUT_FILENO);
  opterr = 0;
  for (;;) {
    const int option = getopt_long(argc, argv, ":H:P:p:x:t:l:bh", kLongOptions, nullptr);
    if (option == -1) break;
    const std::string argument = argv[optind - 1];
    if (option == '?')
      error = "unknown option " + (optopt != 0 ? std::string("-") + static_cast<char>(optopt) : argument);
    if (option == ':') error = argument + " needs a value";
    if (option == '?' || option == ':') return false;
    if (!read_option(option, optarg != nullptr ? optarg : "", options, error)) return false;
  }
  options.coloured = options.coloured && !options.batch;
  if (optind < argc) {
    error = std::string("unexpected argument \"") + argv[optind] + "\"; commands are given with -x \"command\"";
    return false;
  }
  return true;
}

std::string usage() {
  return "usage: kvx-cli [-H host] [-P port] [-p password] [-t seconds] [-l level] [-b] [-x \"command\"]...\n"
         "\n"
         "Runs commands on a switch through its event socket; without -x, as a console.\n"
         "\n"
         "  -H, --host HOST          where the switch listens (default 127.0.0.1)\n"
         "  -P, --port PORT          the event socket's port (default 8021)\n"
         "  -p, --password PASSWORD  the event socket's password (default: the sample configuration's)\n"
         "  -x, --execute COMMAND    run a command, print what it writes and end; may be given several times,\n"
         "                           the first that fails ends the run\n"
         "  -l, --loglevel LEVEL     show the switch's log down to that level as it is written; /log LEVEL and /nolog\n"
         "                           in the console\n"
         "      --color WHEN         on, off or auto (default: auto, colours on a terminal)\n"
         "  -b, --batch              for scripts: commands from standard input without prompt, colours or history;\n"
         "                           lines that begin with # are passed over, and the first that fails ends the run\n"
         "  -t, --timeout SECONDS    how long to wait for the switch and for each answer (default 10; 3600 for that "
         "to\n"
         "                           originate, which comes when the phone answers)\n"
         "  -h, --help               this text\n"
         "      --version            shows the version\n"
         "\n"
         "Environment: KVX_EVENT_SOCKET=host:port and KVX_EVENT_SOCKET_PASSWORD stand in for -H, -P and -p.\n"
         "\n"
         "Exit code: 0 done, 1 no switch or no answer, 2 wrong password, 3 unknown command,\n"
         "4 the command answered -ERR or -USAGE, 64 wrong use.\n";
}

}  // namespace kvx_cli
