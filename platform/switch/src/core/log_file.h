#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include <switch.h>

namespace kvx_switch {

/// logfile.conf, checked.
struct LogFileSettings {
  std::string path;              ///< absolute; empty: no file
  uint64_t rollover = 0;         ///< bytes after which the file is put aside; 0: never
  unsigned maximum_rotate = 10;  ///< files put aside, PATH.1 being the youngest
  bool rotate_on_hup = false;    ///< a reopening puts the file aside too
  switch_log_level_t level = SWITCH_LOG_DEBUG;
};

/// A log on a disk that fills up, in a directory that is not there, or rotated by somebody else must neither lose a
/// line that could have been written nor stop the switch. This writes whole lines; when that fails it says so once,
/// tries again no more than once a second, and says how many lines are missing once it can. Rotation renames and opens
/// anew between two lines. Any thread.
class LogFile {
 public:
  explicit LogFile(LogFileSettings settings);
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Appends a line, which ends with a line end. `now` in microseconds, as switch_time_now. What the operator is to be
  /// told, at most one line; mostly "".
  std::string Write(const std::string& line, switch_time_t now);
  /// After somebody has moved the file away: further lines go to a new one of the same name. Returns as Write does.
  std::string Reopen(switch_time_t now);

 private:
  std::string WriteLocked(const std::string& line, switch_time_t now);
  bool OpenLocked();
  void CloseLocked();
  std::string RotateLocked();
  std::string FailLocked(const char* what, int error, switch_time_t now);
  std::string RecoverLocked();

  const LogFileSettings settings_;
  std::mutex mutex_;
  int file_ = -1;                 // guarded by mutex_
  uint64_t size_ = 0;             // guarded by mutex_
  bool failing_ = false;          // guarded by mutex_
  bool rotation_failed_ = false;  // guarded by mutex_
  switch_time_t next_try_ = 0;    // guarded by mutex_
  uint64_t missing_ = 0;          // guarded by mutex_
};

/// Reads logfile.conf; without one there is no file. False and `error`, a line "file:line: what" for each mistake.
bool ReadLogFileSettings(LogFileSettings& settings, std::string& error);

/// Adds the file to the log's sinks; nothing when `settings` names none. A file that cannot be written is told of in
/// the log.
void StartLogFile(const LogFileSettings& settings);
/// Takes it away; after the log has stopped.
void StopLogFile();
/// What SIGHUP asks for; nothing when there is no file. Not from inside a sink.
void ReopenLogFile();

}  // namespace kvx_switch
