#include <getopt.h>
#include <switch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console/console.h"
#include "console/version.h"
#include "core/log.h"
#include "core/log_file.h"
#include "core/session.h"
#include "core/variables.h"
#include "operate/configuration_check.h"
#include "operate/process_limits.h"
#include "operate/service_manager.h"
#include "operate/signals.h"
#include "sip/sip_front.h"

namespace kvx_switch {
namespace {

constexpr int kConfigurationMistakes = 2;      // exit code of --check
constexpr std::chrono::seconds kPatience{20};  // with calls that do not end, before the switch leaves them

struct Options {
  std::string conf_dir;
  std::string mod_dir;
  std::optional<switch_log_level_t> log_level;
  std::string pid_file;
  std::string ready_file;
  std::vector<std::pair<std::string, std::string>> variables;
  bool check = false;
};

void PrintHelp() {
  std::cout << "usage: kvx-switch [options]\n"
               "\n"
               "A back-to-back SIP switch whose media is carried by a media server module.\n"
               "\n"
               "  --conf DIR         configuration directory (default: conf, or /etc/kelvaro where there is none)\n"
               "  --mod DIR          directory of the loadable modules (default: mod beside the program's directory,\n"
               "                     or lib/kelvaro/mod there)\n"
               "  --log-level LEVEL  debug, info, notice, warning, err or crit (default: that of switch.conf)\n"
               "  --set NAME=VALUE   sets $${NAME} of the configuration files, before vars.xml; may be repeated\n"
               "  --check            names every mistake in the configuration and ends; exit code 2 when there is any\n"
               "  --pid-file FILE    writes the process id there\n"
               "  --ready-file FILE  writes the addresses there, once everything listens\n"
               "  --help             shows this text\n"
               "  --version          shows the version\n"
               "\n"
               "SIGINT or SIGTERM ends all calls and then the switch; a second one does not wait for the calls. SIGHUP "
               "opens\n"
               "the log file anew.\n";
}

bool Complain(const std::string& text) {
  std::cerr << "kvx-switch: " << text << "\n";
  return false;
}

bool AddVariable(const std::string& text, Options& options) {
  size_t equals = text.find('=');
  if (equals == 0 || equals == std::string::npos) return Complain("--set \"" + text + "\": expected NAME=VALUE");
  options.variables.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  return true;
}

bool SetLogLevelOption(const std::string& name, Options& options) {
  const switch_log_level_t level = switch_log_str2level(name.c_str());
  if (level == SWITCH_LOG_INVALID) return Complain("--log-level " + name + ": not a log level");
  options.log_level = level;
  return true;
}

/// False when the program is to end at once, with `exit_code`.
bool ParseOptions(int argc, char** argv, Options& options, int& exit_code) {
  static const option kOptions[] = {{"conf", required_argument, nullptr, 'c'},
                                    {"mod", required_argument, nullptr, 'm'},
                                    {"log-level", required_argument, nullptr, 'l'},
                                    {"set", required_argument, nullptr, 's'},
                                    {"check", no_argument, nullptr, 'k'},
                                    {"pid-file", required_argument, nullptr, 'p'},
                                    {"ready-file", required_argument, nullptr, 'r'},
                                    {"help", no_argument, nullptr, 'h'},
                                    {"version", no_argument, nullptr, 'v'},
                                    {nullptr, 0, nullptr, 0}};
  exit_code = EXIT_FAILURE;
  for (int choice; (choice = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
    switch (choice) {
      case 'c':
        options.conf_dir = optarg;
        break;
      case 'm':
        options.mod_dir = optarg;
        break;
      case 'k':
        options.check = true;
        break;
      case 'p':
        options.pid_file = optarg;
        break;
      case 'r':
        options.ready_file = optarg;
        break;
      case 'l':
        if (!SetLogLevelOption(optarg, options)) return false;
        break;
      case 's':
        if (!AddVariable(optarg, options)) return false;
        break;
      case 'h':
        PrintHelp();
        exit_code = EXIT_SUCCESS;
        return false;
      case 'v':
        std::cout << kSwitchName << " " << kSwitchVersion << "\n";
        exit_code = EXIT_SUCCESS;
        return false;
      default:
        std::cerr << "kvx-switch --help shows the options\n";
        return false;
    }
  }
  if (optind < argc) return Complain(std::string("unexpected argument \"") + argv[optind] + "\"");
  return true;
}

std::string ProgramDirectory() {
  std::error_code problem;
  std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", problem);
  return problem ? "." : program.parent_path().string();
}

/// The first when it is a directory, as in a build; else the second, where an installation has it.
std::string FirstDirectory(const std::string& first, const std::string& second) {
  std::error_code problem;
  return std::filesystem::is_directory(first, problem) ? first : second;
}

/// The core frees these texts.
char* HeapText(const std::string& text) {
  return strdup(text.c_str());
}

bool SetDirectories(const Options& options) {
  std::error_code problem;
  const std::string conf = options.conf_dir.empty() ? FirstDirectory("conf", "/etc/kelvaro") : options.conf_dir;
  const std::string mod = options.mod_dir.empty() ? FirstDirectory(ProgramDirectory() + "/../mod",
                                                                   ProgramDirectory() + "/../lib/kelvaro/mod")
                                                  : options.mod_dir;
  std::filesystem::path conf_path = std::filesystem::canonical(conf, problem);
  if (problem) return Complain("configuration directory " + conf + ": " + problem.message());
  if (!std::filesystem::is_directory(conf_path))
    return Complain("configuration directory " + conf + ": not a directory");
  SWITCH_GLOBAL_dirs.conf_dir = HeapText(conf_path.string());
  SWITCH_GLOBAL_dirs.mod_dir = HeapText(std::filesystem::weakly_canonical(mod, problem).string());
  switch_core_set_globals();
  return true;
}

/// Complete or not there: written beside the file and renamed into place.
bool WriteFile(const std::string& path, const std::string& text) {
  const std::string draft = path + ".new";
  std::ofstream file(draft, std::ios::trunc);
  file << text << std::flush;
  bool good = file.good();
  file.close();
  if (good && std::rename(draft.c_str(), path.c_str()) == 0) return true;
  const std::string reason = std::strerror(errno);
  std::remove(draft.c_str());
  return Complain(path + ": cannot be written: " + reason);
}

void RemoveFiles(const Options& options) {
  for (const std::string& path : {options.pid_file, options.ready_file}) {
    if (!path.empty()) std::remove(path.c_str());
  }
}

/// True when no leg is left. A further signal ends the waiting.
bool EndCalls(Signals& signals, ServiceManager& manager) {
  int32_t on = 1;
  switch_core_session_ctl(SCSC_PAUSE_ALL, &on);
  uint32_t legs = switch_core_session_count();
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Stopping: %u legs to hang up\n", legs);
  manager.Notify("STOPPING=1\nSTATUS=Stopping, " + std::to_string(legs) + " legs to hang up");
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  do {
    // Again and again: a leg may have been on its way when the switch stopped taking calls.
    switch_core_session_hupall(SWITCH_CAUSE_SYSTEM_SHUTDOWN);
    if (WaitForNoSessions(std::chrono::milliseconds(250))) return true;
    if (signals.EndIsThere()) break;
    if (manager.watchdog_pause().count() > 0) manager.Notify("WATCHDOG=1");
  } while (std::chrono::steady_clock::now() < deadline);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%u legs did not end; leaving them\n",
                    switch_core_session_count());
  return false;
}

bool Announce(const Options& options) {
  const std::string sip = SipAddress();
  const std::string event_socket = EventSocketAddress();
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Ready: sip=%s event_socket=%s conf=%s\n", sip.c_str(),
                    event_socket.c_str(), SWITCH_GLOBAL_dirs.conf_dir);
  FlushLog();  // whoever waited for the file may look into the log next
  return options.ready_file.empty() ||
         WriteFile(options.ready_file, "sip=" + sip + "\nevent_socket=" + event_socket + "\n");
}

/// What the configuration allows, with the connections of the profiles that are served already.
ConfiguredLoad LoadNow() {
  ConfiguredLoad load;
  load.sessions = static_cast<uint64_t>(switch_core_session_ctl(SCSC_MAX_SESSIONS, nullptr));
  load.sip_connections = SipConnectionLimit();
  return load;
}

void WarnOfLowLimits() {
  const ConfiguredLoad load = LoadNow();
  for (const std::string& low : FindLowLimits(RaiseProcessLimits(load), load)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\n", low.c_str());
  }
}

/// Serves until a signal asks for the end. What the service manager takes for a sign of life is one of the SIP threads.
void AwaitEnd(Signals& signals, ServiceManager& manager) {
  for (;;) {
    const std::optional<Signals::Kind> signal = signals.Next(manager.watchdog_pause());
    if (signal == Signals::Kind::kEnd) return;
    if (signal == Signals::Kind::kReopen) {
      ReopenLogFile();
    } else if (SipResponds(manager.watchdog_pause() / 2)) {
      manager.Notify("WATCHDOG=1");
    } else {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                        "SIP does not respond: the service manager will not be told "
                        "that all is well\n");
    }
  }
}

/// Whether what is logged at ERROR is to be read where errors are written: on one terminal, in one journal or file.
bool ErrorsAreSeenInTheLog() {
  struct stat log {};
  struct stat errors {};
  return switch_core_session_ctl(SCSC_LOGLEVEL, nullptr) >= SWITCH_LOG_ERROR && fstat(STDOUT_FILENO, &log) == 0 &&
         fstat(STDERR_FILENO, &errors) == 0 && log.st_dev == errors.st_dev && log.st_ino == errors.st_ino;
}

bool StartFronts(std::string& error) {
  if (!StartConsole(error)) return false;
  if (StartSip(error)) return true;
  StopConsole();
  return false;
}

int Serve(const Options& options, Signals& signals) {
  ServiceManager manager;
  std::string error;
  RaiseProcessLimits(LoadNow());  // what listens needs some of it
  ShortenWaitQueues(LoadNow());
  if (!StartFronts(error)) {
    WarnOfLowLimits();  // they may be why
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
    const bool told = ErrorsAreSeenInTheLog();
    switch_core_destroy();
    if (!told) Complain(error);
    return EXIT_FAILURE;
  }
  WarnOfLowLimits();
  // The command "shutdown" comes on a client's thread and only may ask.
  SetShutdownHook([] { kill(getpid(), SIGTERM); });
  bool good = Announce(options);
  if (good) {
    manager.Notify("READY=1\nSTATUS=Serving SIP on " + SipAddress());
    AwaitEnd(signals, manager);
  }

  bool all_ended = EndCalls(signals, manager);
  StopSip();
  SetShutdownHook({});
  StopConsole();
  if (!all_ended) {
    // Legs that still run use the modules: nothing can be taken from under them.
    RemoveFiles(options);
    FlushLog();
    std::_Exit(EXIT_FAILURE);
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Stopped\n");
  switch_core_destroy();
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Prints the mistakes that a start would complain of.
int Check(const Options& options) {
  std::vector<std::string> mistakes = FindUnknownVariables(options.variables);
  for (std::string& mistake : FindConfigurationMistakes()) mistakes.push_back(std::move(mistake));
  for (const std::string& mistake : mistakes) std::cout << mistake << "\n";
  if (mistakes.empty()) {
    std::cout << SWITCH_GLOBAL_dirs.conf_dir << ": no mistake found\n";
    return EXIT_SUCCESS;
  }
  std::cout << SWITCH_GLOBAL_dirs.conf_dir << ": " << mistakes.size()
            << (mistakes.size() == 1 ? " mistake\n" : " mistakes\n");
  return kConfigurationMistakes;
}

/// A mistyped name would leave the value it was meant for as it is.
bool CheckVariableNames(const Options& options) {
  const std::vector<std::string> unknown = FindUnknownVariables(options.variables);
  for (const std::string& line : unknown) Complain(line);
  return unknown.empty();
}

int Main(int argc, char** argv) {
  Options options;
  int exit_code = EXIT_FAILURE;
  if (!ParseOptions(argc, argv, options, exit_code)) return exit_code;
  Signals signals;
  if (!SetDirectories(options)) return options.check ? kConfigurationMistakes : EXIT_FAILURE;
  for (const auto& [name, value] : options.variables) OverrideVariable(name, value);
  if (options.check) return Check(options);
  if (!CheckVariableNames(options)) return EXIT_FAILURE;
  RemoveFiles(options);  // those of a run that crashed would tell of addresses where nobody listens
  const char* reason = "";
  if (switch_core_init_and_modload(0, SWITCH_TRUE, &reason) != SWITCH_STATUS_SUCCESS) {
    Complain(std::string("cannot start: ") + reason);
    return EXIT_FAILURE;
  }
  if (options.log_level) {
    int32_t level = *options.log_level;  // switch.conf may have said otherwise
    switch_core_session_ctl(SCSC_LOGLEVEL, &level);
  }
  if (!options.pid_file.empty() && !WriteFile(options.pid_file, std::to_string(getpid()) + "\n")) {
    switch_core_destroy();
    return EXIT_FAILURE;
  }
  exit_code = Serve(options, signals);
  RemoveFiles(options);
  return exit_code;
}

}  // namespace
}  // namespace kvx_switch

int main(int argc, char** argv) {
  try {
    return kvx_switch::Main(argc, argv);
  } catch (const std::exception& problem) {
    std::cerr << "kvx-switch: " << problem.what() << "\n";
    return EXIT_FAILURE;
  }
}
