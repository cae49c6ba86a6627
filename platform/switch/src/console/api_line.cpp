#include "console/api_line.h"

#include <switch.h>

#include <algorithm>
#include <exception>

namespace kvx_switch {

ApiLine ParseApiLine(const std::string& line) {
  const size_t word_end = std::min(line.find(' '), line.size());
  const size_t arguments = std::min(line.find_first_not_of(' ', word_end), line.size());
  return {line.substr(0, word_end), line.substr(arguments)};
}

std::string RunApiLine(const ApiRunner& run_api, const ApiLine& line) {
  std::string output;
  try {
    output = run_api(line.command, line.arguments);
  } catch (const std::exception& exception) {
    const std::string text = line.command + (line.arguments.empty() ? "" : " " + line.arguments);
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Event socket: command \"%s\" failed: %s\n", text.c_str(),
                      exception.what());
    output = std::string("-ERR ") + exception.what() + "\n";
  }
  return output.empty() ? "-ERR no reply\n" : output;
}

}  // namespace kvx_switch
