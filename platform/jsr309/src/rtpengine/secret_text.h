/// Texts with keys in them, on their way to a daemon and back: what is made, passed on and done with must not stay
/// behind in freed memory.
///
/// Values and plain functions; any thread.
#pragma once

#include "kelvaro/jsr309/secret_bytes.h"

#include <string.h>

#include <memory>
#include <string>
#include <utility>

namespace kelvaro::jsr309::rtpengine {

/// Wiped when it is given back, while it grows too. A text so short that it stands in the object itself is not; no key
/// is.
using SecretText = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;

inline void Wipe(std::string& text) {
  explicit_bzero(text.data(), text.size());
}

/// Shared, and wiped when the last owner lets go.
inline std::shared_ptr<const std::string> ShareSecret(std::string text) {
  const auto wipe = [](std::string* shared) {
    Wipe(*shared);
    delete shared;
  };
  return std::shared_ptr<std::string>(new std::string(std::move(text)), wipe);
}

}  // namespace kelvaro::jsr309::rtpengine
