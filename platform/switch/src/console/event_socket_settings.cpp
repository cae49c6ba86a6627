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

enum class Applied { kDone, kNoValue, kUnknown };

Applied as(bool valid) {
  return valid ? Applied::kDone : Applied::kNoValue;
}

Applied apply(const std::string& name, const std::string& value, EventSocketSettings& settings) {
  unsigned number = 0;
  if (name == "listen-ip") {
    settings.listen_ip = value;
    return as(ResolveListenAddress(value, "0") != nullptr);
  }
  if (name == "listen-port") {
    const bool valid = parse_number(value, 0, kHighestPort, number);
    settings.listen_port = static_cast<uint16_t>(number);
    return as(valid);
  }
  if (name == "password") {
    settings.password = value;
    return as(!value.empty() && value.find_first_of("\r\n") == std::string::npos && value.front() != ' ');
  }
  if (name == "max-connections") {
    const bool valid = parse_number(value, 1, kMostConnections, number);
    settings.max_connections = number;
    return as(valid);
  }
  return Applied::kUnknown;
}

/// Reads the parameters and gathers every mistake in them.
class SettingsReader {
 public:
  explicit SettingsReader(EventSocketSettings& settings)
      : settings_(settings), address_place_(settings.source + ": "), password_place_(settings.source + ": ") {}

  void Read(switch_xml_t parameter) {
    const std::string name = switch_xml_attr_soft(parameter, "name");
    const std::string value = switch_xml_attr_soft(parameter, "value");
    const std::string place = At(settings_.source, parameter);
    if (name == "listen-ip") address_place_ = place;
    if (name == "password") password_place_ = place;
    given_password_ = given_password_ || name == "password";
    switch (apply(name, value, settings_)) {
      case Applied::kDone:
        break;
      case Applied::kNoValue:
        AddLine(mistakes_, place + (name == "password" ? "\"password\" must not be empty or begin with a blank"
                                                       : "\"" + value + "\" is no value for \"" + name + "\""));
        break;
      case Applied::kUnknown:
        switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%sunknown parameter \"%s\" passed over\n",
                          place.c_str(), name.c_str());
    }
  }

  /// What only the whole can tell; then all mistakes.
  std::string Finish() {
    if (!given_password_) AddLine(mistakes_, settings_.source + ": no \"password\" given");
    const SocketAddresses address = ResolveListenAddress(settings_.listen_ip, "0");
    if (address && !IsLoopback(address->ai_addr) && IsKnownToEverybody(settings_.password)) {
      AddLine(mistakes_, password_place_ + "the password \"" + settings_.password +
                             "\" is one that everybody knows, which is accepted on loopback addresses only");
      AddLine(mistakes_, address_place_ + "\"listen-ip\" is " + settings_.listen_ip +
                             ", which is not one: set a password of your own or listen on 127.0.0.1");
    }
    return mistakes_;
  }

 private:
  EventSocketSettings& settings_;
  std::string address_place_;
  std::string password_place_;
  bool given_password_ = false;
  std::string mistakes_;
};

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
  WarnOfUnread(settings.source, configuration, "settings", {"param", {"name", "value"}});
  SettingsReader reader(settings);
  for (switch_xml_t parameter = switch_xml_child(switch_xml_child(configuration, "settings"), "param");
       parameter != nullptr; parameter = switch_xml_next(parameter)) {
    reader.Read(parameter);
  }
  error = reader.Finish();
  return error.empty();
}

}  // namespace kvx_switch
