#include "log_view.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace kvx_cli {
namespace {

/// By the number of the level, as the switch's own console has them; "" for texts that are always shown.
const char* const kColours[] = {"",         "\033[1;31m", "\033[1;31m", "\033[31m",
                                "\033[35m", "\033[36m",   "\033[32m",   "\033[33m"};
constexpr char kPlain[] = "\033[0m";

const char* colour_of(const std::string& level) {
  const bool known = level.size() == 1 && level[0] >= '0' && level[0] <= '7';
  return known ? kColours[level[0] - '0'] : "";
}

}  // namespace

std::string shown_log_line(const EventSocketMessage& message, bool coloured) {
  std::string text = message.body;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  const char* colour = coloured ? colour_of(message.Header("Log-Level")) : "";
  return (*colour != '\0' ? colour + text + kPlain : text) + "\n";
}

bool takes_colour(int descriptor) {
  const char* terminal = std::getenv("TERM");
  const char* no_colour = std::getenv("NO_COLOR");
  return isatty(descriptor) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0 &&
         (no_colour == nullptr || *no_colour == '\0');
}

}  // namespace kvx_cli
