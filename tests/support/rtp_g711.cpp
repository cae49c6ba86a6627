#include "support/rtp_g711.h"

#include <algorithm>

namespace test_support {
namespace {

constexpr int kMulawBias = 132;  // 33 in the 14-bit scale of G.711 table 2
constexpr int kMulawClip = 32635;

// The number of the highest set bit, counted from `lowest`: 0 when no bit above it is set.
int segment_of(int value, int lowest) {
  int segment = 0;
  for (int rest = value >> (lowest + 1); rest != 0; rest >>= 1) ++segment;
  return std::min(segment, 7);
}

}  // namespace

std::uint8_t encode_mulaw(std::int16_t sample) {
  const int sign = sample < 0 ? 0x80 : 0;
  const int magnitude =
      std::min(sample < 0 ? -static_cast<int>(sample) : static_cast<int>(sample), kMulawClip) + kMulawBias;
  const int segment = segment_of(magnitude, 7);
  const int step = (magnitude >> (segment + 3)) & 0x0f;
  return static_cast<std::uint8_t>(~(sign | (segment << 4) | step));
}

std::int16_t decode_mulaw(std::uint8_t code) {
  const int bits = ~code & 0xff;
  const int segment = (bits >> 4) & 7;
  const int magnitude = ((((bits & 0x0f) << 3) + kMulawBias) << segment) - kMulawBias;
  return static_cast<std::int16_t>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

std::uint8_t encode_alaw(std::int16_t sample) {
  // Positive codes carry the sign bit; the even bits of the whole are inverted (G.711 table 1a, note 2).
  const bool positive = sample >= 0;
  const int magnitude = positive ? sample : -static_cast<int>(sample) - 1;
  const int segment = segment_of(magnitude, 7);
  const int shift = segment == 0 ? 4 : segment + 3;
  const int step = (magnitude >> shift) & 0x0f;
  return static_cast<std::uint8_t>(((positive ? 0x80 : 0) | (segment << 4) | step) ^ 0x55);
}

std::int16_t decode_alaw(std::uint8_t code) {
  const int bits = code ^ 0x55;
  const int segment = (bits >> 4) & 7;
  int magnitude = ((bits & 0x0f) << 4) + 8;
  if (segment > 0) magnitude = (magnitude + 0x100) << (segment - 1);
  return static_cast<std::int16_t>((bits & 0x80) != 0 ? magnitude : -magnitude);
}

}  // namespace test_support
