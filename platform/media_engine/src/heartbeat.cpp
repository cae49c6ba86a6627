#include "heartbeat.h"

#include <pthread.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace media_engine {

HeartbeatWatch::HeartbeatWatch(milliseconds limit, milliseconds interval, std::size_t workers)
    : limit_(limit), interval_(interval), records_(workers) {}

HeartbeatWatch::Change HeartbeatWatch::Check(const std::vector<uint64_t>& beats, milliseconds elapsed) {
  const milliseconds counted = std::min(elapsed, 2 * interval_);
  bool lost = false;
  for (std::size_t i = 0; i < records_.size(); ++i) {
    Record& record = records_[i];
    record.silent = beats[i] == record.beats ? record.silent + counted : milliseconds{0};
    record.beats = beats[i];
    lost = lost || record.silent >= limit_;
  }
  if (lost == lost_) return Change::kNone;
  lost_ = lost;
  return lost ? Change::kLost : Change::kBack;
}

milliseconds HeartbeatMonitor::IntervalFor(milliseconds limit) {
  return std::max(limit / 4, milliseconds{1});
}

HeartbeatMonitor::HeartbeatMonitor(milliseconds limit, std::size_t workers, ReadBeats read_beats, Report report)
    : interval_(IntervalFor(limit)),
      watch_(limit, interval_, workers),
      read_beats_(std::move(read_beats)),
      report_(std::move(report)) {}

HeartbeatMonitor::~HeartbeatMonitor() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stop_.notify_all();
  if (thread_.joinable()) thread_.join();
}

Outcome HeartbeatMonitor::Start() {
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error& error) {
    return Outcome::Refused(std::string("no thread for the heartbeat: ") + error.what());
  }
  pthread_setname_np(thread_.native_handle(), "media-heartbeat");
  return Outcome::Done();
}

void HeartbeatMonitor::Run() {
  // Real time, whatever clock the packets go by: a thread is stuck in real time.
  auto last = std::chrono::steady_clock::now();
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_.wait_for(lock, interval_, [this] { return stopping_; })) {
    lock.unlock();
    const auto now = std::chrono::steady_clock::now();
    const auto change =
        watch_.Check(read_beats_(), std::chrono::duration_cast<milliseconds>(now - std::exchange(last, now)));
    if (change != HeartbeatWatch::Change::kNone) report_(change);
    lock.lock();
  }
}

}  // namespace media_engine
