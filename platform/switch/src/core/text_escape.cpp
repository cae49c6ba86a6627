#include "core/text_escape.h"

#include <cstdio>
#include <cstring>

namespace kvx_switch {

namespace {

/// Length of the UTF-8 sequence at `text` (RFC 3629); 0 when it is none.
size_t utf8_length(const unsigned char* text) {
  const unsigned char first = text[0];
  if (first < 0x80) return 1;
  const size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                        : (first & 0xF0) == 0xE0         ? 3
                        : first >= 0xF0 && first <= 0xF4 ? 4
                                                         : 0;
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return 0;
  }
  if ((first == 0xE0 && text[1] < 0xA0) || (first == 0xED && text[1] > 0x9F) || (first == 0xF0 && text[1] < 0x90) ||
      (first == 0xF4 && text[1] > 0x8F)) {
    return 0;
  }
  return length;
}

}  // namespace

std::string JsonString(const char* text) {
  std::string quoted = "\"";
  for (const auto* at = reinterpret_cast<const unsigned char*>(text); *at;) {
    const size_t length = utf8_length(at);
    if (length == 0) {
      quoted += "\xEF\xBF\xBD";  // U+FFFD in place of what is no character
      ++at;
    } else if (length > 1) {
      quoted.append(reinterpret_cast<const char*>(at), length);
      at += length;
    } else {
      const auto c = static_cast<char>(*at++);
      if (c == '"' || c == '\\') {
        quoted += '\\';
        quoted += c;
      } else if (c == '\n') {
        quoted += "\\n";
      } else if (c == '\r') {
        quoted += "\\r";
      } else if (c == '\t') {
        quoted += "\\t";
      } else if (static_cast<unsigned char>(c) < 0x20) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\u%04x", c);
        quoted += escape;
      } else {
        quoted += c;
      }
    }
  }
  return quoted += '"';
}

std::string XmlText(std::string_view text) {
  const std::string whole(text);
  std::string escaped;
  for (const auto* at = reinterpret_cast<const unsigned char*>(whole.c_str()); *at;) {
    const size_t length = utf8_length(at);
    if (length == 0) {
      escaped += "\xEF\xBF\xBD";  // U+FFFD in place of what is no character
    } else if (*at == '&') {
      escaped += "&amp;";
    } else if (*at == '<') {
      escaped += "&lt;";
    } else if (*at == '>') {
      escaped += "&gt;";
    } else if (*at < 0x20 && std::strchr("\t\r\n", *at) == nullptr) {
      escaped += '?';  // control characters have no place in XML at all
    } else {
      escaped.append(reinterpret_cast<const char*>(at), length);
    }
    at += length == 0 ? 1 : length;
  }
  return escaped;
}

}  // namespace kvx_switch
