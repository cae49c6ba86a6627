/// Numbers as packets carry them: most significant octet first.
#pragma once

#include <cstdint>

namespace media_engine {

inline uint16_t Read16(const uint8_t* from) {
  return static_cast<uint16_t>(from[0] << 8 | from[1]);
}

inline uint32_t Read32(const uint8_t* from) {
  return static_cast<uint32_t>(Read16(from)) << 16 | Read16(from + 2);
}

inline uint64_t Read64(const uint8_t* from) {
  return static_cast<uint64_t>(Read32(from)) << 32 | Read32(from + 4);
}

inline void Write16(uint16_t value, uint8_t* to) {
  to[0] = static_cast<uint8_t>(value >> 8);
  to[1] = static_cast<uint8_t>(value);
}

inline void Write32(uint32_t value, uint8_t* to) {
  Write16(static_cast<uint16_t>(value >> 16), to);
  Write16(static_cast<uint16_t>(value), to + 2);
}

inline void Write64(uint64_t value, uint8_t* to) {
  Write32(static_cast<uint32_t>(value >> 32), to);
  Write32(static_cast<uint32_t>(value), to + 4);
}

}  // namespace media_engine
