#pragma once

#include <string>

#include "console/event_socket_server.h"

namespace kvx_switch {

/// Reads event_socket.conf of the switch's configuration. False, with file, parameter and value in `error`, when the
/// file is missing or a value makes no sense; parameters of other names are logged and passed over.
bool ReadEventSocketSettings(EventSocketSettings& settings, std::string& error);

}  // namespace kvx_switch
