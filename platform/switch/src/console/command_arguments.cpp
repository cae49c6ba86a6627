#include "console/command_arguments.h"

#include <cstring>

namespace kvx_switch {
namespace {

std::string without_quotes(const std::string& argument) {
  const bool quoted = argument.size() >= 2 && argument.front() == '\'' && argument.back() == '\'';
  return quoted ? argument.substr(1, argument.size() - 2) : argument;
}

}  // namespace

std::vector<std::string> arguments_of(const char* cmd) {
  std::vector<std::string> arguments;
  std::string argument;
  int depth = 0;
  bool quoted = false;
  for (const char* at = cmd != nullptr ? cmd : ""; *at != '\0'; ++at) {
    const bool blank = *at == ' ' || *at == '\t';
    if (*at == '\'') quoted = !quoted;
    if (!quoted && std::strchr("{[(", *at) != nullptr) ++depth;
    if (!quoted && depth > 0 && std::strchr("}])", *at) != nullptr) --depth;
    if (!blank || quoted || depth > 0) {
      argument += *at;
    } else if (!argument.empty()) {
      arguments.push_back(without_quotes(argument));
      argument.clear();
    }
  }
  if (!argument.empty()) arguments.push_back(without_quotes(argument));
  return arguments;
}

}  // namespace kvx_switch
