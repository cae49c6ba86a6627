#include "console/log_feed.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace kvx_switch {
namespace {

/// A sink of the log knows no client: this one serves them all.
struct Feeds {
  std::mutex binding_mutex;         // held through adding and taking away; never while a line is delivered
  std::mutex mutex;                 // held through the delivery of a line, which waits for nobody
  std::vector<LogFeed*> following;  // guarded by mutex
};

Feeds& the_feeds() {
  static Feeds* const feeds = new Feeds;
  return *feeds;
}

std::string message(const switch_log_node_t& node) {
  const std::string text = switch_str_nil(node.data);
  std::string head = "Content-Type: log/data\nContent-Length: " + std::to_string(text.size()) +
                     "\nLog-Level: " + std::to_string(node.level) + "\nText-Channel: " + std::to_string(node.channel) +
                     "\nLog-File: " + node.file + "\nLog-Func: " + node.func +
                     "\nLog-Line: " + std::to_string(node.line);
  if (!zstr(node.userdata)) head += std::string("\nUser-Data: ") + node.userdata;
  return head + "\n\n" + text;
}

}  // namespace

void LogFeed::Follow(switch_log_level_t level) {
  level_ = level;
  if (following_) return;
  following_ = true;
  Feeds& feeds = the_feeds();
  const std::lock_guard<std::mutex> binding_lock(feeds.binding_mutex);
  bool first = false;
  {
    const std::lock_guard<std::mutex> lock(feeds.mutex);
    first = feeds.following.empty();
    feeds.following.push_back(this);
  }
  if (first) switch_log_bind_logger(&LogFeed::Receive, SWITCH_LOG_DEBUG, SWITCH_FALSE);
}

bool LogFeed::Stop() {
  if (!following_) return false;
  following_ = false;
  Feeds& feeds = the_feeds();
  const std::lock_guard<std::mutex> binding_lock(feeds.binding_mutex);
  bool last = false;
  {
    const std::lock_guard<std::mutex> lock(feeds.mutex);
    feeds.following.erase(std::remove(feeds.following.begin(), feeds.following.end(), this), feeds.following.end());
    last = feeds.following.empty();
  }
  if (last) switch_log_unbind_logger(&LogFeed::Receive);
  return true;
}

switch_status_t LogFeed::Receive(const switch_log_node_t* node, switch_log_level_t level) {
  Feeds& feeds = the_feeds();
  const std::lock_guard<std::mutex> lock(feeds.mutex);
  std::string ready;
  for (LogFeed* feed : feeds.following) {
    if (level > feed->level_) continue;
    if (ready.empty()) ready = message(*node);
    feed->outbox_.Put(ready);
  }
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace kvx_switch
