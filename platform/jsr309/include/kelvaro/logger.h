/// The logger that an application lends to the control library.
///
/// A library that lives inside somebody else's process must not open log files of its own: its records belong into the
/// log of its host, next to what the host says about the same call. The host therefore derives from LoggingIdLogger and
/// hands an object to MSControlFactory::Init.
///
/// Ownership: the application's. The library uses the object from a successful MSControlFactory::Init until
/// MSControlFactory::Stop returns and never afterwards; after a failed Init it is not used again either.
/// Threads: Log and LogWithId are called from any thread, at the same time.
#pragma once

#include <cstdint>
#include <string>

namespace kelvaro {

/// How much a record matters, from least to most. The order is relied on.
enum LogLevel : int {
  TRACE_LOG_LEVEL = 0,  ///< every request and every answer
  DEBUG_LOG_LEVEL,      ///< objects made and ended
  INFO_LOG_LEVEL,       ///< start, stop, servers coming back
  WARN_LOG_LEVEL,       ///< something was refused, service goes on
  ERROR_LOG_LEVEL,      ///< something failed that should have worked
  FATAL_LOG_LEVEL,      ///< the library cannot go on
};

class Logger {
 public:
  virtual ~Logger() = default;

  /// Opens the log under a name with the lowest level to be kept. False when it cannot be opened.
  virtual bool Init(const char* name, LogLevel level) = 0;
  /// The same, into a file; an empty or null file name means the log's own place.
  virtual bool Init(const char* name, LogLevel level, const char* file) = 0;
  /// Writes one record; file and line say where it was made.
  virtual void Log(LogLevel level, std::string message, const char* file, uint32_t line) const = 0;
};

/// A logger whose records can carry the identity of the object that they speak of.
class LoggingIdLogger : public virtual Logger {
 public:
  /// Writes "<id> - <message>" through Log. A null id leaves the message as it is.
  virtual void LogWithId(LogLevel level, const char* id, const std::string& message, const char* file,
                         uint32_t line) const {
    Log(level, id == nullptr ? message : std::string(id) + " - " + message, file, line);
  }
};

}  // namespace kelvaro
