#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kvx_switch {

/// A leg has a thread of its own, and most legs are short: to make a thread for each, with its stack and its share of
/// the heap, and to join it costs as much as what the leg does on it. This keeps threads whose leg is over for a moment
/// and gives the next leg the one that became idle last.
///
/// Any thread, Stop apart.
class LegThreads {
 public:
  /// So many may be idle, each that long.
  explicit LegThreads(size_t most_idle = 256, std::chrono::milliseconds patience = std::chrono::milliseconds(1000));
  ~LegThreads();
  LegThreads(const LegThreads&) = delete;
  LegThreads& operator=(const LegThreads&) = delete;

  /// Runs `work`, which throws nothing, on a thread that does nothing else meanwhile. Throws std::system_error when
  /// there is no thread to be had; `work` has not run then.
  void Run(std::function<void()> work);
  /// Waits for all work and joins all threads; Run may be called again afterwards. Not from work.
  void Stop();
  /// Threads that there are, at work or idle.
  size_t Count() const;

 private:
  /// Where an idle thread waits. Shared: who has just given it work may still be about to wake it when it ends.
  struct Seat {
    std::condition_variable called;
    std::function<void()> work;  // guarded by mutex_
  };

  void Serve(uint64_t number, const std::shared_ptr<Seat>& seat, std::function<void()> work);
  /// False when the thread is to end.
  bool Rest(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Seat>& seat);

  const size_t most_idle_;
  const std::chrono::milliseconds patience_;

  mutable std::mutex mutex_;
  std::condition_variable gone_;             // a thread is about to end
  std::vector<std::shared_ptr<Seat>> idle_;  // guarded by mutex_; who became idle last is at the end
  std::map<uint64_t, std::thread> threads_;  // guarded by mutex_; those that have not ended, by number
  std::vector<std::thread> ended_;           // guarded by mutex_; to be joined
  uint64_t last_number_ = 0;                 // guarded by mutex_
  bool stopping_ = false;                    // guarded by mutex_
};

}  // namespace kvx_switch
