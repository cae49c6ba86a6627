#include "sip/reference.h"

namespace kvx_switch {

namespace {

/// How long the reference at `at` is; 0 when there is none.
size_t LengthAt(const std::string& text, size_t at) {
  if (text[at] != '$' || at + 1 >= text.size()) return 0;
  if (text[at + 1] >= '1' && text[at + 1] <= '9') return 2;
  if (text[at + 1] != '{') return 0;
  const size_t close = text.find('}', at);
  return (close == std::string::npos ? text.size() : close + 1) - at;
}

}  // namespace

bool HasReference(const std::string& text) {
  for (size_t at = 0; at < text.size(); ++at) {
    if (LengthAt(text, at) > 0) return true;
  }
  return false;
}

std::string WithPlainReferences(const std::string& text) {
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    const size_t length = LengthAt(text, at);
    plain += length > 0 ? "$1" : std::string(1, text[at]);
    at += length > 0 ? length : 1;
  }
  return plain;
}

}  // namespace kvx_switch
