#include "console/event_socket_settings.h"

#include <switch.h>

#include <charconv>
#include <memory>
#include <type_traits>

#include "console/event_socket_address.h"
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

/// False, with what was expected, when the value makes no sense.
bool apply(const std::string& name, const std::string& value, EventSocketSettings& settings, std::string& expected) {
  unsigned number = 0;
  if (name == "listen-ip") {
    settings.listen_ip = value;
    expected = "a numeric address or \"localhost\"";
    return ResolveListenAddress(value, "0") != nullptr;
  }
  if (name == "listen-port") {
    const bool valid = parse_number(value, 0, kHighestPort, number);
    settings.listen_port = static_cast<uint16_t>(number);
    expected = "a number from 0 to " + std::to_string(kHighestPort);
    return valid;
  }
  if (name == "max-connections") {
    const bool valid = parse_number(value, 1, kMostConnections, number);
    settings.max_connections = number;
    expected = "a number from 1 to " + std::to_string(kMostConnections);
    return valid;
  }
  settings.password = value;
  return !value.empty() && value.find_first_of("\r\n") == std::string::npos && value.front() != ' ';
}

bool is_known(const std::string& name) {
  for (const char* known : {"listen-ip", "listen-port", "password", "max-connections"}) {
    if (name == known) return true;
  }
  return false;
}

/// Reads the parameters and gathers every mistake in them.
class SettingsReader {
 public:
  SettingsReader(EventSocketSettings& settings, const std::string& place_of_settings)
      : settings_(settings), place_(place_of_settings) {}

  void Read(switch_xml_t parameter) {
    const std::string name = switch_xml_attr_soft(parameter, "name");
    const std::string value = switch_xml_attr_soft(parameter, "value");
    const std::string place = At(settings_.source, parameter);
    std::string expected;
    if (name.empty()) return;  // told as missing
    if (!is_known(name)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%sunknown parameter \"%s\", ignored\n", place.c_str(),
                        name.c_str());
      return;
    }
    if (name == "listen-ip") address_place_ = place;
    if (name == "password") password_place_ = place;
    if (apply(name, value, settings_, expected)) return;
    // A password is nobody's to read, not even a bad one.
    AddLine(mistakes_, place + (name == "password" ? "\"password\" must not be empty or begin with a blank"
                                                   : "\"" + name + "\" is \"" + value + "\", not " + expected));
  }

  /// What only the whole can tell; then all mistakes.
  std::string Finish() {
    if (password_place_.empty()) AddLine(mistakes_, place_ + "no \"password\" given");
    const SocketAddresses address = ResolveListenAddress(settings_.listen_ip, "0");
    if (address && !IsLoopback(address->ai_addr) && IsKnownToEverybody(settings_.password)) {
      AddLine(mistakes_, (address_place_.empty() ? place_ : address_place_) + "\"listen-ip\" is " +
                             settings_.listen_ip + ", which is not loopback, and the password \"" + settings_.password +
                             "\" is one that everybody knows: set one of your own or listen on 127.0.0.1");
    }
    return mistakes_;
  }

 private:
  EventSocketSettings& settings_;
  const std::string place_;
  std::string address_place_;   // empty: not given
  std::string password_place_;  // empty: not given
  std::string mistakes_;
};

}  // namespace

bool ReadEventSocketSettings(EventSocketSettings& settings, std::string& error) {
  settings.source = ConfigurationPath("event_socket.conf");
  switch_xml_t configuration = nullptr;
  const Tree tree(OpenConfiguration("event_socket.conf", configuration, error), &switch_xml_free);
  if (!tree) return false;
  WarnOfUnread(settings.source, configuration, "settings", kParamOutline);
  switch_xml_t section = switch_xml_child(configuration, "settings");
  SettingsReader reader(settings, At(settings.source, section ? section : configuration));
  for (switch_xml_t at = switch_xml_child(section, "param"); at; at = switch_xml_next(at)) reader.Read(at);
  error = reader.Finish();
  return error.empty();
}

}  // namespace kvx_switch
