#include "kelvaro_media_server_logger.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace kvx_media_server {

KvrMediaServerLogger::KvrMediaServerLogger(bool enable_trace) : enable_jsr309_trace_(enable_trace) {}

bool KvrMediaServerLogger::Init(const char* name, kelvaro::LogLevel level) {
  return Init(name, level, "");
}

bool KvrMediaServerLogger::Init(const char*, kelvaro::LogLevel, const char*) {
  return true;
}

void KvrMediaServerLogger::Log(kelvaro::LogLevel level, std::string message, const char* file, uint32_t line) const {
  if (!enable_jsr309_trace_ && level == kelvaro::TRACE_LOG_LEVEL) return;
  switch_log_printf(SWITCH_CHANNEL_ID_LOG, file, "Log", static_cast<int>(line), nullptr, KvrToFSLogLevel(level),
                    "thread-id=%u: %s\n", get_thread_id(), message.c_str());
}

switch_log_level_t KvrMediaServerLogger::KvrToFSLogLevel(kelvaro::LogLevel level) const {
  switch (level) {
    case kelvaro::TRACE_LOG_LEVEL:
    case kelvaro::DEBUG_LOG_LEVEL:
      return enable_jsr309_trace_ ? SWITCH_LOG_INFO : SWITCH_LOG_DEBUG;
    case kelvaro::INFO_LOG_LEVEL:
      return SWITCH_LOG_NOTICE;
    case kelvaro::WARN_LOG_LEVEL:
      return SWITCH_LOG_WARNING;
    case kelvaro::ERROR_LOG_LEVEL:
      return SWITCH_LOG_ERROR;
    case kelvaro::FATAL_LOG_LEVEL:
      return SWITCH_LOG_CRIT;
  }
  return SWITCH_LOG_CONSOLE;
}

uint32_t get_thread_id() {
  // It stays the thread's for its life, and asking for it costs more than the rest of a record that nobody wants.
  thread_local const auto id = static_cast<uint32_t>(syscall(SYS_gettid));
  return id;
}

}  // namespace kvx_media_server
