#include "console/event_socket_settings.h"

#include <switch.h>

#include <charconv>
#include <memory>
#include <type_traits>

#include "core/configuration.h"

namespace kvx_switch {
namespace {

constexpr unsigned kHighestPort = 65535;
constexpr unsigned kMostConnections = 1000;

using Tree = std::unique_ptr<std::remove_pointer_t<switch_xml_t>, decltype(&switch_xml_free)>;

bool parse_number(const std::string& text, unsigned lowest, unsigned highest, unsigned& number) {
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end && number >= lowest && number <= highest;
}

/// False when the value makes no sense for the name.
bool apply(const std::string& name, const std::string& value, EventSocketSettings& settings) {
  unsigned number = 0;
  if (name == "listen-ip") {
    settings.listen_ip = value;
    return !value.empty();
  }
  if (name == "listen-port") {
    const bool valid = parse_number(value, 0, kHighestPort, number);
    settings.listen_port = static_cast<uint16_t>(number);
    return valid;
  }
  if (name == "password") {
    settings.password = value;
    return !value.empty() && value.find_first_of("\r\n") == std::string::npos && value.front() != ' ';
  }
  if (name == "max-connections") {
    const bool valid = parse_number(value, 1, kMostConnections, number);
    settings.max_connections = number;
    return valid;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s: unknown parameter \"%s\" passed over\n",
                    settings.source.c_str(), name.c_str());
  return true;
}

std::string why_unreadable(const std::string& file) {
  if (!FileExists(file)) return file + ": no such file";
  std::string reason;
  const Tree tree(ParseXmlFile(file, reason), &switch_xml_free);
  return tree ? file + ": no <configuration name=\"event_socket.conf\">" : reason;
}

}  // namespace

bool ReadEventSocketSettings(EventSocketSettings& settings, std::string& error) {
  settings.source = ConfigurationPath("event_socket.conf");
  switch_xml_t configuration = nullptr;
  const Tree tree(switch_xml_open_cfg("event_socket.conf", &configuration, nullptr), &switch_xml_free);
  if (!tree) {
    error = why_unreadable(settings.source);
    return false;
  }
  for (switch_xml_t parameter = switch_xml_child(switch_xml_child(configuration, "settings"), "param");
       parameter != nullptr; parameter = switch_xml_next(parameter)) {
    const std::string name = switch_xml_attr_soft(parameter, "name");
    const std::string value = switch_xml_attr_soft(parameter, "value");
    if (apply(name, value, settings)) continue;
    error = settings.source + ": \"" + value + "\" is no value for \"" + name + "\"";
    if (name == "password") error = settings.source + ": \"password\" must not be empty or begin with a blank";
    return false;
  }
  if (settings.password.empty()) {
    error = settings.source + ": no \"password\" given";
    return false;
  }
  return true;
}

}  // namespace kvx_switch
