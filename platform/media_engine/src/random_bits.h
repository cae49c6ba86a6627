/// Random numbers that a far end cannot guess, as RFC 3550 wants them for SSRCs and first sequence numbers, and as keys
/// need them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace media_engine {

uint32_t RandomBits();

/// False when the system has none to give; what was filled in then is not to be used.
bool FillRandomly(uint8_t* octets, std::size_t length);

}  // namespace media_engine
