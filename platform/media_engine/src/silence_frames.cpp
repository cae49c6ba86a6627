#include "silence_frames.h"

#include <algorithm>

namespace media_engine {
namespace {

constexpr std::size_t kG729Frame = 10, kG729Sid = 2;
constexpr std::size_t kG723Sid = 4;
constexpr std::size_t kG723Frames[] = {24, 20, kG723Sid, 0};  // by the two low bits; 3 is not used

std::size_t RemoveG723Sid(uint8_t* payload, std::size_t length) {
  std::size_t kept = 0, at = 0;
  while (at < length) {
    const std::size_t frame = kG723Frames[payload[at] & 3];
    const bool whole = frame != 0 && frame <= length - at;
    const std::size_t step = whole ? frame : length - at;
    if (frame != kG723Sid || !whole) {
      std::copy_n(payload + at, step, payload + kept);
      kept += step;
    }
    at += step;
  }
  return kept;
}

}  // namespace

std::size_t RemoveSid(SidFormat format, uint8_t* payload, std::size_t length) {
  switch (format) {
    case SidFormat::kG729:
      return length % kG729Frame == kG729Sid ? length - kG729Sid : length;
    case SidFormat::kG723:
      return RemoveG723Sid(payload, length);
    case SidFormat::kNone:
      break;
  }
  return length;
}

}  // namespace media_engine
