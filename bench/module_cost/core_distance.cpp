#include "core_distance.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>

#include "../support/system.h"

namespace bench {
namespace {

constexpr int64_t kPatienceNs = 50000000;
constexpr int kWays = 200;  // of the line, in one batch
constexpr int kLooksBeforeYield = 2000;

/// Waits until the number is odd, or even.
void Await(const std::atomic<unsigned>& number, unsigned parity) {
  for (int looks = 0; number.load(std::memory_order_acquire) % 2 != parity; ++looks) {
    if (looks % kLooksBeforeYield == kLooksBeforeYield - 1) std::this_thread::yield();
  }
}

/// The one side: makes the number odd and waits for the other to make it even. The least time for a way.
double Serve(std::atomic<unsigned>& number) {
  int64_t least = std::numeric_limits<int64_t>::max();
  const int64_t end = MonotonicNs() + kPatienceNs;
  for (int64_t now = MonotonicNs(); now < end;) {
    for (int way = 0; way < kWays; way += 2) {
      ++number;
      Await(number, 0);
    }
    const int64_t before = now;
    now = MonotonicNs();
    least = std::min(least, now - before);
  }
  return static_cast<double>(least) / kWays;
}

}  // namespace

double CoreDistanceNs() {
  if (CoreCount() < 2) return 0;
  alignas(64) std::atomic<unsigned> number{0};
  alignas(64) std::atomic<bool> enough{false};
  double distance = 0;
  std::thread other([&] {
    PinTo(1);
    while (!enough) {
      Await(number, 1);
      ++number;
    }
  });
  std::thread one([&] {
    PinTo(0);
    distance = Serve(number);
    enough = true;
    ++number;
  });
  one.join();
  other.join();
  return distance;
}

}  // namespace bench
