/// A read-write lock for what every thread looks at all the time and hardly anybody changes.
///
/// With an ordinary one each reader counts itself in and out in the same place, and cores that do that wait for each
/// other's cache line, although nobody ever waits for the lock. This one is many: who reads takes that of its thread,
/// who writes takes all of them, one after the other, which is dear.
///
/// Threads: all operations from any thread; unlock_shared on the thread of lock_shared. Not recursive: while one waits
/// to write, a reader must wait for no other reader.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <shared_mutex>

namespace kvx_switch {

/// Fits std::lock_guard and std::shared_lock.
class ManyReadersLock {
 public:
  void lock() {
    for (Part& part : parts_) part.mutex.lock();
  }
  void unlock() {
    for (Part& part : parts_) part.mutex.unlock();
  }
  void lock_shared() { OwnPart().mutex.lock_shared(); }
  void unlock_shared() { OwnPart().mutex.unlock_shared(); }

 private:
  /// On a cache line of its own.
  struct alignas(64) Part {
    std::shared_mutex mutex;
  };
  static constexpr std::size_t kParts = 8;

  Part& OwnPart() { return parts_[ThreadNumber() % kParts]; }
  static std::size_t ThreadNumber() {
    static std::atomic<std::size_t> threads{0};
    thread_local const std::size_t own = threads++;
    return own;
  }

  std::array<Part, kParts> parts_;
};

}  // namespace kvx_switch
