#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"

namespace kvx_switch {
namespace {

std::string reason_text(const char* error) {
  return error != nullptr && *error != '\0' ? error : "no reason given";
}

std::string sessions_up() {
  const uint32_t count = switch_core_session_count();
  if (count == 0) return "";
  return "; " + std::to_string(count) + (count == 1 ? " session is up" : " sessions are up");
}

bool load(const std::string& module, std::string& error) {
  const char* reason = nullptr;
  if (switch_loadable_module_load_module(nullptr, module.c_str(), SWITCH_TRUE, &reason) == SWITCH_STATUS_SUCCESS) {
    return true;
  }
  error = "[" + reason_text(reason) + "]";
  return false;
}

/// A module in use is not forced out: the calls that use it go on.
bool unload(const std::string& module, std::string& error) {
  const char* reason = nullptr;
  if (switch_loadable_module_unload_module(nullptr, module.c_str(), SWITCH_FALSE, &reason) == SWITCH_STATUS_SUCCESS) {
    return true;
  }
  error = "[" + reason_text(reason) + "]" + sessions_up();
  return false;
}

bool is_loaded(const std::string& module) {
  return switch_loadable_module_exists(module.c_str()) == SWITCH_STATUS_SUCCESS;
}

/// Modules come from the module directory alone, so that a slip does not run a library from anywhere.
bool is_module_name(const std::string& word) {
  return word.find('/') == std::string::npos;
}

}  // namespace

switch_status_t load_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() != 1) return answer_usage(stream, "load", kModuleSyntax);
  if (!is_module_name(words[0])) return answer_error(stream, "\"" + words[0] + "\" is no module name");
  std::string error;
  return load(words[0], error) ? answer_ok(stream, "module loaded") : answer_error(stream, error);
}

switch_status_t unload_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() != 1) return answer_usage(stream, "unload", kModuleSyntax);
  if (!is_loaded(words[0])) return answer_error(stream, "module \"" + words[0] + "\" is not loaded");
  std::string error;
  return unload(words[0], error) ? answer_ok(stream, "module unloaded") : answer_error(stream, error);
}

switch_status_t reload_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  if (words.size() != 1) return answer_usage(stream, "reload", kModuleSyntax);
  if (!is_module_name(words[0])) return answer_error(stream, "\"" + words[0] + "\" is no module name");
  std::string error;
  const bool was_loaded = is_loaded(words[0]);
  if (was_loaded && !unload(words[0], error)) return answer_error(stream, error);
  if (!load(words[0], error)) {
    return answer_error(stream, error + (was_loaded ? "; the module was unloaded and is not loaded now" : ""));
  }
  return answer_ok(stream, was_loaded ? "module reloaded" : "module loaded");
}

switch_status_t reloadxml_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  if (!words_of(cmd).empty()) return answer_usage(stream, "reloadxml", "");
  const char* reason = nullptr;
  const switch_status_t status = switch_xml_reload(&reason);
  if (status != SWITCH_STATUS_SUCCESS) return answer_error(stream, "[" + reason_text(reason) + "]");
  return answer_ok(stream, "[Success]");
}

}  // namespace kvx_switch
