#include "core/log.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include "core/guard.h"
#include "core/log_journal.h"
#include "core/receiver.h"

namespace kvx_switch {
namespace {

/// Lines that wait for the sinks; more than that are counted instead of kept, so that a stuck sink costs no memory.
constexpr size_t kMostQueuedLines = 65536;

// A busy switch writes thousands of lines a second, and to wake a thread for each would cost more than the line. So the
// first line after a pause wakes the log's thread, which then rests so long after each batch before it looks again. Who
// is in a hurry wakes it: an error, a flush, and a batch that has grown long.
constexpr std::chrono::milliseconds kRest{5};
constexpr size_t kLongBatch = 1024;

struct Line {
  switch_log_node_t node{};
  std::string data;
  size_t content_at = 0;  ///< where the caller's own text begins in `data`
  std::string userdata;
};

struct Sink {
  switch_log_function_t function;
  switch_log_level_t level;
  Receiver receiver;
};

std::string formatted(const char* fmt, va_list ap) {
  char small[512];
  va_list again;
  va_copy(again, ap);
  const int length = vsnprintf(small, sizeof(small), fmt, again);
  va_end(again);
  if (length < 0) return fmt;
  if (static_cast<size_t>(length) < sizeof(small)) return std::string(small, static_cast<size_t>(length));
  std::string text(static_cast<size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, fmt, ap);
  return text;
}

const char* file_name(const char* path) {
  const char* slash = path ? strrchr(path, '/') : nullptr;
  return slash ? slash + 1 : switch_str_nil(path);
}

std::string prefix(const switch_log_node_t& node, const std::string& userdata) {
  switch_time_exp_t parts;
  switch_time_exp_lt(&parts, node.timestamp);
  char when[40];
  switch_size_t length = 0;
  switch_strftime(when, &length, sizeof(when), "%Y-%m-%d %H:%M:%S", &parts);
  char rest[160];
  snprintf(rest, sizeof(rest), ".%06d [%s] %s:%u ", parts.tm_usec, switch_log_level2str(node.level), node.file,
           node.line);
  return std::string(when, length) + rest + (userdata.empty() ? "" : userdata + " ");
}

class Log {
 public:
  void Start();
  void Stop();
  void Flush();
  void Write(Line line);
  void Bind(switch_log_function_t function, switch_log_level_t level);
  int RemoveIf(const std::function<bool(switch_log_function_t)>& is_doomed);

  std::atomic<int> most_verbose_level{SWITCH_LOG_DEBUG};
  std::atomic<int> debug_level{0};
  std::atomic<int> console_level{SWITCH_LOG_DEBUG};

 private:
  void Run();
  /// Hands over what waits until nothing does; `lock` on mutex_ is given back meanwhile.
  void DeliverAll(std::unique_lock<std::mutex>& lock);
  /// The first lines that wait, kLongBatch at most. Guard: mutex_ held by the caller.
  std::deque<Line> TakeBatch();
  void Deliver(Line& line);

  std::mutex start_mutex_;
  std::thread thread_;  // guarded by start_mutex_

  mutable std::mutex mutex_;
  std::condition_variable queued_;
  std::condition_variable delivered_;
  bool running_ = false;        // guarded by mutex_
  bool stopping_ = false;       // guarded by mutex_
  bool asleep_ = false;         // guarded by mutex_; the thread waits for the first line
  bool hurry_ = false;          // guarded by mutex_; it is not to rest
  std::deque<Line> lines_;      // guarded by mutex_
  uint64_t lines_in_ = 0;       // guarded by mutex_
  uint64_t lines_out_ = 0;      // guarded by mutex_
  uint64_t lines_dropped_ = 0;  // guarded by mutex_
  int64_t sequence_ = 0;        // guarded by mutex_

  std::mutex sinks_mutex_;
  std::vector<std::shared_ptr<Sink>> sinks_;  // guarded by sinks_mutex_
};

/// Lives as long as the process: lines may come from anywhere at any time.
Log& the_log() {
  static Log* const log = new Log;
  return *log;
}

void Log::Start() {
  std::lock_guard<std::mutex> start_lock(start_mutex_);
  if (thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    running_ = true;
    stopping_ = false;
  }
  thread_ = std::thread([this] { Run(); });
}

void Log::Stop() {
  std::lock_guard<std::mutex> start_lock(start_mutex_);
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  queued_.notify_all();
  thread_.join();
  RemoveIf([](switch_log_function_t) { return true; });
  std::lock_guard<std::mutex> lock(mutex_);
  sequence_ = 0;
}

void Log::Flush() {
  std::unique_lock<std::mutex> lock(mutex_);
  const uint64_t last = lines_in_;
  hurry_ = true;
  queued_.notify_all();
  delivered_.wait(lock, [&] { return !running_ || lines_out_ >= last; });
}

void Log::Write(Line line) {
  bool wake = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!running_) {
      fputs(line.data.c_str(), stderr);
      return;
    }
    if (lines_.size() >= kMostQueuedLines) {
      ++lines_dropped_;
      return;
    }
    const bool urgent = line.node.level <= SWITCH_LOG_ERROR || lines_.size() + 1 == kLongBatch;
    hurry_ = hurry_ || urgent;
    wake = asleep_ || urgent;
    line.node.sequence = ++sequence_;
    lines_.push_back(std::move(line));
    ++lines_in_;
  }
  if (wake) queued_.notify_one();
}

void Log::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    asleep_ = true;
    queued_.wait(lock, [this] { return stopping_ || !lines_.empty(); });
    asleep_ = false;
    if (lines_.empty()) break;
    DeliverAll(lock);
  }
  running_ = false;
  delivered_.notify_all();
}

void Log::DeliverAll(std::unique_lock<std::mutex>& lock) {
  while (!lines_.empty()) {
    std::deque<Line> batch = TakeBatch();
    const uint64_t dropped = std::exchange(lines_dropped_, 0);
    hurry_ = false;
    lock.unlock();
    // Now, while there is room for it: behind the lines that were kept.
    if (dropped) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%llu log lines were dropped: the sinks are too slow\n",
                        static_cast<unsigned long long>(dropped));
    }
    for (Line& line : batch) Deliver(line);
    fflush(stdout);
    lock.lock();
    lines_out_ += batch.size();
    delivered_.notify_all();
    if (lines_.size() >= kLongBatch) continue;
    queued_.wait_for(lock, kRest, [this] { return stopping_ || hurry_; });
  }
}

std::deque<Line> Log::TakeBatch() {
  std::deque<Line> batch;
  while (!lines_.empty() && batch.size() < kLongBatch) {
    batch.push_back(std::move(lines_.front()));
    lines_.pop_front();
  }
  return batch;
}

void Log::Deliver(Line& line) {
  line.node.data = line.data.data();
  line.node.content = line.data.data() + line.content_at;
  line.node.userdata = line.userdata.empty() ? nullptr : line.userdata.data();
  std::vector<std::shared_ptr<Sink>> sinks;
  {
    std::lock_guard<std::mutex> lock(sinks_mutex_);
    sinks = sinks_;
  }
  for (const auto& sink : sinks) {
    if (line.node.level > sink->level) continue;
    const Receiver::Call call(sink->receiver);
    if (!call) continue;
    std::string what;
    if (!RunGuarded([&] { sink->function(&line.node, line.node.level); }, what)) {
      fprintf(stderr, "An exception left a log sink: %s\n", what.c_str());
    }
  }
}

void Log::Bind(switch_log_function_t function, switch_log_level_t level) {
  auto sink = std::make_shared<Sink>();
  sink->function = function;
  sink->level = level;
  std::lock_guard<std::mutex> lock(sinks_mutex_);
  sinks_.push_back(std::move(sink));
}

int Log::RemoveIf(const std::function<bool(switch_log_function_t)>& is_doomed) {
  std::vector<std::shared_ptr<Sink>> removed;
  {
    std::lock_guard<std::mutex> lock(sinks_mutex_);
    const auto kept = std::stable_partition(sinks_.begin(), sinks_.end(),
                                            [&](const auto& sink) { return !is_doomed(sink->function); });
    removed.assign(kept, sinks_.end());
    sinks_.erase(kept, sinks_.end());
  }
  for (const auto& sink : removed) sink->receiver.Remove();
  return static_cast<int>(removed.size());
}

}  // namespace

void StartLog() {
  the_log().Start();
}
void StopLog() {
  the_log().Stop();
}
void FlushLog() {
  the_log().Flush();
}

void SetLogLevel(switch_log_level_t level) {
  the_log().most_verbose_level = level;
}
switch_log_level_t LogLevel() {
  return static_cast<switch_log_level_t>(the_log().most_verbose_level.load());
}

void SetDebugLevel(int level) {
  the_log().debug_level = std::clamp(level, 0, 10);
}
int DebugLevel() {
  return the_log().debug_level;
}

void SetConsoleLogLevel(switch_log_level_t level) {
  the_log().console_level = level;
}

switch_status_t LogToConsole(const switch_log_node_t* node, switch_log_level_t level) {
  static const char* const kColours[] = {"",         "\033[1;31m", "\033[1;31m", "\033[31m",
                                         "\033[35m", "\033[36m",   "\033[32m",   "\033[33m"};
  static const bool kTerminal = isatty(fileno(stdout)) != 0;
  static const bool kJournal = IsJournal(fileno(stdout), getenv("JOURNAL_STREAM"));
  if (level > the_log().console_level) return SWITCH_STATUS_SUCCESS;
  if (kJournal) {
    fputs(JournalText(*node).c_str(), stdout);
    return SWITCH_STATUS_SUCCESS;
  }
  const bool coloured = kTerminal && level > SWITCH_LOG_CONSOLE && level <= SWITCH_LOG_DEBUG;
  const size_t length = strlen(node->data);
  const bool ended = length > 0 && node->data[length - 1] == '\n';
  std::string text;
  if (coloured) text += kColours[level];
  text.append(node->data, ended ? length - 1 : length);
  if (coloured) text += "\033[0m";
  text += '\n';
  fwrite(text.data(), 1, text.size(), stdout);
  if (level <= SWITCH_LOG_ERROR) fflush(stdout);  // the rest of its batch may be long
  return SWITCH_STATUS_SUCCESS;
}

int RemoveLoggersIf(const std::function<bool(void*)>& is_doomed) {
  return the_log().RemoveIf(
      [&](switch_log_function_t function) { return is_doomed(reinterpret_cast<void*>(function)); });
}

}  // namespace kvx_switch

void switch_log_printf(switch_text_channel_t channel, const char* file, const char* func, int line,
                       const char* userdata, switch_log_level_t level, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  switch_log_vprintf(channel, file, func, line, userdata, level, fmt, ap);
  va_end(ap);
}

void switch_log_vprintf(switch_text_channel_t channel, const char* file, const char* func, int line,
                        const char* userdata, switch_log_level_t level, const char* fmt, va_list ap) {
  using namespace kvx_switch;
  Log& log = the_log();
  if (level > SWITCH_LOG_DEBUG) {
    if (level < SWITCH_LOG_DEBUG1 || level - 100 > log.debug_level) return;
    level = SWITCH_LOG_DEBUG;
  }
  if (level < 0 || level > log.most_verbose_level) return;

  Line record;
  switch_log_node_t& node = record.node;
  switch_copy_string(node.file, file_name(file), sizeof(node.file));
  switch_copy_string(node.func, func, sizeof(node.func));
  node.line = static_cast<uint32_t>(line);
  node.level = level;
  node.slevel = level;
  node.channel = channel;
  node.timestamp = switch_time_now();
  if (userdata && channel == SWITCH_CHANNEL_ID_SESSION) {
    // The macro hands the session over in disguise.
    userdata = switch_core_session_get_uuid(reinterpret_cast<switch_core_session_t*>(const_cast<char*>(userdata)));
  }
  record.userdata = switch_str_nil(userdata);
  if (channel != SWITCH_CHANNEL_ID_LOG_CLEAN) record.data = prefix(node, record.userdata);
  record.content_at = record.data.size();
  record.data += formatted(fmt, ap);
  log.Write(std::move(record));
}

switch_status_t switch_log_bind_logger(switch_log_function_t function, switch_log_level_t level, switch_bool_t) {
  if (!function) return SWITCH_STATUS_FALSE;
  kvx_switch::the_log().Bind(function, level);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_log_unbind_logger(switch_log_function_t function) {
  const int removed = kvx_switch::the_log().RemoveIf([&](switch_log_function_t bound) { return bound == function; });
  return removed ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_NOTFOUND;
}
