#include "configuration.h"

#include "address_text.h"
#include "driver_registry.h"
#include "kelvaro/jsr309/configuration_check.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <charconv>

namespace kelvaro::jsr309 {
namespace {

using boost::property_tree::ptree;

constexpr unsigned kMaxRequestTimeoutMs = 60000;
constexpr unsigned kMaxLostEventsPerSecond = 1000000;
constexpr unsigned kMaxCapacity = 1000000;
constexpr unsigned kMaxThreads = 256;
constexpr unsigned kLowestPort = 1024;
constexpr unsigned kHighestPort = 65535;
constexpr char kServers[] = "jsr309.media_servers";

[[noreturn]] void Refuse(std::string element, std::string value, std::string reason) {
  throw SettingError{std::move(element), std::move(value), std::move(reason)};
}

unsigned Number(const std::string& element, const ptree& node, unsigned lowest, unsigned highest) {
  const std::string& text = node.data();
  unsigned number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size() || number < lowest || number > highest) {
    Refuse(element, text, "not a number from " + std::to_string(lowest) + " to " + std::to_string(highest));
  }
  return number;
}

std::string Address(const std::string& element, const ptree& node) {
  if (!ParseIp(node.data())) Refuse(element, node.data(), "not a numeric IP address");
  return WithoutBrackets(node.data());
}

void AddDriverSetting(const std::string& name, const ptree& node, MediaServerSettings& settings) {
  if (node.empty()) settings.driver_settings.emplace_back(name, node.data());
  for (const auto& [child, value] : node) AddDriverSetting(name + "." + child, value, settings);
}

/// Gathers what Refuse throws, so that one mistake does not hide the next.
class Mistakes {
 public:
  template <typename Reader>
  void Try(Reader read) {
    try {
      read();
    } catch (const SettingError& refused) {
      found_.push_back(refused);
    }
  }
  void Add(SettingError mistake) { found_.push_back(std::move(mistake)); }
  const std::vector<SettingError>& Found() const { return found_; }

 private:
  std::vector<SettingError> found_;
};

/// Reads one media_server element, child by child.
class ServerReader {
 public:
  ServerReader(ServerConfiguration& server, unsigned request_timeout_ms, Mistakes& mistakes)
      : server_(server), mistakes_(mistakes) {
    server_.driver = kEmbeddedDriver;
    server_.settings.request_timeout_ms = request_timeout_ms;
  }

  void Read(const ptree& node) {
    for (const auto& entry : node) mistakes_.Try([&] { ReadChild(entry.first, entry.second); });
    if (!IsKnownMediaServerDriver(server_.driver)) mistakes_.Add({Path("driver"), server_.driver, "no such driver"});
    for (const char* name : {"mac", "address"}) {
      if (!Seen(name)) mistakes_.Add({Path(name), "", "missing"});
    }
    server_.settings.given = seen_;
    if (server_.settings.rtp_port_min >= server_.settings.rtp_port_max) {
      mistakes_.Add({Path("rtp_port_min"), std::to_string(server_.settings.rtp_port_min),
                     "not below rtp_port_max, which is " + std::to_string(server_.settings.rtp_port_max)});
    }
  }

 private:
  bool Seen(const std::string& name) const { return std::find(seen_.begin(), seen_.end(), name) != seen_.end(); }

  std::string Path(const std::string& name) const { return server_.element + "." + name; }

  void ReadChild(const std::string& name, const ptree& child) {
    MediaServerSettings& settings = server_.settings;
    const std::string path = Path(name);
    if (name != "address" && Seen(name)) Refuse(path, child.data(), "given twice");
    seen_.push_back(name);
    if (name == "driver") {
      server_.driver = child.data();
    } else if (name == "mac") {
      const auto mac = NormalisedMac(child.data());
      if (!mac) Refuse(path, child.data(), "not a MAC address");
      settings.mac = *mac;
    } else if (name == "address") {
      settings.addresses.push_back(Address(path, child));
    } else if (name == "public_address") {
      settings.public_address = Address(path, child);
    } else if (name == "rtp_port_min") {
      settings.rtp_port_min = static_cast<uint16_t>(Number(path, child, kLowestPort, kHighestPort));
    } else if (name == "rtp_port_max") {
      settings.rtp_port_max = static_cast<uint16_t>(Number(path, child, kLowestPort, kHighestPort));
    } else if (name == "capacity") {
      settings.capacity = Number(path, child, 1, kMaxCapacity);
    } else if (name == "threads") {
      settings.threads = Number(path, child, 1, kMaxThreads);
    } else if (name == "request_timeout_ms") {
      settings.request_timeout_ms = Number(path, child, 1, kMaxRequestTimeoutMs);
    } else {
      AddDriverSetting(name, child, settings);
    }
  }

  ServerConfiguration& server_;
  Mistakes& mistakes_;
  std::vector<std::string> seen_;
};

void FindDuplicates(const std::vector<ServerConfiguration>& servers, Mistakes& mistakes) {
  for (size_t i = 0; i < servers.size(); ++i) {
    const ServerConfiguration& server = servers[i];
    const auto& addresses = server.settings.addresses;
    for (size_t a = 0; a < addresses.size(); ++a) {
      for (size_t b = 0; b < a; ++b) {
        if (SameIp(addresses[a], addresses[b]))
          mistakes.Add({server.element + ".address", addresses[a], "given twice"});
      }
    }
    for (size_t j = 0; j < i; ++j) {
      const ServerConfiguration& former = servers[j];
      if (!server.settings.mac.empty() && server.settings.mac == former.settings.mac) {
        mistakes.Add({server.element + ".mac", server.settings.mac, "already that of " + former.element});
      }
      for (const std::string& address : addresses) {
        for (const std::string& taken : former.settings.addresses) {
          if (!SameIp(address, taken)) continue;
          mistakes.Add({server.element + ".address", address, "already that of " + former.element});
        }
      }
    }
  }
}

void ReadServers(const ptree& media_servers, Configuration& configuration, Mistakes& mistakes) {
  unsigned request_timeout_ms = MediaServerSettings().request_timeout_ms;
  for (const auto& entry : media_servers) {
    const std::string& name = entry.first;
    const std::string path = std::string(kServers) + "." + name;
    mistakes.Try([&] {
      if (name == "request_timeout_ms") {
        request_timeout_ms = Number(path, entry.second, 1, kMaxRequestTimeoutMs);
      } else if (name == "lost_events_per_second") {
        configuration.lost_events_per_second = Number(path, entry.second, 1, kMaxLostEventsPerSecond);
      } else if (name != "media_server") {
        Refuse(path, entry.second.data(), "not known");
      }
    });
  }
  for (const auto& [name, child] : media_servers) {
    if (name != "media_server") continue;
    configuration.servers.emplace_back();
    ServerConfiguration& server = configuration.servers.back();
    server.element = std::string(kServers) + ".media_server[" + std::to_string(configuration.servers.size()) + "]";
    ServerReader(server, request_timeout_ms, mistakes).Read(child);
  }
  if (configuration.servers.empty()) mistakes.Add({std::string(kServers) + ".media_server", "", "missing"});
  FindDuplicates(configuration.servers, mistakes);
}

ptree ReadXml(const std::string& path) {
  namespace xml = boost::property_tree::xml_parser;
  ptree tree;
  try {
    xml::read_xml(path, tree, xml::trim_whitespace | xml::no_comments);
  } catch (const xml::xml_parser_error& error) {
    const std::string line = error.line() == 0 ? "" : " (line " + std::to_string(error.line()) + ")";
    Refuse("", "", error.message() + line);
  }
  return tree;
}

void ReadFile(const std::string& path, Configuration& configuration, Mistakes& mistakes) {
  try {
    const ptree tree = ReadXml(path);
    if (!tree.get_child_optional("jsr309")) Refuse("jsr309", "", "missing");
    const auto media_servers = tree.get_child_optional(kServers);
    if (!media_servers) Refuse(kServers, "", "missing");
    ReadServers(*media_servers, configuration, mistakes);
  } catch (const SettingError& refused) {
    mistakes.Add(refused);
  } catch (const std::exception& failure) {
    mistakes.Add({"", "", failure.what()});
  }
}

}  // namespace

bool ReadConfiguration(const std::string& path, Configuration& configuration, std::string& error) {
  configuration = Configuration();
  Mistakes mistakes;
  ReadFile(path, configuration, mistakes);
  if (mistakes.Found().empty()) return true;
  error = DescribeSettingError(path, mistakes.Found().front());
  return false;
}

std::vector<SettingError> CheckConfiguration(const std::string& path) {
  Configuration configuration;
  Mistakes mistakes;
  ReadFile(path, configuration, mistakes);
  for (const ServerConfiguration& server : configuration.servers) {
    const std::shared_ptr<MediaServerDriver> driver = MakeMediaServerDriver(server.driver);
    for (SettingError& mistake : driver ? driver->Check(server.settings) : std::vector<SettingError>()) {
      mistake.element = server.element + (mistake.element.empty() ? "" : "." + mistake.element);
      mistakes.Add(std::move(mistake));
    }
  }
  return mistakes.Found();
}

std::string DescribeSettingError(const std::string& path, const SettingError& error) {
  std::string message = "Configuration file " + path;
  if (!error.element.empty()) message += ", element " + error.element + ", value \"" + error.value + "\"";
  return message + ": " + error.reason;
}

}  // namespace kelvaro::jsr309
