#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/shutdown_hook.h"
#include "console/uptime.h"
#include "console/version.h"
#include "core/interface_list.h"
#include "core/media_server.h"
#include "core/session_rate.h"

namespace kvx_switch {
namespace {

constexpr int kHighestLogLevel = SWITCH_LOG_DEBUG;

std::string counted_sessions(uint64_t count) {
  return std::to_string(count) + " session(s)";
}

switch_time_t time_up() {
  return switch_micro_time_now() - GetSwitchTotals().started;
}

int32_t core_setting(switch_session_ctl_t setting, int32_t value) {
  switch_core_session_ctl(setting, &value);
  return value;
}

std::string described(const ApiInfo& api) {
  std::string line = api.name;
  if (!api.syntax.empty()) line += " " + api.syntax;
  if (!api.description.empty()) line += " - " + api.description;
  return line + "\n";
}

}  // namespace

switch_status_t status_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  if (!words_of(cmd).empty()) return answer_usage(stream, "status", "");
  const SwitchTotals totals = GetSwitchTotals();
  const bool running = switch_core_session_ctl(SCSC_CHECK_RUNNING, nullptr) == 1;
  std::string text = "UP " + uptime_in_words(time_up()) + "\n";
  text += std::string(kSwitchName) + " (Version " + kSwitchVersion + ") is " + (running ? "ready" : "stopping") + "\n";
  text += counted_sessions(totals.sessions) + " since startup\n";
  text += counted_sessions(switch_core_session_count()) + " - peak " + std::to_string(totals.peak_sessions) + "\n";
  const SessionRate::Figures rate = SessionRate::Get().At(std::chrono::steady_clock::now());
  text += counted_sessions(rate.last_second) + " per Sec out of max " + std::to_string(rate.limit) + ", peak " +
          std::to_string(rate.peak) + "\n";
  text += counted_sessions(core_setting(SCSC_MAX_SESSIONS, 0)) + " max\n";
  text += std::string("media server ") + (MediaServerAvailable() ? "available" : "not available") + "\n";
  write_text(stream, text);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t version_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  if (!words_of(cmd).empty()) return answer_usage(stream, "version", "");
  write_text(stream, std::string(kSwitchName) + " Version " + kSwitchVersion + "\n");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t uptime_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  const int64_t count = words.size() > 1 ? -1 : uptime_in_units(time_up(), words.empty() ? "s" : words[0]);
  if (count < 0) return answer_usage(stream, "uptime", kUptimeSyntax);
  write_text(stream, std::to_string(count) + "\n");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t help_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() > 1) return answer_usage(stream, "help", kHelpSyntax);
  std::string text;
  for (const ApiInfo& api : ListApis()) {
    if (words.empty() || equal_without_case(words[0], api.name)) text += described(api);
  }
  if (text.empty()) return answer_error(stream, "\"" + words[0] + "\" is no command");
  write_text(stream, text);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t loglevel_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() > 1) return answer_usage(stream, "loglevel", kLoglevelSyntax);
  int32_t level = -1;
  if (!words.empty()) {
    level = switch_log_str2level(words[0].c_str());
    if (level < 0 || level > kHighestLogLevel) return answer_usage(stream, "loglevel", kLoglevelSyntax);
  }
  level = core_setting(SCSC_LOGLEVEL, level);
  return answer_ok(stream, std::string("log level: ") + switch_log_level2str(static_cast<switch_log_level_t>(level)));
}

switch_status_t shutdown_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  if (!words_of(cmd).empty()) return answer_usage(stream, "shutdown", "");
  if (!CallShutdownHook()) return answer_error(stream, "this switch cannot be stopped by a command");
  return answer_ok(stream, "stopping");
}

switch_status_t console_complete_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const std::string line = cmd != nullptr ? cmd : "";
  const size_t blank = line.find_last_of(' ');
  const std::string last_word = blank == std::string::npos ? line : line.substr(blank + 1);
  switch_console_complete(line.c_str(), last_word.c_str(), nullptr, stream, nullptr);
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace kvx_switch
