#include "address_text.h"

#include <arpa/inet.h>
#include <sys/socket.h>

namespace kelvaro::jsr309 {
namespace {

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

}  // namespace

std::string WithoutBrackets(const std::string& text) {
  const bool bracketed = text.size() >= 2 && text.front() == '[' && text.back() == ']';
  return bracketed ? text.substr(1, text.size() - 2) : text;
}

std::optional<IpKey> ParseIp(const std::string& text) {
  const std::string bare = WithoutBrackets(text);
  IpKey key;
  if (bare.find('\0') != std::string::npos) return std::nullopt;
  if (bare.size() == text.size() && inet_pton(AF_INET, bare.c_str(), key.bytes.data()) == 1) {
    key.family = AF_INET;
    return key;
  }
  if (inet_pton(AF_INET6, bare.c_str(), key.bytes.data()) == 1) {
    key.family = AF_INET6;
    return key;
  }
  return std::nullopt;
}

bool SameIp(const std::string& one, const std::string& other) {
  const auto one_key = ParseIp(one);
  const auto other_key = ParseIp(other);
  if (one_key && other_key) return *one_key == *other_key;
  return UpperCase(one) == UpperCase(other);
}

std::optional<std::string> NormalisedMac(const std::string& text) {
  constexpr size_t kLength = 17;  // six pairs of digits, five separators
  if (text.size() != kLength) return std::nullopt;
  std::string mac = UpperCase(text);
  for (size_t i = 0; i < kLength; ++i) {
    if (i % 3 != 2) {
      if (!IsHexDigit(mac[i])) return std::nullopt;
    } else if (mac[i] == ':' || mac[i] == '-') {
      mac[i] = ':';
    } else {
      return std::nullopt;
    }
  }
  return mac;
}

std::string UpperCase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

}  // namespace kelvaro::jsr309
