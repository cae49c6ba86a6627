#pragma once

namespace kvx_media_server {

/// Holds a lock that is held for a few instructions at a time. Who finds it taken looks again for a moment before going
/// to sleep: sleeping and being woken takes much longer than the other is going to hold it, and while one sleeps the
/// next ones come and have to sleep too, so that many cores would do less than one.
template <typename Mutex>
class BriefGuard {
 public:
  explicit BriefGuard(Mutex& mutex) : mutex_(mutex) {
    for (int look = 0; look < kLooksBeforeSleep; ++look) {
      if (mutex_.try_lock()) return;
      pause();
    }
    mutex_.lock();
  }
  ~BriefGuard() { mutex_.unlock(); }
  BriefGuard(const BriefGuard&) = delete;
  BriefGuard& operator=(const BriefGuard&) = delete;

 private:
  static constexpr int kLooksBeforeSleep = 100;  // a few microseconds

  static void pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  Mutex& mutex_;
};

}  // namespace kvx_media_server
