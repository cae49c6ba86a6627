/// Conversion between the two laws of ITU-T G.711, octet by octet, in place.
#pragma once

#include <cstddef>
#include <cstdint>

namespace media_engine {

void ConvertMuLawToALaw(uint8_t* samples, std::size_t count);
void ConvertALawToMuLaw(uint8_t* samples, std::size_t count);

/// The 16-bit linear values that the codes stand for.
int DecodeMuLaw(uint8_t code);
int DecodeALaw(uint8_t code);

}  // namespace media_engine
