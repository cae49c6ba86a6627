#include "history_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

namespace kvx_cli {
namespace {

constexpr mode_t kForTheUserAlone = 0700;

bool make_directories(const std::string& directory) {
  for (size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
    const std::string part = directory.substr(0, slash);
    if (mkdir(part.c_str(), kForTheUserAlone) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

}  // namespace

std::string history_file() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  std::string directory;
  // A relative path in an XDG variable is invalid and to be ignored (XDG Base Directory rules).
  if (state != nullptr && state[0] == '/') {
    directory = std::string(state) + "/kvx";
  } else if (home != nullptr && home[0] == '/') {
    directory = std::string(home) + "/.local/state/kvx";
  }
  if (directory.empty() || !make_directories(directory)) return "";
  return directory + "/cli_history";
}

}  // namespace kvx_cli
