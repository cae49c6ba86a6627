/// How the engine tells its host what went on.
#pragma once

#include <functional>
#include <string>

namespace media_engine {

enum class LogLevel { kError, kWarning, kNotice, kInfo, kDebug };

/// Called from worker threads and from threads that make requests, several at the same time, with no lock held. It
/// must not wait and must not call the engine back. Never called for single packets. Not called any more once
/// Server::Shutdown has returned.
using LogSink = std::function<void(LogLevel, const std::string&)>;

}  // namespace media_engine
