#include "embedded/embedded_context.h"

namespace kelvaro::jsr309 {
namespace {

/// The library's INFO is what its host shows as a notice.
LogLevel LibraryLevel(media_engine::LogLevel level) {
  switch (level) {
    case media_engine::LogLevel::kError:
      return ERROR_LOG_LEVEL;
    case media_engine::LogLevel::kWarning:
      return WARN_LOG_LEVEL;
    case media_engine::LogLevel::kNotice:
      return INFO_LOG_LEVEL;
    case media_engine::LogLevel::kInfo:
      return DEBUG_LOG_LEVEL;
    case media_engine::LogLevel::kDebug:
      return TRACE_LOG_LEVEL;
  }
  return ERROR_LOG_LEVEL;
}

}  // namespace

void EmbeddedContext::Log(media_engine::LogLevel level, const std::string& text) const {
  KELVARO_LOG(*logger_, LibraryLevel(level), name_, text);
}

void EmbeddedContext::NameUnsupported(const std::string& setting, const std::string& consequence) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!named_.insert(setting).second) return;
  }
  Log(media_engine::LogLevel::kNotice,
      "The embedded media server does not support " + setting + " yet: " + consequence);
}

}  // namespace kelvaro::jsr309
