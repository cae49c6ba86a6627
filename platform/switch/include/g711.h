#pragma once

/// ITU-T G.711: one 16-bit linear sample to an octet of A-law or mu-law, and back. Octets are as they go on the wire
/// (A-law with its even bits inverted, mu-law complemented). Linear samples outside 16 bits are clipped.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The segment of a magnitude: how often it can be halved before it is below `first`.
static inline int g711_segment(int magnitude, int first) {
  int segment = 0;
  while (magnitude >= first) {
    magnitude >>= 1;
    ++segment;
  }
  return segment;
}

static inline int g711_clip(int linear) {
  if (linear > 32767) return 32767;
  return linear < -32768 ? -32768 : linear;
}

static inline uint8_t linear_to_ulaw(int linear) {
  // Table 2 in units of a quarter step: 14-bit magnitudes, shifted by 33 so that every segment starts at a power of 2.
  const int negative = linear < 0;
  int magnitude, segment;
  linear = g711_clip(linear);
  magnitude = ((negative ? ~linear : linear) >> 2) + 33;
  if (magnitude > 0x1FFF) magnitude = 0x1FFF;
  segment = g711_segment(magnitude, 64);
  return (uint8_t)((negative ? 0x7F : 0xFF) ^ (segment << 4 | ((magnitude >> (segment + 1)) & 0x0F)));
}

static inline int16_t ulaw_to_linear(uint8_t ulaw) {
  const int code = ~ulaw & 0x7F;
  const int magnitude = ((((code & 0x0F) << 1) + 33) << (code >> 4)) - 33;
  return (int16_t)(ulaw & 0x80 ? magnitude * 4 : -magnitude * 4);
}

static inline uint8_t linear_to_alaw(int linear) {
  // Table 1: 12-bit magnitudes; the first two segments have the same step.
  const int negative = linear < 0;
  int magnitude, segment, code;
  linear = g711_clip(linear);
  magnitude = (negative ? ~linear : linear) >> 4;
  segment = g711_segment(magnitude, 32);
  code = magnitude < 16 ? magnitude : ((segment + 1) << 4 | ((magnitude >> segment) & 0x0F));
  return (uint8_t)(code ^ (negative ? 0x55 : 0xD5));
}

static inline int16_t alaw_to_linear(uint8_t alaw) {
  const int code = alaw ^ 0x55;
  const int segment = (code & 0x70) >> 4;
  int magnitude = (code & 0x0F) << 4 | 0x08;
  if (segment > 0) magnitude = (magnitude + 0x100) << (segment - 1);
  return (int16_t)(code & 0x80 ? magnitude : -magnitude);
}

#ifdef __cplusplus
}
#endif
