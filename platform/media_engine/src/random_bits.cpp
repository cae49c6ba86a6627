#include "random_bits.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <random>
#include <utility>

namespace media_engine {

uint32_t RandomBits() {
  // An endpoint draws half a dozen, and a system call gives many as fast as one.
  thread_local std::array<uint32_t, 32> drawn;
  thread_local std::size_t left = 0;
  if (left == 0) {
    if (getrandom(drawn.data(), sizeof drawn, 0) != static_cast<ssize_t>(sizeof drawn)) return std::random_device{}();
    left = drawn.size();
  }
  return std::exchange(drawn[--left], 0);
}

bool FillRandomly(uint8_t* octets, std::size_t length) {
  std::size_t filled = 0;
  while (filled < length) {
    const ssize_t got = getrandom(octets + filled, length - filled, 0);
    if (got > 0) {
      filled += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace media_engine
