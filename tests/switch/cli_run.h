#pragma once

#include <map>
#include <string>
#include <vector>

namespace cli_test {

struct CliResult {
  int exit_code = -1;  ///< -1: it did not end by itself in time
  std::string out;
  std::string err;
};

/// Runs the built kvx-cli to its end with these arguments and this standard input. Of the environment it sees PATH, the
/// sanitizers' options and what `environment` sets. Killed when it does not end in time.
CliResult run_cli(const std::vector<std::string>& arguments, const std::string& input = "",
                  const std::map<std::string, std::string>& environment = {});

/// kvx-cli on a terminal of its own, for what only a person at a keyboard sees.
class CliOnTerminal {
 public:
  CliOnTerminal(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment);
  ~CliOnTerminal();
  CliOnTerminal(const CliOnTerminal&) = delete;
  CliOnTerminal& operator=(const CliOnTerminal&) = delete;

  /// Waits until the program reads key by key, then types: it prints its prompt just before it takes over the terminal,
  /// and a control key in between would be taken by the terminal itself.
  void Type(const std::string& keys);
  /// What the terminal showed up to and with `text`, or all it showed when that does not come.
  std::string ReadUntil(const std::string& text);
  /// Its exit code; -1 when it does not end in time.
  int WaitForEnd();

 private:
  int terminal_ = -1;
  int process_ = -1;
  std::string shown_;
};

}  // namespace cli_test
