#pragma once

#include <switch.h>

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <string>

/// Writes one fixed message to the switch's log with the caller's own file, function and line; the line end is added
/// here. Messages that carry values call switch_log_printf(SWITCH_CHANNEL_LOG, ...) with a format of their own.
#define KVX_MS_LOG(level, message) switch_log_printf(SWITCH_CHANNEL_LOG, (level), "%s\n", (message))

namespace kvx_media_server {

/// The canonical text of a uuid: 36 characters, lower-case hexadecimal with hyphens.
inline std::string uuid_to_text(const boost::uuids::uuid& value) {
  return boost::uuids::to_string(value);
}

}  // namespace kvx_media_server
