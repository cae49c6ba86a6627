#pragma once

namespace kvx_media_server {

/// Holds a lock that is held for a few instructions at a time. Who finds it taken looks again for a moment before going
/// to sleep: sleeping and being woken takes much longer than the other is going to hold it, and while one sleeps the
/// next ones come and have to sleep too, so that many cores would do less than one.
///
/// Each look takes the lock's cache line away from who holds the lock and needs the line to give it back. So the looks
/// come at growing distances.
template <typename Mutex>
class BriefGuard {
 public:
  explicit BriefGuard(Mutex& mutex) : mutex_(mutex) {
    if (mutex_.try_lock()) return;
    for (int distance = kFirstDistance; distance <= kLastDistance; distance *= 2) {
      pause(distance);
      if (mutex_.try_lock()) return;
    }
    mutex_.lock();
  }
  ~BriefGuard() { mutex_.unlock(); }
  BriefGuard(const BriefGuard&) = delete;
  BriefGuard& operator=(const BriefGuard&) = delete;

 private:
  static constexpr int kFirstDistance = 4, kLastDistance = 64;  // pauses of the processor; a few microseconds in all

  static void pause(int times) {
    for (int i = 0; i < times; ++i) {
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#elif defined(__aarch64__)
      asm volatile("yield");
#endif
    }
  }

  Mutex& mutex_;
};

}  // namespace kvx_media_server
