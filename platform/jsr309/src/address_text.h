/// IP and MAC addresses as people write them, made comparable.
///
/// One address has many spellings: "::1", "[::1]" and "0:0:0:0:0:0:0:1"; "00-1a-..." and "00:1A:...". Whoever looks up
/// a server by address means the address, not the spelling.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kelvaro::jsr309 {

/// A numeric IP address: its family and its bytes in network order, the unused ones zero.
struct IpKey {
  int family = 0;
  std::array<uint8_t, 16> bytes{};
  bool operator==(const IpKey& other) const { return family == other.family && bytes == other.bytes; }
};

/// The text without the brackets around it, if it has both.
std::string WithoutBrackets(const std::string& text);
/// None for what is not a numeric IPv4 or IPv6 address, with or without brackets. Names are not resolved.
std::optional<IpKey> ParseIp(const std::string& text);
/// Whether two texts mean the same address; texts that are no addresses are compared without regard to case.
bool SameIp(const std::string& one, const std::string& other);

/// Six bytes in hexadecimal, upper case with ":" between; none for what is not a MAC address with ":" or "-".
std::optional<std::string> NormalisedMac(const std::string& text);

/// ASCII letters only, whatever the locale.
std::string UpperCase(std::string text);

}  // namespace kelvaro::jsr309
