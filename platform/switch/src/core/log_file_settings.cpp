#include <charconv>

#include "core/configuration.h"
#include "core/log_file.h"

namespace kvx_switch {
namespace {

constexpr uint64_t kLeastRollover = 4096;
constexpr unsigned kMostFiles = 1000;

template <typename Number>
bool parse(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

/// False, with what was expected, when the value makes no sense.
bool apply(const std::string& name, const std::string& value, LogFileSettings& settings, std::string& expected) {
  if (name == "logfile") {
    settings.path = value;
    expected = "an absolute path, or empty";
    return value.empty() || value.front() == '/';
  }
  if (name == "rollover") {
    expected = "0 or a number of bytes from " + std::to_string(kLeastRollover);
    return parse(value, settings.rollover) && (settings.rollover == 0 || settings.rollover >= kLeastRollover);
  }
  if (name == "maximum-rotate") {
    expected = "a number from 0 to " + std::to_string(kMostFiles);
    return parse(value, settings.maximum_rotate) && settings.maximum_rotate <= kMostFiles;
  }
  if (name == "rotate-on-hup") {
    expected = "\"true\" or \"false\"";
    settings.rotate_on_hup = switch_true(value.c_str());
    return settings.rotate_on_hup || switch_false(value.c_str());
  }
  expected = "a log level";
  settings.level = switch_log_str2level(value.c_str());
  return settings.level != SWITCH_LOG_INVALID;
}

bool is_known(const std::string& name) {
  for (const char* known : {"logfile", "rollover", "maximum-rotate", "rotate-on-hup", "loglevel"}) {
    if (name == known) return true;
  }
  return false;
}

}  // namespace

bool ReadLogFileSettings(LogFileSettings& settings, std::string& error) {
  settings = {};
  error.clear();
  const std::string path = ConfigurationPath("logfile.conf");
  if (!FileExists(path)) return true;
  switch_xml_t configuration = nullptr;
  switch_xml_t root = OpenConfiguration("logfile.conf", configuration, error);
  if (!root) return false;
  WarnOfUnread(path, configuration, "settings", kParamOutline);
  for (switch_xml_t at = switch_xml_child(switch_xml_child(configuration, "settings"), "param"); at; at = at->next) {
    const std::string name = switch_xml_attr_soft(at, "name");
    const std::string value = switch_xml_attr_soft(at, "value");
    std::string expected;
    if (name.empty()) continue;  // told as missing
    if (!is_known(name)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%sunknown parameter \"%s\", ignored\n",
                        At(path, at).c_str(), name.c_str());
    } else if (!apply(name, value, settings, expected)) {
      AddLine(error, At(path, at) + "\"" + name + "\" is \"" + value + "\", not " + expected);
    }
  }
  switch_xml_free(root);
  return error.empty();
}

}  // namespace kvx_switch
