/// Silence insertion descriptors (SID) within a codec's payload, and how they are told from speech.
#pragma once

#include <cstddef>
#include <cstdint>

namespace media_engine {

/// Codecs whose far ends may do without SID.
enum class SidFormat : uint8_t { kNone, kG729, kG723 };

/// Takes the SID frames out of a payload, in place; what is left, maybe nothing, is its new length. A payload that is
/// not made of whole frames is left alone from where that shows.
///
/// G.729, annex B: a frame of 2 octets behind any number of 10 octets each (RFC 3551, section 4.5.6). G.723.1, annex
/// A: a frame of 4 octets, anywhere; the two low bits of a frame's first octet tell its kind (section 4.5.3).
std::size_t RemoveSid(SidFormat format, uint8_t* payload, std::size_t length);

}  // namespace media_engine
