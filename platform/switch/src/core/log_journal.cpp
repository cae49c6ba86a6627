#include "core/log_journal.h"

#include <sys/stat.h>

#include <cstring>

namespace kvx_switch {
namespace {

constexpr int kInformational = 6;

/// The levels are those of syslog but for the first, which is for texts that always show.
int priority_of(switch_log_level_t level) {
  return level > SWITCH_LOG_CONSOLE && level <= SWITCH_LOG_DEBUG ? static_cast<int>(level) : kInformational;
}

}  // namespace

bool IsJournal(int descriptor, const char* journal_stream) {
  struct stat information;
  if (!journal_stream || fstat(descriptor, &information) != 0) return false;
  return std::to_string(information.st_dev) + ":" + std::to_string(information.st_ino) == journal_stream;
}

std::string JournalText(const switch_log_node_t& node) {
  const std::string priority = "<" + std::to_string(priority_of(node.level)) + ">";
  std::string text = priority;
  if (node.channel != SWITCH_CHANNEL_ID_LOG_CLEAN) {
    text +=
        std::string("[") + switch_log_level2str(node.level) + "] " + node.file + ":" + std::to_string(node.line) + " ";
    if (!zstr(node.userdata)) text += std::string(node.userdata) + " ";
  }
  const char* content = switch_str_nil(node.content);
  for (const char* end; (end = std::strchr(content, '\n')) != nullptr; content = end + 1) {
    text.append(content, end);
    text += '\n';
    if (end[1] != '\0') text += priority;
  }
  text += content;
  if (text.back() != '\n') text += '\n';
  return text;
}

}  // namespace kvx_switch
