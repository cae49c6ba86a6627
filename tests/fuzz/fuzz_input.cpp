#include "fuzz_input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

Bytes Input::Packet() {
  const std::size_t high = Octet(), low = Octet();
  const std::size_t length = std::min(high << 8 | low, size_ - at_);
  const Bytes packet(data_ + at_, data_ + at_ + length);
  at_ += length;
  return packet;
}

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace fuzz
