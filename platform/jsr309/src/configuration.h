/// The control library's configuration file, read and checked.
#pragma once

#include "kelvaro/jsr309/driver.h"

#include <string>
#include <vector>

namespace kelvaro::jsr309 {

struct ServerConfiguration {
  std::string driver;
  std::string element;  ///< where the server stands in the file, for messages about its settings
  MediaServerSettings settings;
};

struct Configuration {
  unsigned lost_events_per_second = 100;
  std::vector<ServerConfiguration> servers;
};

/// Reads the file. False when something in it is not right; error then names the file, the element, the value and the
/// reason, and configuration is not to be used. Does not throw.
bool ReadConfiguration(const std::string& path, Configuration& configuration, std::string& error);

/// The message about one bad value. An empty element stands for the file as a whole.
std::string DescribeSettingError(const std::string& path, const SettingError& error);

}  // namespace kelvaro::jsr309
