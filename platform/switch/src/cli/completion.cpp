#include "completion.h"

#include <cstdlib>
#include <sstream>

namespace kvx_cli {
namespace {

constexpr char kWrite[] = "write=";

}  // namespace

Completion parse_completion(const std::string& output) {
  Completion completion;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.front() == '-') continue;
    const size_t colon = line.find(':');
    if (line.rfind(kWrite, 0) != 0 || colon == std::string::npos) {
      completion.candidates.push_back(line);
      continue;
    }
    completion.remove = std::strtoul(line.c_str() + sizeof(kWrite) - 1, nullptr, 10);
    completion.insert = line.substr(colon + 1);
  }
  return completion;
}

}  // namespace kvx_cli
