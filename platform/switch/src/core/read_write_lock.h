#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace kvx_switch {

/// A lock of many readers or one writer that any thread may give back, not only the one that took it: a leg found on
/// one thread is often done with on another, which the standard library's shared mutex does not allow. Readers come
/// before a waiting writer, so that a reader may take a second lock.
class ReadWriteLock {
 public:
  ReadWriteLock() = default;
  ReadWriteLock(const ReadWriteLock&) = delete;
  ReadWriteLock& operator=(const ReadWriteLock&) = delete;

  void LockRead();
  bool TryLockRead();
  void LockWrite();
  bool TryLockWrite();
  /// False when readers are still there after `patience`.
  bool TryLockWriteFor(std::chrono::steady_clock::duration patience);
  /// Runs `change` while nobody has the lock; who comes meanwhile waits instead of being turned away. Short, and
  /// without a look at this lock. False, and nothing done, when somebody still has it after `patience`.
  bool RunUnlocked(std::chrono::steady_clock::duration patience, const std::function<void()>& change);
  /// Gives back the writer's lock, else one of the readers'. False when nothing is locked.
  bool Unlock();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int readers_ = 0;      // guarded by mutex_
  bool writer_ = false;  // guarded by mutex_
};

}  // namespace kvx_switch
