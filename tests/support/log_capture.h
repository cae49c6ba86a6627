#pragma once

#include <switch.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace test_support {

/// One line of the switch's log as a sink gets it: the text is the caller's own, line end included.
struct LogLine {
  switch_log_level_t level = SWITCH_LOG_INVALID;
  std::string text;
  std::string file;  // without directories
  std::string function;
  std::uint32_t line = 0;
  switch_text_channel_t channel = SWITCH_CHANNEL_ID_LOG;
};

/// Level and text alone count.
bool operator==(const LogLine& left, const LogLine& right);
void PrintTo(const LogLine& line, std::ostream* out);

inline LogLine debug_line(const std::string& text) {
  return {SWITCH_LOG_DEBUG, text, "", "", 0, {}};
}
inline LogLine info_line(const std::string& text) {
  return {SWITCH_LOG_INFO, text, "", "", 0, {}};
}
inline LogLine notice_line(const std::string& text) {
  return {SWITCH_LOG_NOTICE, text, "", "", 0, {}};
}
inline LogLine warning_line(const std::string& text) {
  return {SWITCH_LOG_WARNING, text, "", "", 0, {}};
}
inline LogLine error_line(const std::string& text) {
  return {SWITCH_LOG_ERROR, text, "", "", 0, {}};
}

/// Everything that is logged while it lives, on any thread. The log delivers on a thread of its own: the getters first
/// wait until everything logged before the call has come through. One at a time.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  /// Those logged in files of these names.
  std::vector<LogLine> LinesOf(const std::vector<std::string>& files) const;
  /// Those logged by the module's own sources.
  std::vector<LogLine> ModuleLines() const;
  std::size_t Count(const LogLine& line) const;
  bool Has(const LogLine& line) const { return Count(line) > 0; }
  void Clear();
};

}  // namespace test_support
