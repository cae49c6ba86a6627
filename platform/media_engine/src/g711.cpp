#include "g711.h"

#include <array>
#include <cstdlib>

namespace media_engine {

int DecodeMuLaw(uint8_t code) {
  // All bits are inverted on the line.
  const int bits = ~code & 0xff;
  const int segment = (bits >> 4) & 7;
  const int magnitude = ((((bits & 0x0f) << 3) + 0x84) << segment) - 0x84;
  return (bits & 0x80) != 0 ? -magnitude : magnitude;
}

int DecodeALaw(uint8_t code) {
  // Every other bit is inverted on the line, the sign bit included.
  const int bits = code ^ 0x55;
  const int segment = (bits >> 4) & 7;
  int magnitude = ((bits & 0x0f) << 4) + 8;
  if (segment > 0) magnitude = (magnitude + 0x100) << (segment - 1);
  return (bits & 0x80) != 0 ? magnitude : -magnitude;
}

namespace {

using Table = std::array<uint8_t, 256>;

/// For each code of one law the code of the other with the same sign bit that sounds nearest; of two as near, the
/// quieter one.
Table MakeTable(int (*decode_from)(uint8_t), int (*decode_to)(uint8_t)) {
  Table table{};
  for (int from = 0; from < 256; ++from) {
    const int wanted = decode_from(static_cast<uint8_t>(from));
    int nearest = -1;
    for (int to = 0; to < 256; ++to) {
      if (((from ^ to) & 0x80) != 0) continue;  // a set top bit means positive in both laws
      if (nearest >= 0) {
        const int distance = std::abs(decode_to(static_cast<uint8_t>(to)) - wanted);
        const int best = std::abs(decode_to(static_cast<uint8_t>(nearest)) - wanted);
        const bool quieter =
            std::abs(decode_to(static_cast<uint8_t>(to))) < std::abs(decode_to(static_cast<uint8_t>(nearest)));
        if (distance > best || (distance == best && !quieter)) continue;
      }
      nearest = to;
    }
    table[static_cast<std::size_t>(from)] = static_cast<uint8_t>(nearest);
  }
  return table;
}

const Table kMuLawToALaw = MakeTable(DecodeMuLaw, DecodeALaw);
const Table kALawToMuLaw = MakeTable(DecodeALaw, DecodeMuLaw);

void Convert(const Table& table, uint8_t* samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) samples[i] = table[samples[i]];
}

}  // namespace

void ConvertMuLawToALaw(uint8_t* samples, std::size_t count) {
  Convert(kMuLawToALaw, samples, count);
}
void ConvertALawToMuLaw(uint8_t* samples, std::size_t count) {
  Convert(kALawToMuLaw, samples, count);
}

}  // namespace media_engine
