#include "operate/configuration_check.h"

#include <switch.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <sstream>

#include "console/event_socket_settings.h"
#include "core/configuration.h"
#include "core/log.h"
#include "core/log_file.h"
#include "core/module_load.h"
#include "core/variables.h"
#include "sip/sip_check.h"

namespace kvx_switch {
namespace {

struct Mistakes {
  std::mutex mutex;
  std::vector<std::string> lines;  // guarded by mutex
};

Mistakes& the_mistakes() {
  static Mistakes* const mistakes = new Mistakes;
  return *mistakes;
}

/// What a start would log as a warning or worse while it reads its files is what is wrong with them.
switch_status_t Collect(const switch_log_node_t* node, switch_log_level_t) {
  std::istringstream text(switch_str_nil(node->content));
  Mistakes& mistakes = the_mistakes();
  const std::lock_guard<std::mutex> lock(mistakes.mutex);
  for (std::string line; std::getline(text, line);) {
    const bool told = std::find(mistakes.lines.begin(), mistakes.lines.end(), line) != mistakes.lines.end();
    if (!line.empty() && !told) mistakes.lines.push_back(line);
  }
  return SWITCH_STATUS_SUCCESS;
}

void LogUnless(bool good, const std::string& error) {
  if (!good) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
}

void ReadEverything() {
  std::string error;
  const bool variables = ReadVariables(error);
  LogUnless(variables, error);
  // Without the values every file that uses one would seem to be wrong.
  if (!variables && access(VariablesPath().c_str(), R_OK) != 0) return;
  LogUnless(ReadSwitchSettings(error), error);
  SetLogLevel(SWITCH_LOG_DEBUG);  // which they may have changed
  LogFileSettings log_file;
  LogUnless(ReadLogFileSettings(log_file, error), error);
  EventSocketSettings settings;
  LogUnless(ReadEventSocketSettings(settings, error), error);
  SipConfiguration sip;
  AccessControl access;
  LogUnless(ReadSipConfiguration(sip, access, error), error);
  CheckModules();
}

}  // namespace

std::vector<std::string> FindConfigurationMistakes() {
  SetLogLevel(SWITCH_LOG_DEBUG);
  StartLog();
  switch_log_bind_logger(Collect, SWITCH_LOG_WARNING, SWITCH_FALSE);
  ReadEverything();
  FlushLog();
  switch_log_unbind_logger(Collect);
  StopLog();
  ClearVariables();
  Mistakes& mistakes = the_mistakes();
  const std::lock_guard<std::mutex> lock(mistakes.mutex);
  return std::exchange(mistakes.lines, {});
}

std::vector<std::string> FindUnknownVariables(const std::vector<std::pair<std::string, std::string>>& variables) {
  const std::set<std::string> known = VariableNames();
  std::string names;
  for (const std::string& name : known) names += (names.empty() ? "" : ", ") + name;
  std::vector<std::string> lines;
  for (const auto& [name, value] : variables) {
    if (known.count(name) != 0) continue;
    lines.push_back("--set " + name + "=" + value + ": no file in " + SWITCH_GLOBAL_dirs.conf_dir + " sets or uses \"" +
                    name + "\"; known are: " + (names.empty() ? "none" : names));
  }
  return lines;
}

}  // namespace kvx_switch
