#pragma once

#include <string>
#include <string_view>

/// Text as it may stand in the formats that clients read. Pure functions.
namespace kvx_switch {

/// A JSON string in its quotation marks (RFC 8259); what is no UTF-8 becomes U+FFFD.
std::string JsonString(const char* text);

/// Text between XML elements; control characters, which XML has no place for, become "?".
std::string XmlText(std::string_view text);

}  // namespace kvx_switch
