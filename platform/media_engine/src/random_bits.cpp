#include "random_bits.h"

#include <sys/random.h>

#include <cerrno>
#include <random>

namespace media_engine {

uint32_t RandomBits() {
  uint32_t bits = 0;
  if (getrandom(&bits, sizeof bits, 0) == static_cast<ssize_t>(sizeof bits)) return bits;
  return std::random_device{}();
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
