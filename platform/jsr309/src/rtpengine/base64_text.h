/// Base64 (RFC 4648, section 4), as SDP carries keys in it.
#pragma once

#include "kelvaro/jsr309/secret_bytes.h"
#include "rtpengine/secret_text.h"

#include <optional>
#include <string_view>

namespace kelvaro::jsr309::rtpengine {

/// With padding.
SecretText ToBase64(const SecretBytes& bytes);
/// The padding may be missing, as rtpengine leaves it out. None when the text is not base64.
std::optional<SecretBytes> FromBase64(std::string_view text);

}  // namespace kelvaro::jsr309::rtpengine
