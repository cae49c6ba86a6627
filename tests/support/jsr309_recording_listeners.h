/// Listeners that keep what they are told, and let a test wait for it.
#pragma once

#include "kelvaro/jsr309/media_server_lost_listener.h"
#include "kelvaro/jsr309/rtp_timeout_listener.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace test_support {

/// Long enough for a busy machine; a test that passes never waits that long.
constexpr std::chrono::seconds kPatience{10};

/// What both kinds have in common. Threads: all operations from any thread.
template <typename Seen>
class EventRecorder {
 public:
  /// Runs inside the handler, after the event was recorded. Set it before the listener is registered.
  std::function<void()> during_event;

  void Record(Seen seen) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      seen_.push_back(seen);
      thread_ = std::this_thread::get_id();
    }
    changed_.notify_all();
    if (during_event) during_event();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++finished_;
    }
    changed_.notify_all();
  }

  std::vector<Seen> Events() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }

  /// Whether that many handlers have begun within the patience.
  bool WaitForEvents(size_t count, std::chrono::milliseconds patience = kPatience) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return seen_.size() >= count; });
  }

  /// Whether that many handlers have returned within the patience.
  bool WaitForFinished(size_t count, std::chrono::milliseconds patience = kPatience) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return finished_ >= count; });
  }

  /// The thread of the last call.
  std::thread::id Thread() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return thread_;
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Seen> seen_;  // guarded by mutex_
  size_t finished_ = 0;     // guarded by mutex_
  std::thread::id thread_;  // guarded by mutex_
};

class RecordingRtpTimeoutListener : public kelvaro::jsr309::RtpTimeoutListener,
                                    public EventRecorder<kelvaro::jsr309::RtpTimeoutEvent> {
 public:
  void EnableListener() override { enabled_ = true; }
  void DisableListener() override { enabled_ = false; }
  bool IsListenerEnabled() const override { return enabled_; }
  void OnEvent(const kelvaro::jsr309::RtpTimeoutEvent& event) override { Record(event); }

 private:
  std::atomic<bool> enabled_{true};
};

class RecordingLostListener : public kelvaro::jsr309::MediaServerLostListener,
                              public EventRecorder<kelvaro::jsr309::EventType> {
 public:
  void EnableListener() override { enabled_ = true; }
  void DisableListener() override { enabled_ = false; }
  bool IsListenerEnabled() const override { return enabled_; }
  void OnEvent(const kelvaro::jsr309::MediaServerLostEvent& event, bool& out_delete_listener) override {
    out_delete_listener = delete_listener;
    Record(event.GetType());
  }

  /// What the listener asks for. Set it before the listener is registered.
  bool delete_listener = false;

 private:
  std::atomic<bool> enabled_{true};
};

}  // namespace test_support
