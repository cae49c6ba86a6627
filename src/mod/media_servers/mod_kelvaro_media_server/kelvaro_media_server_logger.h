#pragma once

#include <switch.h>

#include <cstdint>
#include <string>

#include "kelvaro/logger.h"

namespace kvx_media_server {

/// The control library must not keep a log of its own: what it says belongs next to what the switch says about the same
/// call. This logger turns each of its records into one line of the switch's log, tagged with the kernel's id of the
/// thread that logged, which debuggers and /proc know it by.
///
/// With tracing on, the library's trace and debug records come out at INFO, so that they show at the usual log level;
/// with tracing off, trace records are dropped. Keeps no state: any thread may log.
class KvrMediaServerLogger : public virtual kelvaro::LoggingIdLogger {
 public:
  explicit KvrMediaServerLogger(bool enable_trace);

  bool Init(const char* name, kelvaro::LogLevel level) override;
  /// There is nothing to open; always true.
  bool Init(const char* name, kelvaro::LogLevel level, const char* file) override;
  void Log(kelvaro::LogLevel level, std::string message, const char* file, uint32_t line) const override;

  switch_log_level_t KvrToFSLogLevel(kelvaro::LogLevel level) const;

 private:
  const bool enable_jsr309_trace_;
};

/// The calling thread's kernel id.
uint32_t get_thread_id();

}  // namespace kvx_media_server
