/// A mutex that is held for a few instructions at a time, by many threads.
///
/// Who finds it taken looks again for a moment before going to sleep: sleeping and being woken takes much longer than
/// the other is going to hold it, and while one sleeps the next ones come and have to sleep too. Each look takes the
/// lock's cache line away from who holds the lock and needs the line to give it back, so the looks come at growing
/// distances.
#pragma once

#include <mutex>

namespace kelvaro::jsr309 {

class BriefMutex {
 public:
  void lock() {
    if (mutex_.try_lock()) return;
    for (int distance = kFirstDistance; distance <= kLastDistance; distance *= 2) {
      Pause(distance);
      if (mutex_.try_lock()) return;
    }
    mutex_.lock();
  }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  static constexpr int kFirstDistance = 4, kLastDistance = 64;  // pauses of the processor; a few microseconds in all

  static void Pause(int times) {
    for (int i = 0; i < times; ++i) {
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#elif defined(__aarch64__)
      asm volatile("yield");
#endif
    }
  }

  std::mutex mutex_;
};

}  // namespace kelvaro::jsr309
