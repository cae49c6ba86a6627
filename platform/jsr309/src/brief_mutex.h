/// A mutex that is held for a few instructions at a time, by many threads.
///
/// Who finds it taken looks again for a moment before going to sleep: sleeping and being woken takes much longer than
/// the other is going to hold it, and while one sleeps the next ones come and have to sleep too.
#pragma once

#include <mutex>

namespace kelvaro::jsr309 {

class BriefMutex {
 public:
  void lock() {
    for (int look = 0; look < kLooksBeforeSleep; ++look) {
      if (mutex_.try_lock()) return;
      Pause();
    }
    mutex_.lock();
  }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  static constexpr int kLooksBeforeSleep = 100;  // a few microseconds

  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  std::mutex mutex_;
};

}  // namespace kelvaro::jsr309
