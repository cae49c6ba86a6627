#pragma once

#include <string>

#include "event_socket_client.h"

namespace kvx_cli {

/// A line of the switch's log as the operator sees it, with its line end; coloured by its level when `coloured`.
std::string shown_log_line(const EventSocketMessage& message, bool coloured);

/// Whether text for `descriptor` may be coloured when nobody said: it is a terminal that understands that, and NO_COLOR
/// is not set.
bool takes_colour(int descriptor);

}  // namespace kvx_cli
