#include "helm.h"

#include <utility>

namespace media_engine {
namespace {

// Most requests end within microseconds: sooner than a thread is put to sleep and woken.
constexpr int kLooksBeforeSleep = 200;

inline void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

}  // namespace

void Helm::Leave() {
  holder_.store(Holder::kNobody);
}

bool Helm::TakeBack() {
  Holder nobody = Holder::kNobody;
  return holder_.compare_exchange_strong(nobody, Holder::kWorker);
}

bool Helm::Return() {
  if (!TakeBack()) {
    wanted_.store(true);
    bool taken = false;
    for (int look = 0; !(taken = TakeBack()) && look < kLooksBeforeSleep; ++look) Pause();
    if (!taken) {
      std::unique_lock<std::mutex> lock(mutex_);
      given_back_.wait(lock, [this] { return TakeBack(); });
    }
    wanted_.store(false);
  }
  return std::exchange(helped_, false);
}

bool Helm::TryTake() {
  if (wanted_.load()) return false;
  Holder nobody = Holder::kNobody;
  return holder_.compare_exchange_strong(nobody, Holder::kHelper);
}

void Helm::GiveBack() {
  helped_ = true;
  holder_.store(Holder::kNobody);
  if (!wanted_.load()) return;
  // The worker has either seen the helm free or waits by now.
  { const std::lock_guard<std::mutex> lock(mutex_); }
  given_back_.notify_one();
}

}  // namespace media_engine
