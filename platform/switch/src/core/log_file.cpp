#include "core/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "core/log.h"

namespace kvx_switch {
namespace {

constexpr switch_time_t kPauseBetweenTries = 1000000;  // microseconds
constexpr mode_t kFileMode = 0640;

std::string count_of_lines(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " line is" : " lines are");
}

}  // namespace

LogFile::LogFile(LogFileSettings settings) : settings_(std::move(settings)) {}

LogFile::~LogFile() {
  std::lock_guard<std::mutex> lock(mutex_);
  CloseLocked();
}

std::string LogFile::Write(const std::string& line, switch_time_t now) {
  std::lock_guard<std::mutex> lock(mutex_);
  return WriteLocked(line, now);
}

std::string LogFile::Reopen(switch_time_t now) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string said;
  if (settings_.rotate_on_hup && file_ >= 0) said = RotateLocked();
  CloseLocked();
  if (!OpenLocked()) return FailLocked("opened", errno, now);
  return said.empty() ? RecoverLocked() : said;
}

std::string LogFile::WriteLocked(const std::string& line, switch_time_t now) {
  if (failing_ && now < next_try_) {
    ++missing_;
    return "";
  }
  if (file_ < 0 && !OpenLocked()) {
    ++missing_;
    return FailLocked("opened", errno, now);
  }
  std::string said;
  if (settings_.rollover > 0 && size_ > 0 && size_ + line.size() > settings_.rollover) said = RotateLocked();
  size_t written = 0;
  while (file_ >= 0 && written < line.size()) {
    const ssize_t count = write(file_, line.data() + written, line.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    written += static_cast<size_t>(count);
  }
  if (written == line.size()) {
    size_ += written;
    return said.empty() ? RecoverLocked() : said;
  }
  const int error = file_ < 0 ? ENOENT : errno;
  // Half a line is none.
  if (written > 0 && ftruncate(file_, static_cast<off_t>(size_)) != 0) size_ += written;
  CloseLocked();
  ++missing_;
  return FailLocked("written", error, now);
}

bool LogFile::OpenLocked() {
  file_ = open(settings_.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
  struct stat information;
  size_ = file_ >= 0 && fstat(file_, &information) == 0 ? static_cast<uint64_t>(information.st_size) : 0;
  return file_ >= 0;
}

void LogFile::CloseLocked() {
  if (file_ >= 0) close(file_);
  file_ = -1;
}

/// Puts the file aside; when that cannot be, lines go on into it.
std::string LogFile::RotateLocked() {
  const auto aside = [this](unsigned number) { return settings_.path + "." + std::to_string(number); };
  for (unsigned number = settings_.maximum_rotate; number > 1; --number) {
    std::rename(aside(number - 1).c_str(), aside(number).c_str());
  }
  const bool kept = settings_.maximum_rotate > 0;
  const bool gone =
      kept ? std::rename(settings_.path.c_str(), aside(1).c_str()) == 0 : std::remove(settings_.path.c_str()) == 0;
  if (!gone) {
    const std::string reason = std::strerror(errno);
    size_ = 0;  // the next try when as much again has been written
    if (std::exchange(rotation_failed_, true)) return "";
    return "Log file " + settings_.path + " cannot be put aside: " + reason + "; it goes on growing";
  }
  rotation_failed_ = false;
  CloseLocked();
  OpenLocked();
  return "";
}

std::string LogFile::FailLocked(const char* what, int error, switch_time_t now) {
  next_try_ = now + kPauseBetweenTries;
  if (std::exchange(failing_, true)) return "";
  return "Log file " + settings_.path + " cannot be " + what + ": " + std::strerror(error) +
         "; its lines are lost until it can";
}

std::string LogFile::RecoverLocked() {
  if (!std::exchange(failing_, false)) return "";
  return "Log file " + settings_.path + " is written again; " + count_of_lines(std::exchange(missing_, 0)) +
         " missing in it";
}

// The one file of the process, as a sink.

namespace {

std::mutex file_mutex;
std::shared_ptr<LogFile> the_file;  // guarded by file_mutex

std::shared_ptr<LogFile> current_file() {
  std::lock_guard<std::mutex> lock(file_mutex);
  return the_file;
}

void tell(const std::string& said) {
  if (!said.empty()) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\n", said.c_str());
}

switch_status_t log_to_file(const switch_log_node_t* node, switch_log_level_t) {
  const std::shared_ptr<LogFile> file = current_file();
  if (!file) return SWITCH_STATUS_SUCCESS;
  std::string line = node->data;
  if (line.empty() || line.back() != '\n') line += '\n';
  tell(file->Write(line, node->timestamp));
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

void StartLogFile(const LogFileSettings& settings) {
  if (settings.path.empty()) return;
  auto file = std::make_shared<LogFile>(settings);
  {
    std::lock_guard<std::mutex> lock(file_mutex);
    the_file = file;
  }
  switch_log_bind_logger(log_to_file, settings.level, SWITCH_FALSE);
  // Now, not with the first line: whether it can be written is to be known at the start.
  tell(file->Reopen(switch_time_now()));
}

void StopLogFile() {
  std::lock_guard<std::mutex> lock(file_mutex);
  the_file.reset();
}

void ReopenLogFile() {
  if (const std::shared_ptr<LogFile> file = current_file()) tell(file->Reopen(switch_time_now()));
}

}  // namespace kvx_switch
