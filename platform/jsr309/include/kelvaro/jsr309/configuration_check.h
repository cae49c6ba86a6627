/// A configuration file can be looked through before it is used: everything that MSControlFactory::Init would refuse in
/// it, not only the first, without opening a media server.
#pragma once

#include "kelvaro/jsr309/driver.h"

#include <string>
#include <vector>

namespace kelvaro::jsr309 {

/// In the order in which the file is read; the element is a path such as
/// "jsr309.media_servers.media_server[2].capacity", counted from 1, or empty for the file as a whole. Empty when
/// nothing is wrong. Whether an address is this machine's and a port free is not looked at. From any thread; does not
/// throw.
std::vector<SettingError> CheckConfiguration(const std::string& path);

}  // namespace kelvaro::jsr309
