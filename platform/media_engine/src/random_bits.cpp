#include "random_bits.h"

#include <sys/random.h>

#include <random>

namespace media_engine {

uint32_t RandomBits() {
  uint32_t bits = 0;
  if (getrandom(&bits, sizeof bits, 0) == static_cast<ssize_t>(sizeof bits)) return bits;
  return std::random_device{}();
}

}  // namespace media_engine
