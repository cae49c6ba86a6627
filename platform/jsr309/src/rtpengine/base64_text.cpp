#include "rtpengine/base64_text.h"

#include <algorithm>
#include <cstdint>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

SecretText ToBase64(const SecretBytes& bytes) {
  SecretText text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
    uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < count ? bytes[at + i] : 0);
    for (std::size_t i = 0; i < 4; ++i) text += i <= count ? kDigits[group >> (18 - 6 * i) & 0x3f] : '=';
  }
  return text;
}

std::optional<SecretBytes> FromBase64(std::string_view text) {
  if (text.size() % 4 == 0) {
    for (int i = 0; i < 2 && !text.empty() && text.back() == '='; ++i) text.remove_suffix(1);
  }
  if (text.size() % 4 == 1) return std::nullopt;
  SecretBytes bytes;
  bytes.reserve(text.size() * 3 / 4);
  uint32_t group = 0;
  unsigned bits = 0;
  for (const char digit : text) {
    const std::size_t value = kDigits.find(digit);
    if (value == std::string_view::npos) return std::nullopt;
    group = (group << 6 | static_cast<uint32_t>(value)) & 0xffff;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes.push_back(static_cast<uint8_t>(group >> bits));
  }
  // What is left over of the last digit carries nothing.
  if ((group & ((1u << bits) - 1)) != 0) return std::nullopt;
  return bytes;
}

}  // namespace kelvaro::jsr309::rtpengine
