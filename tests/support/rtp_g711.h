#pragma once

#include <cstdint>

namespace test_support {

/// G.711 (ITU-T G.711, 11/1988) written for the probe alone: a probe that shared the code under test would agree with
/// its mistakes. Samples are 16 bits linear, full scale.
std::uint8_t encode_mulaw(std::int16_t sample);
std::int16_t decode_mulaw(std::uint8_t code);
std::uint8_t encode_alaw(std::int16_t sample);
std::int16_t decode_alaw(std::uint8_t code);

}  // namespace test_support
