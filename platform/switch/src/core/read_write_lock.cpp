#include "core/read_write_lock.h"

namespace kvx_switch {

void ReadWriteLock::LockRead() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !writer_; });
  ++readers_;
}

bool ReadWriteLock::TryLockRead() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (writer_) return false;
  ++readers_;
  return true;
}

void ReadWriteLock::LockWrite() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !writer_ && readers_ == 0; });
  writer_ = true;
}

bool ReadWriteLock::TryLockWrite() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (writer_ || readers_ > 0) return false;
  writer_ = true;
  return true;
}

bool ReadWriteLock::TryLockWriteFor(std::chrono::steady_clock::duration patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!changed_.wait_for(lock, patience, [this] { return !writer_ && readers_ == 0; })) return false;
  writer_ = true;
  return true;
}

bool ReadWriteLock::RunUnlocked(std::chrono::steady_clock::duration patience, const std::function<void()>& change) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!changed_.wait_for(lock, patience, [this] { return !writer_ && readers_ == 0; })) return false;
  change();
  return true;
}

bool ReadWriteLock::Unlock() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (writer_) {
    writer_ = false;
  } else if (readers_ > 0) {
    --readers_;
  } else {
    return false;
  }
  // Under the lock: the waiter may destroy this object as soon as it has it.
  changed_.notify_all();
  return true;
}

}  // namespace kvx_switch
