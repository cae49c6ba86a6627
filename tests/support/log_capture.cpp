#include "support/log_capture.h"

#include "build_paths.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>

namespace test_support {

namespace {

constexpr char kMarkerFunction[] = "log_capture_marker";
constexpr std::chrono::seconds kLongest(10);

struct Store {
  std::mutex mutex;
  std::condition_variable arrived;
  std::vector<LogLine> lines;  // guarded by mutex
  std::string last_marker;     // guarded by mutex
  unsigned long markers = 0;   // guarded by mutex
};

Store& store() {
  static Store instance;
  return instance;
}

std::atomic<bool> in_use{false};

switch_status_t receive(const switch_log_node_t* node, switch_log_level_t) {
  std::lock_guard<std::mutex> guard(store().mutex);
  if (std::string(node->func) == kMarkerFunction) {
    store().last_marker = node->content;
    store().arrived.notify_all();
  } else {
    store().lines.push_back({node->level, node->content, std::filesystem::path(node->file).filename(), node->func,
                             node->line, node->channel});
  }
  return SWITCH_STATUS_SUCCESS;
}

/// A marker goes through the same queue as everything before it.
std::vector<LogLine> synchronised_lines() {
  std::unique_lock<std::mutex> lock(store().mutex);
  const std::string marker = "marker " + std::to_string(++store().markers) + "\n";
  lock.unlock();
  switch_log_printf(SWITCH_CHANNEL_ID_LOG, __FILE__, kMarkerFunction, __LINE__, nullptr, SWITCH_LOG_ALERT, "%s",
                    marker.c_str());
  lock.lock();
  if (!store().arrived.wait_for(lock, kLongest, [&] { return store().last_marker == marker; })) {
    throw std::runtime_error("the switch's log did not deliver within 10 s");
  }
  return store().lines;
}

const std::filesystem::path& module_directory() {
  static const std::filesystem::path path =
      std::filesystem::path(KVX_SOURCE_DIR) / "src/mod/media_servers/mod_kelvaro_media_server";
  return path;
}

template <typename Wanted>
std::vector<LogLine> select(std::vector<LogLine> lines, Wanted wanted) {
  lines.erase(std::remove_if(lines.begin(), lines.end(), [&](const LogLine& line) { return !wanted(line); }),
              lines.end());
  return lines;
}

}  // namespace

bool operator==(const LogLine& left, const LogLine& right) {
  return left.level == right.level && left.text == right.text;
}

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << switch_log_level2str(line.level) << " \"" << line.text << "\" (" << line.file << ":" << line.line << ")";
}

LogCapture::LogCapture() {
  if (in_use.exchange(true)) throw std::logic_error("one log capture at a time");
  switch_log_bind_logger(receive, SWITCH_LOG_DEBUG10, SWITCH_FALSE);
  synchronised_lines();  // what was logged before may still be on its way
  Clear();
}

LogCapture::~LogCapture() {
  switch_log_unbind_logger(receive);
  in_use = false;
}

std::vector<LogLine> LogCapture::Lines() const {
  return synchronised_lines();
}

std::vector<LogLine> LogCapture::LinesOf(const std::vector<std::string>& files) const {
  return select(Lines(),
                [&](const LogLine& line) { return std::find(files.begin(), files.end(), line.file) != files.end(); });
}

std::vector<LogLine> LogCapture::ModuleLines() const {
  return select(Lines(), [](const LogLine& line) {
    const std::filesystem::path file(line.file);
    return line.function != "Log" && file.extension() == ".cpp" && std::filesystem::exists(module_directory() / file);
  });
}

std::size_t LogCapture::Count(const LogLine& line) const {
  const std::vector<LogLine> lines = Lines();
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

void LogCapture::Clear() {
  synchronised_lines();
  std::lock_guard<std::mutex> guard(store().mutex);
  store().lines.clear();
}

}  // namespace test_support
