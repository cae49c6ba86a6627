#pragma once

#include <functional>
#include <string>

namespace kvx_switch {

/// Runs an API command and returns what it wrote; `arguments` is empty when there are none.
using ApiRunner = std::function<std::string(const std::string& command, const std::string& arguments)>;

/// A command and its arguments, as they stand on one line.
struct ApiLine {
  std::string command;
  std::string arguments;  ///< without the blanks before them
};

ApiLine ParseApiLine(const std::string& line);

/// What the command wrote; "-ERR ..." when it wrote nothing, or an exception left it (which is logged too). Clients
/// wait for a body; an empty one would leave some of them waiting.
std::string RunApiLine(const ApiRunner& run_api, const ApiLine& line);

}  // namespace kvx_switch
