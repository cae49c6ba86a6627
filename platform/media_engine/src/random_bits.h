/// Random numbers that a far end cannot guess, as RFC 3550 wants them for SSRCs and first sequence numbers.
#pragma once

#include <cstdint>

namespace media_engine {

uint32_t RandomBits();

}  // namespace media_engine
