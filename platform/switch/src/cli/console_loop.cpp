#include "console_loop.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>

#include "line_source.h"
#include "log_view.h"

namespace kvx_cli {
namespace {

std::string without_outer_blanks(const std::string& line) {
  const size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

constexpr const char* kLevels[] = {"console", "alert", "crit", "err", "warning", "notice", "info", "debug"};

/// The greater, the more is written; by name, in any case, or by number.
size_t level_number(const std::string& level) {
  for (size_t number = 0; number < std::size(kLevels); ++number) {
    if (strcasecmp(level.c_str(), kLevels[number]) == 0 || level == std::to_string(number)) return number;
  }
  return std::size(kLevels);
}

/// Of the answer to "loglevel", "+OK log level: INFO".
std::string written_level(const std::string& answer) {
  const size_t colon = answer.rfind(": ");
  std::string level = colon == std::string::npos ? "" : answer.substr(colon + 2);
  while (!level.empty() && level.back() == '\n') level.pop_back();
  std::transform(level.begin(), level.end(), level.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return level;
}

class Console {
 public:
  Console(EventSocketClient& client, const Options& options)
      : client_(client), options_(options), typed_(isatty(STDIN_FILENO) != 0 && !options.batch) {
    const Background background{[this] { return client_.descriptor(); }, [this] { client_.Connected(); }};
    if (typed_) {
      const auto complete = [this](const std::string& line) {
        std::string output;
        if (client_.Connected()) client_.Api("console_complete " + line, options_.timeout, output);
        return parse_completion(output);
      };
      lines_ = make_edited_lines("kvx@" + options.host + "> ", complete, background);
    } else {
      lines_ = make_piped_lines(background);
    }
    client_.OnLog([this](const EventSocketMessage& line) { lines_->Show(shown_log_line(line, options_.coloured)); });
  }
  ~Console() { client_.OnLog({}); }

  ExitCode Run() {
    ExitCode result = kExitDone;
    if (typed_) {
      Tell("Connected to " + shown_address(options_) +
           ". \"help\" lists the commands, Tab completes, \"/log\" shows the log, \"exit\" leaves.");
      if (!options_.log_level.empty()) TellOfLog();
    }
    std::string line;
    while (lines_->Next(line)) {
      line = without_outer_blanks(line);
      if (line.empty() || line.front() == '#') continue;  // a comment in a script
      // The console's own; "/status" is a command like any other.
      const bool about_log = line == "/log" || line.rfind("/log ", 0) == 0 || line == "/nolog";
      if (line.front() == '/' && !about_log) line.erase(0, 1);
      if (line == "exit" || line == "quit" || line == "bye") break;
      result = RunLine(line);
      if (options_.batch && result != kExitDone) break;
    }
    return result;
  }

 private:
  ExitCode RunLine(const std::string& line) {
    if (line.front() == '/') options_.log_level = LogLevelOf(line);
    // The switch may have been restarted while nobody typed; a new connection is told of the log anyway.
    if (!client_.Connected()) {
      const ExitCode connected = connect_to_switch(client_, options_);
      if (connected != kExitDone || line.front() == '/') return connected;
    }
    if (line.front() != '/') return run_command(client_, options_, line);
    const ExitCode result = follow_log(client_, options_);
    if (result == kExitDone && typed_) TellOfLog();
    return result;
  }

  static void Tell(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
  }

  /// What is not written cannot be shown, and who sees nothing wonders.
  void TellOfLog() {
    if (options_.log_level.empty()) return Tell("The log is no longer shown.");
    std::string answer;
    if (client_.Api("loglevel", options_.timeout, answer) != Outcome::kDone) return;
    const std::string written = written_level(answer);
    const bool all = level_number(written) >= level_number(options_.log_level);
    Tell("The log is shown down to " + (all ? options_.log_level : written) + "; \"/nolog\" ends that." +
         (all ? "" : " The switch writes no more: \"loglevel " + options_.log_level + "\" changes that."));
  }

  /// "" for /nolog.
  static std::string LogLevelOf(const std::string& line) {
    if (line == "/nolog") return "";
    const std::string level = without_outer_blanks(line.substr(std::min<size_t>(line.size(), 5)));
    return level.empty() ? "debug" : level;
  }

  EventSocketClient& client_;
  Options options_;
  const bool typed_;  // by a person, at a terminal
  std::unique_ptr<LineSource> lines_;
};

}  // namespace

ExitCode run_console(EventSocketClient& client, const Options& options) {
  std::setlocale(LC_ALL, "");
  return Console(client, options).Run();
}

}  // namespace kvx_cli
