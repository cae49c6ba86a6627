#include "console_loop.h"

#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
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

class Console {
 public:
  Console(EventSocketClient& client, const Options& options) : client_(client), options_(options) {
    const Background background{[this] { return client_.descriptor(); }, [this] { client_.Connected(); }};
    if (isatty(STDIN_FILENO) != 0 && !options.batch) {
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
    std::string line;
    while (lines_->Next(line)) {
      line = without_outer_blanks(line);
      if (line.empty()) continue;
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
    return line.front() == '/' ? follow_log(client_, options_) : run_command(client_, options_, line);
  }

  /// "" for /nolog.
  static std::string LogLevelOf(const std::string& line) {
    if (line == "/nolog") return "";
    const std::string level = without_outer_blanks(line.substr(std::min<size_t>(line.size(), 5)));
    return level.empty() ? "debug" : level;
  }

  EventSocketClient& client_;
  Options options_;
  std::unique_ptr<LineSource> lines_;
};

}  // namespace

ExitCode run_console(EventSocketClient& client, const Options& options) {
  std::setlocale(LC_ALL, "");
  return Console(client, options).Run();
}

}  // namespace kvx_cli
